// Drawing a pane of 100,000 entries: one keystroke in the filter (new visible
// list, model reset, repaint of the listing), clearing the filter, and tagging
// every row, each measured up to the finished synchronous repaint.
//   build/<dir>/bench/bench_filepane [--benchmark_filter=...]
// The folder is made once under /tmp (QUILLORN_BENCH_FOLDER overrides it); it is
// the same folder bench_pane lists.
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "benchfolder.h"
#include "model/panemodel.h"
#include "platform/core/preferences.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QWindow>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <unistd.h>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

using bench::benchRoot;
using bench::bigFolder;
using bench::fileCount;

// One shown pane on the big folder, listed once for all benchmarks.
struct Shown {
    Shown() : preferences(QString::fromStdString((benchRoot() / "bench_filepane.ini").string()))
    {
        PaneModelOptions options;
        options.preferences = &preferences;
        options.metadataIntervalMs = 3'600'000;
        options.applicationIsActive = [] { return false; };
        pane = std::make_unique<PaneModel>(bigFolder(), QString(), options);
        QEventLoop loop;
        QObject::connect(pane.get(), &PaneModel::listingApplied, &loop, &QEventLoop::quit);
        if (pane->loading())
            loop.exec();
        showView();
    }
    // Painting happens only in an exposed window: wait for it, so every
    // repaint below really paints.
    void showView()
    {
        view = std::make_unique<FilePane>(*pane);
        view->resize(640, 900);
        view->show();
        QElapsedTimer waited;
        waited.start();
        while (!(view->windowHandle() && view->windowHandle()->isExposed()) && waited.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        if (!view->windowHandle() || !view->windowHandle()->isExposed())
            std::abort();
        paints = 0;
        view->listView()->viewport()->installEventFilter(&counter);
    }
    void repaintListing() { view->listView()->viewport()->repaint(); }

    // Counts the listing's paint events, to show that the timed repaints paint.
    struct PaintCounter : QObject {
        int *count;
        explicit PaintCounter(int *target) : count(target) {}
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::Paint)
                ++*count;
            return false;
        }
    };

    Preferences preferences;
    std::unique_ptr<PaneModel> pane;
    std::unique_ptr<FilePane> view;
    int paints = 0;
    PaintCounter counter{&paints};
};

// Owned here rather than as a function-local static, so the widgets go before the
// QApplication that main() owns.
std::unique_ptr<Shown> &shownInstance()
{
    static std::unique_ptr<Shown> instance;
    return instance;
}

Shown &shown()
{
    if (!shownInstance())
        shownInstance() = std::make_unique<Shown>();
    return *shownInstance();
}

void timed(benchmark::State &state, const std::function<void()> &step)
{
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        step();
        state.SetIterationTime(static_cast<double>(timer.nsecsElapsed()) / 1e9);
    }
}

void BM_FilterKeystrokeRepaint(benchmark::State &state)
{
    Shown &s = shown();
    bool longer = false;
    timed(state, [&] {
        longer = !longer;
        s.pane->setFilter(longer ? QStringLiteral("Report 1") : QStringLiteral("Report "));
        s.repaintListing();
    });
    state.counters["rows"] = static_cast<double>(s.pane->visible().size());
    state.counters["paints"] = s.paints;
    s.pane->setFilter({});
}
BENCHMARK(BM_FilterKeystrokeRepaint)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// The same keystrokes on a pane nobody draws: what the view adds is the difference.
void BM_FilterKeystrokeModelOnly(benchmark::State &state)
{
    Shown &s = shown();
    s.view->hide();
    s.view.reset();
    bool longer = false;
    timed(state, [&] {
        longer = !longer;
        s.pane->setFilter(longer ? QStringLiteral("Report 1") : QStringLiteral("Report "));
    });
    s.pane->setFilter({});
    s.showView();
}
BENCHMARK(BM_FilterKeystrokeModelOnly)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_ClearFilterRepaint(benchmark::State &state)
{
    Shown &s = shown();
    for (auto _ : state) {
        state.PauseTiming();
        s.pane->setFilter(QStringLiteral("no such name"));
        s.repaintListing();
        state.ResumeTiming();
        QElapsedTimer timer;
        timer.start();
        s.pane->setFilter({});
        s.repaintListing();
        state.SetIterationTime(static_cast<double>(timer.nsecsElapsed()) / 1e9);
    }
    state.counters["rows"] = static_cast<double>(s.pane->visible().size());
}
BENCHMARK(BM_ClearFilterRepaint)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_TagAllRepaint(benchmark::State &state)
{
    Shown &s = shown();
    std::set<fs::path> all;
    for (const FileEntry &entry : s.pane->visible())
        all.insert(entry.url());
    bool tagged = false;
    for (auto _ : state) {
        tagged = !tagged;
        std::set<fs::path> next = tagged ? all : std::set<fs::path>{}; // the caller's copy, not timed
        QElapsedTimer timer;
        timer.start();
        s.pane->setSelection(std::move(next));
        s.repaintListing();
        state.SetIterationTime(static_cast<double>(timer.nsecsElapsed()) / 1e9);
    }
    s.pane->setSelection({});
}
BENCHMARK(BM_TagAllRepaint)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_CursorStepRepaint(benchmark::State &state)
{
    Shown &s = shown();
    s.paints = 0;
    timed(state, [&] {
        s.pane->moveCursor(1);
        s.repaintListing();
    });
    state.counters["paints"] = s.paints;
}
BENCHMARK(BM_CursorStepRepaint)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    shownInstance().reset();
    return 0;
}
