// A command-line front to the name search and the folder comparison for
// bench/directorytools.sh; times are taken inside the process, so they hold
// what the sheets wait for and not the start-up of the program.
//
//   directory_tool search ROOT QUERY RUNS    median and best of RUNS warm searches
//   directory_tool contents ROOT TEXT RUNS [regex,case,list]
//                                            the same for a search inside files (hidden
//                                            items included, as grep -r and rg -uuu read
//                                            them); list prints the hits' paths instead
//   directory_tool compare LEFT RIGHT        one comparison
//   directory_tool digest FILE...            SHA-256 of each file, one after the other
//   directory_tool sizes ROOT RUNS           median and best of RUNS warm folder size counts
//   directory_tool make-tree ROOT ENTRIES    ENTRIES empty files and folders, 100 per folder
//   directory_tool make-size-tree ROOT ENTRIES
//                                            the same with sparse files of many sizes, every
//                                            50th file a hard link to the one before it
#include "operations/operationcontrol.h"
#include "services/directorytools.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int search(const fs::path &root, const char *query, int runs)
{
    std::vector<double> times;
    std::size_t hits = 0;
    for (int run = 0; run <= runs; ++run) { // the first run only warms the cache
        OperationControl control;
        const auto start = std::chrono::steady_clock::now();
        const SearchReport report = DirectoryTools::search(root, QString::fromUtf8(query), false, control);
        if (run > 0)
            times.push_back(secondsSince(start) * 1000);
        hits = report.items.size();
    }
    std::sort(times.begin(), times.end());
    std::printf("search hits=%zu median_ms=%.2f best_ms=%.2f\n", hits, times[times.size() / 2],
                times.front());
    return 0;
}

int contents(const fs::path &root, const char *text, int runs, const std::string &mode)
{
    runs = std::max(runs, 1);
    ContentQuery query;
    query.text = QString::fromUtf8(text);
    query.regularExpression = mode.find("regex") != std::string::npos;
    query.matchCase = mode.find("case") != std::string::npos;
    std::vector<double> times;
    SearchReport report;
    for (int run = 0; run <= runs; ++run) { // the first run only warms the cache
        OperationControl control;
        const auto start = std::chrono::steady_clock::now();
        report = DirectoryTools::search(root, {}, true, query, control);
        if (run > 0)
            times.push_back(secondsSince(start) * 1000);
    }
    if (mode.find("list") != std::string::npos) {
        for (const SearchResult &hit : report.items)
            std::printf("%s\n", hit.url.c_str());
        return 0;
    }
    std::sort(times.begin(), times.end());
    std::printf("contents hits=%zu truncated=%d median_ms=%.2f best_ms=%.2f\n", report.items.size(),
                int(report.truncated), times[times.size() / 2], times.front());
    return 0;
}

int compare(const fs::path &left, const fs::path &right)
{
    OperationControl control;
    const auto start = std::chrono::steady_clock::now();
    const std::vector<std::string> rows = DirectoryTools::comparison(left, right, control);
    std::printf("compare rows=%zu seconds=%.3f hashed_bytes=%lld\n", rows.size(), secondsSince(start),
                static_cast<long long>(control.progress().completed));
    return 0;
}

int digest(int count, char **files)
{
    OperationControl control;
    const auto start = std::chrono::steady_clock::now();
    for (int index = 0; index < count; ++index)
        DirectoryTools::digest(files[index], control);
    const double seconds = secondsSince(start);
    std::printf("digest bytes=%lld seconds=%.3f gb_per_s=%.2f\n",
                static_cast<long long>(control.progress().completed), seconds,
                double(control.progress().completed) / seconds / 1e9);
    return 0;
}

int sizes(const fs::path &root, int runs)
{
    std::vector<double> times;
    FolderSize size;
    for (int run = 0; run <= runs; ++run) { // the first run only warms the cache
        OperationControl control;
        const auto start = std::chrono::steady_clock::now();
        size = DirectoryTools::folderSizes({root}, control).front();
        if (run > 0)
            times.push_back(secondsSince(start) * 1000);
    }
    std::sort(times.begin(), times.end());
    std::printf("sizes bytes=%lld partial=%d median_ms=%.2f best_ms=%.2f\n",
                static_cast<long long>(size.bytes), int(size.partial), times[times.size() / 2],
                times.front());
    return 0;
}

int makeTree(const fs::path &root, long entries, bool sized)
{
    char name[64];
    long made = 0;
    for (long folder = 0; made < entries; ++folder) {
        std::snprintf(name, sizeof name, "d%ld/e%ld", folder / 100, folder % 100);
        const fs::path dir = root / name;
        fs::create_directories(dir);
        made += folder % 100 == 0 ? 2 : 1;
        for (int file = 0; file < 99 && made < entries; ++file, ++made) {
            std::snprintf(name, sizeof name, "file-%ld-%d.txt", folder, file);
            if (sized && file % 50 == 49) {
                char previous[64];
                std::snprintf(previous, sizeof previous, "file-%ld-%d.txt", folder, file - 1);
                fs::create_hard_link(dir / previous, dir / name);
            } else if (sized) {
                // Sparse: the apparent size is what is counted, and it costs no disk.
                const int fd = ::open((dir / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
                if (fd < 0 || ::ftruncate(fd, (folder * 7919 + file * 104729) % 3'000'000) != 0)
                    throw fs::filesystem_error("cannot make", dir / name,
                                               std::error_code(errno, std::generic_category()));
                ::close(fd);
            } else {
                std::ofstream(dir / name);
            }
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    try {
        if (command == "search" && argc == 5)
            return search(argv[2], argv[3], std::atoi(argv[4]));
        if (command == "contents" && (argc == 5 || argc == 6))
            return contents(argv[2], argv[3], std::atoi(argv[4]), argc == 6 ? argv[5] : "");
        if (command == "compare" && argc == 4)
            return compare(argv[2], argv[3]);
        if (command == "digest" && argc > 2)
            return digest(argc - 2, argv + 2);
        if (command == "sizes" && argc == 4)
            return sizes(argv[2], std::atoi(argv[3]));
        if (command == "make-tree" && argc == 4)
            return makeTree(argv[2], std::atol(argv[3]), false);
        if (command == "make-size-tree" && argc == 4)
            return makeTree(argv[2], std::atol(argv[3]), true);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "directory_tool: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr, "usage: directory_tool search ROOT QUERY RUNS | contents ROOT TEXT RUNS "
                         "[regex|case|list] | compare LEFT RIGHT | digest FILE... | "
                         "sizes ROOT RUNS | make-tree ROOT ENTRIES | make-size-tree ROOT ENTRIES\n");
    return 2;
}
