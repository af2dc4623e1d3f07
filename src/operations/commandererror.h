#pragma once

#include <stdexcept>
#include <string>

namespace quillorn {

// The program's one error type: its message is a complete sentence shown to the
// user as it stands (queue rows, sheet status lines, alerts). Item names inside
// it stand between ‘ and ’.
class CommanderError : public std::runtime_error {
public:
    explicit CommanderError(const std::string &message) : std::runtime_error(message) {}

    std::string errorDescription() const { return what(); }
};

// Thrown by OperationControl::check() after a stop was requested. Callers report
// it as a cancellation, never as a failure, so it is its own kind, not a message.
class CancellationError : public std::exception {
public:
    const char *what() const noexcept override { return "The operation was cancelled."; }
};

} // namespace quillorn
