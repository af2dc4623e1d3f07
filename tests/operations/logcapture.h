#pragma once

#include "operations/appdiagnostics.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace quillorn::test {

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

} // namespace quillorn::test
