#pragma once

// Shared by the engine's tests: a private log and Trash, and the checks they repeat.
#include "scopedmount.h"
#include "testtree.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "platform/posix/posixerror.h"

#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <optional>

namespace fs = std::filesystem;

namespace quillorn::test {

// XDG_DATA_HOME (log and home Trash) and XDG_STATE_HOME (staging journal) in a fresh
// folder, set before main so that the shared log and journal, made on first use, land there.
inline const TestTree dataTree;
inline const fs::path dataHome = (::setenv("XDG_DATA_HOME", dataTree.root().c_str(), 1), dataTree.root());
inline const fs::path stateHome =
    (::setenv("XDG_STATE_HOME", (dataTree.root() / "state").c_str(), 1), dataTree.root() / "state");

// A function giving the messages the shared log received after this call, one
// per physical line, timestamps removed.
inline auto logMark()
{
    const fs::path log = AppDiagnostics::shared().fileURL();
    return [log, offset = fs::exists(log) ? fs::file_size(log) : 0] {
        std::ifstream in(log, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(offset));
        std::vector<std::string> result;
        for (std::string line; std::getline(in, line);)
            result.push_back(line.size() > 21 ? line.substr(21) : line);
        return result;
    };
}

// The message of the CommanderError that body throws, or "" when it throws none.
template <typename Body> std::string failure(Body &&body)
{
    try {
        body();
    } catch (const CommanderError &error) {
        return error.errorDescription();
    }
    return {};
}

// A transfer failure as the engine words it: phase, reason, domain and code, log path.
inline std::string wrapped(const std::string &phase, const std::string &reason,
                           const std::string &domainAndCode)
{
    return phase + " failed: " + reason + " (" + domainAndCode + "). See " +
           AppDiagnostics::shared().fileURL().string();
}

// Name -> bytes of the items in a folder, hidden ones included ("/" for a folder).
inline std::map<std::string, std::string> contents(const fs::path &folder)
{
    std::map<std::string, std::string> result;
    std::error_code error;
    for (auto it = fs::directory_iterator(folder, error); !error && it != fs::directory_iterator(); ++it)
        result[it->path().filename()] = it->is_directory() ? "/" : TestTree::read(it->path());
    return result;
}

// Contents that differ from chunk to chunk, so a misplaced chunk shows.
inline std::string pattern(std::size_t bytes)
{
    std::string result(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        result[i] = static_cast<char>('A' + i % 23);
    return result;
}

// A copy (or move) with the default services and no permanent removal.
inline std::vector<fs::path> transfer(const std::vector<fs::path> &sources, const fs::path &destination,
                                      bool move = false, ConflictPolicy policy = ConflictPolicy::stop,
                                      const FileOperations &operations = FileOperations())
{
    return operations.transfer(sources, destination, move, policy, false);
}

// The user nobody for a command run by the shell, and strace making one system call fail or die.
inline const std::string asNobody = "setpriv --reuid=nobody --regid=nogroup --clear-groups ",
                         injectFault = "strace -f -qq -o /dev/null -e inject=";

// Exit status and standard error of the transfer driver (built beside the tests) run behind
// prefix (strace, setpriv, prlimit), moving or copying source into destination; strace exits
// with the driver's status, or dies of the signal that killed it.
inline std::pair<int, std::string> drive(const std::string &prefix, const std::string &mode,
                                         const fs::path &destination, const fs::path &source,
                                         const std::string &policy = "Stop")
{
    const fs::path driver = fs::read_symlink("/proc/self/exe").parent_path() / "transfer_driver";
    int status = -1;
    std::string errors = runCommand("ASAN_OPTIONS=detect_leaks=0 " + prefix + " " + shellQuote(driver) + " " +
                                        mode + " " + shellQuote(policy) + " " + shellQuote(destination) +
                                        " " + shellQuote(source) + " 2>&1 >/dev/null; exit $?",
                                    &status);
    return {status, errors};
}

} // namespace quillorn::test

// Mounts a file system for the rest of the test, or skips the test saying why not.
#define MOUNT_OR_SKIP(name, ...)                                                                             \
    if (!runningAsRoot())                                                                                    \
        GTEST_SKIP() << "needs root to mount a file system";                                                 \
    std::optional<ScopedMount> name;                                                                         \
    try {                                                                                                    \
        name.emplace(__VA_ARGS__);                                                                           \
    } catch (const std::exception &error) {                                                                  \
        GTEST_SKIP() << "this machine refuses the mount: " << error.what();                                  \
    }

using namespace quillorn;
using namespace quillorn::test;
using namespace testing;
using enum quillorn::ConflictPolicy;
