#pragma once

#include "platform/posix/filedescriptor.h"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace quillorn {

// A program run with its arguments as separate strings (no shell), whose
// standard output is read through a pipe; its standard input and standard error
// are the null device. The child starts a session of its own, so it has no
// controlling terminal: a program that would ask there (unzip's password
// prompt) fails instead of waiting for an answer nobody can give.
//
// However the owner lets go of it, the child is gone afterwards: the destructor
// closes the pipe, kills a child that still runs and reaps it.
class ChildProcess {
public:
    // Throws PosixError naming the executable when it cannot be started.
    ChildProcess(const std::string &executable, const std::vector<std::string> &arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // Up to `size` bytes of output; 0 at its end. Throws PosixError.
    std::size_t read(char *buffer, std::size_t size);
    // Closes the read end of the pipe; later reads see the end.
    void closeOutput();
    bool running();
    // Ends a child that still runs; unzip keeps nothing that needs a graceful end.
    void terminate();
    // Waits for the child's end: its exit status, or 128 + the signal that ended it.
    int wait();

    static constexpr int pipeCapacity = 0x100000;
    static constexpr long gatherNanoseconds = 2'000'000;

private:
    std::string m_executable;
    pid_t m_pid = -1;
    FileDescriptor m_output;
    bool m_reaped = false;
    int m_status = 0;
};

} // namespace quillorn
