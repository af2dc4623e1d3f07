#pragma once

#include <QString>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace quillorn {

// A modal alert: a message, an informative text and its buttons, first button
// first. No buttons means the toolkit's single default confirmation button.
struct AlertRequest {
    QString message;
    QString informativeText;
    QStringList buttons;
    // Shown on request below the informative text; empty: nothing to show.
    QString detailedText = {};
};

// What the application model asks of the desktop, as plain function values so
// that the model stays free of widgets and tests can stand in for each one.
// The real services (dialogs, clipboard, quick look, default applications) are
// built in the desktop platform layer; a member left empty does nothing and
// answers "no" (an alert returns -1, a prompt none, the clipboard nothing).
struct DesktopServices {
    using Path = std::filesystem::path;

    // Opens a file in its default application; the outcome is not reported.
    std::function<void(const Path &file)> openFile;
    // Replaces the clipboard with references to these items, in order.
    std::function<void(const std::vector<Path> &items)> writeClipboard;
    // The local files referenced on the clipboard, in order; empty when there are none.
    std::function<std::vector<Path>()> readClipboard;
    // Replaces the clipboard with these items marked as cut: a paste moves them.
    std::function<void(const std::vector<Path> &items)> cutToClipboard;
    // Whether the clipboard's items were cut, here or in another file manager.
    std::function<bool()> clipboardIsCut;
    // Shows a quick look at the item; `failed` gets the reason, on the interface
    // thread, when the item cannot be read.
    std::function<void(const Path &item, std::function<void(const QString &reason)> failed)> preview;
    // Runs a modal alert; returns the index of the chosen button, or -1.
    std::function<int(const AlertRequest &alert)> alert;
    // Asks for one line of text; the answer as typed, or none when cancelled.
    std::function<std::optional<QString>(const QString &title, const QString &value)> prompt;
    // Asks the application to quit (the quit guard still applies).
    std::function<void()> requestQuit;
};

} // namespace quillorn
