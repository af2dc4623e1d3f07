#include "tools/detail/sheetlabels.h"

#include <QLabel>

namespace quillorn::detail {

QLabel *sheetTitle(const QString &text, QWidget *parent)
{
    auto *title = new QLabel(text, parent);
    title->setObjectName(QStringLiteral("sheetTitle"));
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    font.setBold(true);
    title->setFont(font);
    return title;
}

QLabel *sheetNote(const QString &text, QWidget *parent)
{
    auto *note = new QLabel(text, parent);
    note->setObjectName(QStringLiteral("noteLabel"));
    note->setWordWrap(true);
    QFont font = note->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    note->setFont(font);
    // The themes colour labels through their style sheet, which a palette role would not reach.
    note->setProperty("secondaryText", true);
    return note;
}

} // namespace quillorn::detail
