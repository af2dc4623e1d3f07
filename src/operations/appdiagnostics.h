#pragma once

// Every writer of a line escapes its paths with detail::logPath.
#include "operations/detail/logtext.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>

namespace quillorn {

// The diagnostics log: single timestamped lines appended by the engine and the
// queue from any thread, in "Quillorn/Logs/Quillorn.log" under the user's data
// folder. Once the file passes 5,000,000 bytes it becomes "Quillorn.previous.log"
// before the next line is written, so at most two files exist.
//
// One lock makes the size check, the rotation and the append a single critical
// section, so lines never interleave and a rotation never races an append.
// record() never throws and never reports a failure: a log that cannot be
// written loses the line and nothing else.
class AppDiagnostics {
public:
    static constexpr std::uintmax_t rotationSize = 5'000'000;

    // The one instance, created on first use below $XDG_DATA_HOME (else ~/.local/share).
    static AppDiagnostics &shared();

    // A log in folder (created with its missing parents, mode 0700); for tests.
    explicit AppDiagnostics(std::filesystem::path folder);
    AppDiagnostics(const AppDiagnostics &) = delete;
    AppDiagnostics &operator=(const AppDiagnostics &) = delete;

    const std::filesystem::path &fileURL() const { return m_fileURL; }

    void record(const std::string &message) noexcept;

    // An error as the platform describes it: where it comes from, its code, its
    // user-facing text, and optionally the item and the error underneath it.
    struct ErrorForm {
        std::string domain;
        long long code = 0;
        std::string description;
        std::string path; // empty when the error names no item
        std::exception_ptr underlying;
    };
    static ErrorForm form(const std::exception &error);

    // "DOMAIN code=N: DESCRIPTION[ path=PATH][ underlying={...}]"
    static std::string describe(const std::exception &error);
    static std::string describe(const std::exception_ptr &error);

private:
    void rotateIfNeeded() noexcept;
    void append(const std::string &line) noexcept;

    std::mutex m_lock;
    std::filesystem::path m_fileURL;
};

} // namespace quillorn
