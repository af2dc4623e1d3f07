#pragma once

#include <filesystem>
#include <functional>

namespace quillorn {

class CommanderModel;

// What the window lends its sheets besides the model: opening a file in its
// default application, and where the editor's unsaved state goes (the quit
// guard's flag). Either may be empty; the sheet then does without.
struct SheetServices {
    std::function<void(const std::filesystem::path &)> openFile;
    std::function<void(bool unsaved)> unsavedEditor;
};

// What every sheet may use from the host that shows it: the application model,
// the action that closes the sheet (the host then clears the model's tool) and
// the window's services.
struct SheetContext {
    CommanderModel &model;
    std::function<void()> dismiss;
    const SheetServices &services;
};

} // namespace quillorn
