#pragma once

#include <functional>

namespace quillorn {

class CommanderModel;

// What every sheet may use from the host that shows it: the application model
// and the action that closes the sheet (the host then clears the model's tool).
struct SheetContext {
    CommanderModel &model;
    std::function<void()> dismiss;
};

} // namespace quillorn
