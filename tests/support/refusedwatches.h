#pragma once

#include "scopedmount.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

namespace quillorn::test {

// Set in a test process whose every inotify watch the kernel refuses.
inline bool watchesRefused()
{
    return std::getenv("QUILLORN_WATCHES_REFUSED") != nullptr;
}

// Runs one test function of this QtTest binary again in a child process in which
// every inotify_add_watch fails with ENOSPC, as it does once
// fs.inotify.max_user_watches is used up (strace injects the error, so the
// machine's real limit, shared with every other process, is left alone).
// Returns the child's exit status (77 when strace is missing) and its output.
inline std::pair<int, std::string> runWithWatchesRefused(const std::string &function)
{
    if (std::system("strace -V >/dev/null 2>&1") != 0)
        return {77, "strace is not installed"};
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    int status = -1;
    std::string output = runCommand(
        "QUILLORN_WATCHES_REFUSED=1 strace -f -qq -o /dev/null -e inject=inotify_add_watch:error=ENOSPC " +
            shellQuote(self) + " " + shellQuote(function) + " 2>&1; exit $?",
        &status);
    return {status, std::move(output)};
}

} // namespace quillorn::test
