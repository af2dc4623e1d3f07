// Listing, ordering and memory of a pane on a folder of 100,000 files, against
// a bare readdir + fstatat loop over the same folder in the same run.
//   build/h3-bench/bench/bench_pane [--benchmark_filter=...]
// The folder is made once under /tmp (QUILLORN_BENCH_FOLDER overrides it).
#include "benchfolder.h"
#include "model/panemodel.h"
#include "platform/core/preferences.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

using bench::benchRoot;
using bench::bigFolder;
using bench::fileCount;

const fs::path &emptyFolder()
{
    static const fs::path folder = [] {
        const fs::path path = benchRoot() / "empty";
        fs::create_directories(path);
        return path;
    }();
    return folder;
}

Preferences &benchPreferences()
{
    static Preferences preferences(QString::fromStdString((benchRoot() / "bench.conf").string()));
    return preferences;
}

std::unique_ptr<PaneModel> makePane(const fs::path &folder)
{
    PaneModelOptions options;
    options.preferences = &benchPreferences();
    options.metadataIntervalMs = 3'600'000;
    options.applicationIsActive = [] { return true; };
    return std::make_unique<PaneModel>(folder, QString(), std::move(options));
}

// Runs the event loop until the pane has applied a listing and nothing is in flight.
void waitForListing(PaneModel &pane)
{
    QEventLoop loop;
    QObject::connect(&pane, &PaneModel::listingApplied, &loop, [&] {
        if (!pane.loading())
            loop.quit();
    });
    if (pane.loading())
        loop.exec();
}

void settle(PaneModel &pane)
{
    // The watcher's first call reloads once more when it starts.
    while (pane.loading() || !pane.isWatching()) {
        waitForListing(pane);
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

double bareListingMs()
{
    QElapsedTimer clock;
    clock.start();
    const int fd = ::open(bigFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *dir = ::fdopendir(fd);
    struct stat st;
    std::int64_t total = 0;
    while (const dirent *item = ::readdir(dir)) {
        if (item->d_name[0] == '.')
            continue;
        if (::fstatat(fd, item->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0)
            total += st.st_size;
    }
    ::closedir(dir);
    benchmark::DoNotOptimize(total);
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

void BM_BareReaddirFstatat(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(bareListingMs());
}

// The median of per-iteration ratios: load from other processes comes and goes
// within a run, so each pane listing is paired with a bare loop right after it.
double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// refresh() of a pane already showing the folder: list, compare, keep.
void BM_PaneRefresh(benchmark::State &state)
{
    auto pane = makePane(bigFolder());
    settle(*pane);
    std::vector<double> ratios;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        pane->refresh();
        waitForListing(*pane);
        const double paneMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        state.PauseTiming();
        ratios.push_back(paneMs / bareListingMs());
        state.ResumeTiming();
    }
    state.counters["ratio_to_bare"] = median(ratios);
}

// A new pane on the folder until its first listing is applied, entries and all.
void BM_PaneFirstListing(benchmark::State &state)
{
    std::vector<double> ratios;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        auto pane = makePane(bigFolder());
        waitForListing(*pane);
        const double paneMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        state.PauseTiming();
        if (pane->entries().size() != fileCount + 50)
            state.SkipWithError("incomplete listing");
        pane.reset();
        ratios.push_back(paneMs / bareListingMs());
        state.ResumeTiming();
    }
    state.counters["ratio_to_bare"] = median(ratios);
}

// Recomputing visible(): a filter and name order, then other orders.
void BM_VisibleRecompute(benchmark::State &state)
{
    auto pane = makePane(bigFolder());
    settle(*pane);
    const auto sort = static_cast<FileSort>(state.range(0));
    const bool ascending = state.range(1) != 0;
    pane->setSort(sort);
    pane->setAscending(ascending);
    bool flip = false;
    std::size_t kept = 0;
    for (auto _ : state) {
        pane->setFilter(flip ? QStringLiteral("o") : QStringLiteral("O")); // same matches, new text
        flip = !flip;
        kept = static_cast<std::size_t>(pane->visibleCount());
    }
    state.counters["visible"] = static_cast<double>(kept);
}

// The same, plus building visible() as a vector of entries (what a view pays
// when it asks for the whole list instead of visibleAt()).
void BM_VisibleRecomputeAndCopy(benchmark::State &state)
{
    auto pane = makePane(bigFolder());
    settle(*pane);
    bool flip = false;
    for (auto _ : state) {
        pane->setFilter(flip ? QStringLiteral("o") : QStringLiteral("O"));
        flip = !flip;
        benchmark::DoNotOptimize(pane->visible().data());
    }
}

// The longest gap of a 10 ms timer on the interface thread while the folder
// lists into a new pane and while a pane refreshes it.
void BM_InterfaceGapWhileListing(benchmark::State &state)
{
    double worstMs = 0;
    auto steady = makePane(bigFolder());
    settle(*steady);
    for (auto _ : state) {
        for (int round = 0; round < 2; ++round) {
            QElapsedTimer sinceTick;
            double longest = 0;
            QTimer ticker;
            ticker.setInterval(10);
            QObject::connect(&ticker, &QTimer::timeout, [&] {
                longest = std::max(longest, static_cast<double>(sinceTick.nsecsElapsed()) / 1e6);
                sinceTick.restart();
            });
            std::unique_ptr<PaneModel> fresh;
            sinceTick.start();
            ticker.start();
            if (round == 0) {
                fresh = makePane(bigFolder());
                waitForListing(*fresh);
            } else {
                steady->refresh();
                waitForListing(*steady);
            }
            longest = std::max(longest, static_cast<double>(sinceTick.nsecsElapsed()) / 1e6);
            worstMs = std::max(worstMs, longest);
        }
    }
    state.counters["longest_gap_ms"] = worstMs;
}

// Bytes in use in every malloc arena (mallinfo2 sees only the main arena, and
// listings allocate on worker threads): from malloc_info's closing totals.
double heapInUse()
{
    char *text = nullptr;
    size_t length = 0;
    FILE *stream = ::open_memstream(&text, &length);
    ::malloc_info(0, stream);
    std::fclose(stream);
    const std::string xml(text, length);
    std::free(text);
    const std::string totals = xml.substr(xml.rfind("</heap>"));
    const auto field = [&](const std::string &tag) {
        const auto at = totals.find(tag);
        if (at == std::string::npos)
            return 0.0;
        const auto size = totals.find("size=\"", at) + 6;
        return std::strtod(totals.c_str() + size, nullptr);
    };
    return field("<system type=\"current\"") - field("<total type=\"fast\"") - field("<total type=\"rest\"") +
           field("<total type=\"mmap\"");
}

long residentBytes()
{
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

// What a pane holding the folder costs over an empty pane.
void BM_PaneMemory(benchmark::State &state)
{
    double heapMiB = 0, rssMiB = 0, floorMiB = 0;
    for (auto _ : state) {
        auto empty = makePane(emptyFolder());
        settle(*empty);
        ::malloc_trim(0);
        const double heapBefore = heapInUse();
        const long rssBefore = residentBytes();
        auto full = makePane(bigFolder());
        settle(*full);
        ::malloc_trim(0);
        heapMiB = (heapInUse() - heapBefore) / (1 << 20);
        rssMiB = static_cast<double>(residentBytes() - rssBefore) / (1 << 20);
        // For comparison: one plain copy of the entries, the least any pane can hold.
        const double copyBefore = heapInUse();
        const std::vector<FileEntry> copy = full->entries();
        floorMiB = (heapInUse() - copyBefore) / (1 << 20);
    }
    state.counters["heap_MiB"] = heapMiB;
    state.counters["rss_MiB"] = rssMiB;
    state.counters["entries_copy_MiB"] = floorMiB;
}

} // namespace

BENCHMARK(BM_PaneMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_BareReaddirFstatat)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PaneRefresh)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PaneFirstListing)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_VisibleRecompute)
    ->ArgNames({"sort", "ascending"})
    ->Args({static_cast<int>(FileSort::name), 1})
    ->Args({static_cast<int>(FileSort::name), 0})
    ->Args({static_cast<int>(FileSort::size), 1})
    ->Args({static_cast<int>(FileSort::modified), 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_VisibleRecomputeAndCopy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_InterfaceGapWhileListing)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    bigFolder();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
