// A command-line front to the ZIP listing for bench/archive.sh; times are taken
// inside the process, so they hold what the archive sheet waits for (starting
// unzip, reading its output, checking the names) and not this program's start.
//
//   archive_tool list ZIP RUNS      median and best of RUNS listings
//   archive_tool capture ZIP RUNS   the same, only reading unzip -Z1's output
//                                   through the pipe: the least any listing
//                                   that runs unzip can take
#include "services/archivetools.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    using namespace quillorn;
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "list" && mode != "capture") {
        std::fprintf(stderr, "usage: archive_tool list|capture ZIP RUNS\n");
        return 2;
    }
    std::vector<double> times;
    std::size_t members = 0;
    for (int run = 0, runs = std::atoi(argv[3]); run <= runs; ++run) { // the first run only warms the cache
        const auto start = std::chrono::steady_clock::now();
        // Freeing the entries is not part of the listing the sheet waits for.
        if (mode == "list") {
            const std::vector<ZipEntry> entries = ArchiveTools::list(argv[2]);
            const auto end = std::chrono::steady_clock::now();
            members = entries.size();
            if (run > 0)
                times.push_back(std::chrono::duration<double, std::milli>(end - start).count());
            continue;
        }
        const QByteArray output =
            ArchiveTools::command(ArchiveTools::unzip, {"-Z1", argv[2]}, ArchiveTools::listingLimit);
        const auto end = std::chrono::steady_clock::now();
        members = std::size_t(output.count('\n'));
        if (run > 0)
            times.push_back(std::chrono::duration<double, std::milli>(end - start).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("%s members=%zu median_ms=%.2f best_ms=%.2f\n", mode.c_str(), members,
                times[times.size() / 2], times.front());
    return 0;
}
