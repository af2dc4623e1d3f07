#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace quillorn::test {

// A command run under strace with each of its rename and link calls into one
// folder (named by a descriptor of it, as the engine names them) held at entry for
// a while, so that a test can act in the instant between the command's last look
// at a name and the call that takes it, and see that it did.
class HeldCall {
public:
    // command[0] is looked up in PATH; standard output and error go to output.
    HeldCall(const std::vector<std::string> &command, const std::filesystem::path &folder,
             std::chrono::milliseconds hold, const std::filesystem::path &output);
    ~HeldCall();
    HeldCall(const HeldCall &) = delete;
    HeldCall &operator=(const HeldCall &) = delete;

    // Waits until the command is held in a renameat, renameat2 without flags or
    // linkat whose new name lies in the folder; false when the command ends first.
    bool waitForCall();
    // Whether the call found by waitForCall is still held.
    bool stillHeld() const;
    // Waits for the command to end: its exit status (128 + the signal that ended
    // it) and what it wrote.
    std::pair<int, std::string> finish();

private:
    pid_t m_tracer = -1;
    int m_status = 0;
    std::filesystem::path m_folder, m_output;
    std::string m_task;   // /proc/PID/task/TID of the held thread
    std::string m_heldAt; // its /proc/.../syscall line when found
};

} // namespace quillorn::test
