#pragma once

#include <QString>

class QPushButton;
class QWidget;

namespace quillorn::detail {

// A sheet's push button that never becomes the default: Return belongs to the
// field, list or text that has the keyboard, never to a button it did not name.
QPushButton *sheetButton(const QString &text, const QString &objectName, QWidget *parent);

} // namespace quillorn::detail
