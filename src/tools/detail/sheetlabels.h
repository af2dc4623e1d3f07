#pragma once

#include <QString>

class QLabel;
class QWidget;

namespace quillorn::detail {

// The name a sheet shows at its top, bold and a size above the text, the same
// on every sheet.
QLabel *sheetTitle(const QString &text, QWidget *parent);

// A small wrapping line in the theme's secondary text colour: what a sheet
// says about its work rather than the work itself.
QLabel *sheetNote(const QString &text, QWidget *parent);

} // namespace quillorn::detail
