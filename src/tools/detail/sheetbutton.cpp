#include "tools/detail/sheetbutton.h"

#include <QPushButton>

namespace quillorn::detail {

QPushButton *sheetButton(const QString &text, const QString &objectName, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(objectName);
    button->setAutoDefault(false);
    return button;
}

} // namespace quillorn::detail
