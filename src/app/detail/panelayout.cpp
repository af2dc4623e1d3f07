#include "app/detail/panelayout.h"

#include <QFontDatabase>

namespace quillorn::detail {

QFont monospacedFont(int pixelSize)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(pixelSize);
    return font;
}

} // namespace quillorn::detail
