#pragma once

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace quillorn::test {

// Shared by the engine's tests: a private log and Trash, the log lines of one
// step, and the comparisons the tests repeat.

// Points XDG_DATA_HOME (log and home Trash) at a fresh temporary folder. Must run
// before the shared log is first used; test files call it from a static initialiser.
inline const std::filesystem::path &temporaryDataHome()
{
    static const std::filesystem::path folder = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "quillorn-data-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            std::abort();
        ::setenv("XDG_DATA_HOME", pattern.c_str(), 1);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(std::getenv("XDG_DATA_HOME"), ignored);
        });
        return std::filesystem::path(pattern);
    }();
    return folder;
}

// The messages the shared log received after this object was made, one per
// physical line, timestamps removed.
class LogMark {
public:
    LogMark() : m_offset(size()) {}

    std::vector<std::string> lines() const
    {
        std::ifstream in(AppDiagnostics::shared().fileURL(), std::ios::binary);
        in.seekg(static_cast<std::streamoff>(m_offset));
        std::vector<std::string> result;
        for (std::string line; std::getline(in, line);)
            result.push_back(line.size() > 21 ? line.substr(21) : line);
        return result;
    }

    std::string text() const
    {
        std::string joined;
        for (const std::string &line : lines())
            joined += line + "\n";
        return joined;
    }

private:
    static std::uintmax_t size()
    {
        std::error_code error;
        const std::uintmax_t bytes = std::filesystem::file_size(AppDiagnostics::shared().fileURL(), error);
        return error ? 0 : bytes;
    }

    std::uintmax_t m_offset;
};

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

// The names in a folder, sorted.
inline std::vector<std::string> names(const std::filesystem::path &folder)
{
    std::vector<std::string> result;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        result.push_back(entry.path().filename().string());
    std::sort(result.begin(), result.end());
    return result;
}

inline bool hasStaging(const std::filesystem::path &folder)
{
    for (const std::string &name : names(folder))
        if (name.rfind(".quillorn-", 0) == 0)
            return true;
    return false;
}

// Contents that differ from chunk to chunk, so a misplaced chunk shows.
inline std::string pattern(std::size_t bytes)
{
    std::string contents(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        contents[i] = static_cast<char>('A' + i % 23);
    return contents;
}

} // namespace quillorn::test
