// A command-line front to the ZIP listing for bench/archive.sh; times are taken
// inside the process, so they hold what the archive sheet waits for (starting
// unzip, reading its output, checking the names) and not this program's start.
//
//   archive_tool list ZIP RUNS    median and best of RUNS listings
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
    if (argc != 4 || std::string(argv[1]) != "list") {
        std::fprintf(stderr, "usage: archive_tool list ZIP RUNS\n");
        return 2;
    }
    std::vector<double> times;
    std::size_t members = 0;
    for (int run = 0, runs = std::atoi(argv[3]); run <= runs; ++run) { // the first run only warms the cache
        const auto start = std::chrono::steady_clock::now();
        members = ArchiveTools::list(argv[2]).size();
        if (run > 0)
            times.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("list members=%zu median_ms=%.2f best_ms=%.2f\n", members, times[times.size() / 2],
                times.front());
    return 0;
}
