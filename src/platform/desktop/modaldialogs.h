#pragma once

#include "platform/core/desktopservices.h"

#include <QString>
#include <optional>

class QMessageBox;
class QWidget;

namespace quillorn {

// The application's modal alerts and its one-line text prompt, window-modal
// over `parent` when one is given.

// Returns the index of the chosen button (first button = 0), or -1 when the
// alert was dismissed without one. No buttons: a single default "OK".
int runAlert(QWidget *parent, const AlertRequest &alert);

// The same alert shown without waiting for an answer; it goes when closed and
// hands the keyboard back to its window. For alerts whose answer changes nothing.
QMessageBox *showAlert(QWidget *parent, const AlertRequest &alert);

// A prompt titled `title` with one text field 360 × 24 holding `value`, focused
// and fully selected, and the buttons "OK" and "Cancel". Returns the text as
// typed (not trimmed) for OK, none otherwise.
std::optional<QString> askForText(QWidget *parent, const QString &title, const QString &value);

// Makes the box wide enough for the text of each of its buttons; called once
// its buttons are added, before it is shown.
void fitButtons(QMessageBox &box);

} // namespace quillorn
