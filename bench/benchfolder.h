#pragma once

// The 100,000-file folder the pane benchmarks share, made once under /tmp
// (QUILLORN_BENCH_FOLDER overrides the place) and reused by later runs.
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace quillorn::bench {

inline constexpr int fileCount = 100'000;

inline std::filesystem::path benchRoot()
{
    const char *custom = std::getenv("QUILLORN_BENCH_FOLDER");
    return custom ? std::filesystem::path(custom) : std::filesystem::path("/tmp/quillorn-bench-pane");
}

// Names of varied shape, so collation and the filter see realistic text.
inline std::string nameFor(int i)
{
    static const char *const words[] = {"Report",  "photo", "IMG",    "notes",
                                        "Invoice", "draft", "backup", "Übersicht"};
    static const char *const extensions[] = {".txt", ".jpg", ".pdf", ".tar.gz", ""};
    return std::string(words[i % 8]) + " " + std::to_string(i * 7919 % fileCount) + extensions[i % 5];
}

// 100,000 small files and 50 folders.
inline const std::filesystem::path &bigFolder()
{
    namespace fs = std::filesystem;
    static const fs::path folder = [] {
        const fs::path path = benchRoot() / "100k";
        const fs::path done = benchRoot() / "100k.complete";
        if (!fs::exists(done)) {
            fs::remove_all(path);
            fs::create_directories(path);
            for (int i = 0; i < fileCount; ++i) {
                const int fd = ::open((path / nameFor(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
                if (fd < 0 || ::write(fd, "x", static_cast<size_t>(i % 3)) < 0)
                    std::abort();
                ::close(fd);
            }
            for (int i = 0; i < 50; ++i)
                fs::create_directory(path / ("folder " + std::to_string(i)));
            std::ofstream(done) << "ok";
        }
        return path;
    }();
    return folder;
}

} // namespace quillorn::bench
