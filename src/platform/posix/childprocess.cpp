#include "platform/posix/childprocess.h"

#include "platform/posix/posixerror.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char **environ;

namespace quillorn {

namespace {

// The posix_spawn attribute and file-action objects, released on every way out.
struct SpawnSetup {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    SpawnSetup()
    {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
};

} // namespace

ChildProcess::ChildProcess(const std::string &executable, const std::vector<std::string> &arguments)
    : m_executable(executable)
{
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0)
        throwPosixError(executable);
    m_output = FileDescriptor(pipe[0]);
    const FileDescriptor writeEnd(pipe[1]);
    // Room for a burst of output, so a child writing line by line (unzip does,
    // unbuffered) does not wait for the reader after every line.
    ::fcntl(pipe[0], F_SETPIPE_SZ, pipeCapacity);

    SpawnSetup setup;
    posix_spawnattr_setflags(&setup.attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&setup.attributes, &signals);
    // A parent that ignores SIGPIPE must not hand that on: a child writing to a
    // closed pipe should end, not loop on EPIPE.
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&setup.attributes, &signals);
    posix_spawn_file_actions_addopen(&setup.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&setup.actions, writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&setup.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(executable.c_str()));
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    const int error =
        ::posix_spawn(&m_pid, executable.c_str(), &setup.actions, &setup.attributes, argv.data(), environ);
    if (error != 0) {
        m_pid = -1;
        throwPosixError(executable, error);
    }
}

ChildProcess::~ChildProcess()
{
    closeOutput();
    if (running())
        terminate();
    wait();
}

std::size_t ChildProcess::read(char *buffer, std::size_t size)
{
    if (!m_output)
        return 0;
    for (;;) {
        const ssize_t count = ::read(m_output.get(), buffer, size);
        if (count > 0 && std::size_t(count) < size) {
            // A short read means the child is still writing: let its output
            // gather in the pipe before the next read, instead of waking up
            // for each of its small writes (which slows the child down too).
            const struct timespec pause {
                0, gatherNanoseconds
            };
            ::nanosleep(&pause, nullptr);
        }
        if (count >= 0)
            return std::size_t(count);
        if (errno != EINTR)
            throwPosixError(m_executable);
    }
}

void ChildProcess::closeOutput()
{
    m_output = FileDescriptor();
}

bool ChildProcess::running()
{
    if (m_pid < 0 || m_reaped)
        return false;
    int status = 0;
    pid_t done = ::waitpid(m_pid, &status, WNOHANG);
    while (done < 0 && errno == EINTR)
        done = ::waitpid(m_pid, &status, WNOHANG);
    if (done == 0)
        return true;
    m_reaped = true;
    m_status = status;
    return false;
}

void ChildProcess::terminate()
{
    if (m_pid >= 0 && !m_reaped)
        ::kill(m_pid, SIGKILL);
}

int ChildProcess::wait()
{
    if (m_pid < 0)
        return -1;
    if (!m_reaped) {
        int status = 0;
        pid_t done;
        do
            done = ::waitpid(m_pid, &status, 0);
        while (done < 0 && errno == EINTR);
        m_reaped = true;
        m_status = done < 0 ? 0 : status;
    }
    if (WIFSIGNALED(m_status))
        return 128 + WTERMSIG(m_status);
    return WEXITSTATUS(m_status);
}

} // namespace quillorn
