#include "heldcall.h"

#include "testtree.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

extern char **environ;

namespace fs = std::filesystem;

namespace quillorn::test {

namespace {

std::string firstLine(const fs::path &file)
{
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

// The folder a call's new name lies in: its directory descriptor, as the traced
// process holds it.
bool descriptorLeadsTo(const fs::path &task, unsigned long long descriptor, const fs::path &folder)
{
    std::error_code error;
    const fs::path opened = fs::read_symlink(task / "fd" / std::to_string(descriptor), error);
    return !error && opened == folder;
}

bool exited(pid_t pid, int &status)
{
    return ::waitpid(pid, &status, WNOHANG) == pid;
}

} // namespace

HeldCall::HeldCall(const std::vector<std::string> &command, const fs::path &folder,
                   std::chrono::milliseconds hold, const fs::path &output)
    : m_folder(fs::canonical(folder)), m_output(output)
{
    const std::string held =
        "inject=rename,renameat,renameat2,link,linkat:delay_enter=" +
        std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(hold).count());
    // -P: only calls naming the folder are held, not those of the program's journals.
    // LeakSanitizer cannot work under ptrace.
    std::vector<std::string> arguments{"strace",
                                       "-f",
                                       "-qq",
                                       "-o",
                                       "/dev/null",
                                       "-P",
                                       m_folder,
                                       "-e",
                                       held,
                                       "env",
                                       "ASAN_OPTIONS=detect_leaks=0"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    const int error = ::posix_spawnp(&m_tracer, "strace", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "strace");
}

HeldCall::~HeldCall()
{
    if (m_tracer > 0) {
        ::kill(m_tracer, SIGKILL);
        ::waitpid(m_tracer, nullptr, 0);
    }
}

bool HeldCall::waitForCall()
{
    const std::string tracer = "/proc/" + std::to_string(m_tracer);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (std::chrono::steady_clock::now() < deadline) {
        if (exited(m_tracer, m_status)) {
            m_tracer = -1;
            return false;
        }
        std::istringstream children(firstLine(tracer + "/task/" + std::to_string(m_tracer) + "/children"));
        for (std::string child; children >> child;) {
            std::error_code error;
            for (const auto &task : fs::directory_iterator("/proc/" + child + "/task", error)) {
                const std::string line = firstLine(task.path() / "syscall");
                std::istringstream fields(line);
                long number = -1;
                unsigned long long arguments[5] = {};
                fields >> number >> std::hex;
                for (unsigned long long &argument : arguments)
                    fields >> argument;
                const bool renaming = number == SYS_renameat || number == SYS_linkat ||
                                      (number == SYS_renameat2 && arguments[4] == 0);
                if (fields && renaming && descriptorLeadsTo(task.path(), arguments[2], m_folder)) {
                    m_task = task.path();
                    m_heldAt = line;
                    return true;
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error("the command neither renamed into " + m_folder.string() + " nor ended");
}

bool HeldCall::stillHeld() const
{
    return !m_task.empty() && firstLine(m_task + "/syscall") == m_heldAt;
}

std::pair<int, std::string> HeldCall::finish()
{
    if (m_tracer > 0 && ::waitpid(m_tracer, &m_status, 0) == m_tracer)
        m_tracer = -1;
    const int code = WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
    return {code, TestTree::read(m_output)};
}

} // namespace quillorn::test
