// The editor sheet over every shape of text it takes, 8,388,608 bytes each
// (the most a file may hold): one line; lines of 64 bytes; 138,000 lines; one
// line of 2 MiB among short ones; CR LF lines; a mix of scripts and emoji; and
// C source, which is highlighted. For each, driving the real main window:
//   open    F4 to a text the user can edit and its first frame, worst of 5;
//   keys    a typed key with all it sets off (title, byte count, highlighting,
//           repaint) at the start, the middle and the end, worst of 16 each;
//   scroll  the view taken from top to bottom in 240 frames, the slowest frame.
// Targets: 300 ms, 16 ms and 50 ms. The reference, in the same run, is plain
// QPlainTextEdit given the same text, with fewer samples (2 keys at each place,
// 12 frames): on a line of megabytes each takes seconds.
//   build/<dir>/bench/bench_editor [--benchmark_filter=...]
#include "app/commanderview.h"
#include "model/commandermodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"
#include "tools/detail/editorview.h"
#include "tools/editorsheet.h"
#include "tools/toolhost.h"

#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTest>
#include <QTextCursor>
#include <QTextDocument>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace quillorn;
using quillorn::test::TestTree;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t fileBytes = 0x800000;

// Words to fill lines with, ASCII or not.
const char *const asciiWords[] = {"return", "value",  "the",  "of",    "index", "report", "draft",
                                  "notes",  "backup", "item", "count", "list",  "photo",  "a"};
const char *const mixedWords[] = {"na\xc3\xafve",
                                  "\xce\x95\xce\xbb\xce\xbb\xce\xb7\xce\xbd\xce\xb9\xce\xba\xce\xac",
                                  "\xd1\x80\xd1\x83\xd1\x81\xd1\x81\xd0\xba\xd0\xb8\xd0\xb9",
                                  "\xe4\xb8\xad\xe6\x96\x87",
                                  "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e",
                                  "\xd8\xa7\xd9\x84\xd8\xb9\xd8\xb1\xd8\xa8\xd9\x8a\xd8\xa9",
                                  "\xf0\x9f\x98\x80",
                                  "\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x92\xbb",
                                  "\xf0\x9f\x87\xab\xf0\x9f\x87\xb7",
                                  "e\xcc\x81t\xc3\xa9",
                                  "text"};

struct Words {
    const char *const *list;
    std::size_t count;
    std::size_t seed = 1;
    std::string next()
    {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        return list[(seed >> 33) % count];
    }
};

// Lines of `width` bytes with their break, of words cut at a character,
// until the text holds exactly fileBytes; the last line is filled with x.
std::string lines(std::size_t width, const std::string &end, Words words)
{
    std::string text;
    text.reserve(fileBytes);
    while (text.size() + 2 * width < fileBytes) {
        std::string line;
        while (line.size() + end.size() < width)
            line += words.next() + " ";
        std::size_t cut = width - end.size();
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xc0) == 0x80)
            --cut;
        line.resize(cut);
        text += line + end;
    }
    text.append(fileBytes - text.size() - end.size(), 'x');
    return text + end;
}

std::string oneLine()
{
    // Minified JavaScript, as a search index shipped with documentation looks.
    std::string text;
    text.reserve(fileBytes);
    for (std::size_t i = 0; text.size() < fileBytes; ++i)
        text += "{\"t\":\"" + std::string(asciiWords[i % 14]) +
                "\",\"i\":" + std::to_string(i * 7919 % 100000) + ",\"p\":[" + std::to_string(i % 97) + "]},";
    text.resize(fileBytes);
    return text;
}

std::string exactLineCount(std::size_t count)
{
    // 138,000 lines: some of 61 bytes, the rest of 60, which fills the text exactly.
    const std::size_t longer = fileBytes - count * 60;
    std::string text;
    text.reserve(fileBytes);
    Words words{asciiWords, 14};
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t width = i < longer ? 60 : 59;
        std::string line;
        while (line.size() < width)
            line += words.next() + " ";
        line.resize(width);
        text += line + "\n";
    }
    return text;
}

std::string longLineAmongShort()
{
    // Placed so that the middle of the text is the middle of the long line.
    std::string text = lines(64, "\n", {asciiWords, 14});
    const std::string line = oneLine().substr(0, 2 * 1024 * 1024);
    const std::size_t start = text.find('\n', fileBytes / 2 - line.size() / 2) + 1;
    text.replace(start, line.size() + 1, line + "\n");
    return text;
}

std::string mixedScripts()
{
    return lines(96, "\n", {mixedWords, std::size(mixedWords)});
}

std::string cSource()
{
    std::string text;
    text.reserve(fileBytes + 200);
    for (std::size_t i = 0; text.size() < fileBytes; ++i) {
        switch (i % 6) {
        case 0:
            text += "/* Block " + std::to_string(i) + ": what the next lines do,\n   over two lines. */\n";
            break;
        case 1:
            text += "static int value_" + std::to_string(i) + "(const char *name, int count)\n{\n";
            break;
        case 2:
            text += "    return count > 0x1F ? strlen(name) + " + std::to_string(i) + " : -1; // short\n";
            break;
        case 3:
            text += "    const char *s = \"a string with \\\"quotes\\\"\";\n";
            break;
        case 4:
            text += "#define LIMIT_" + std::to_string(i) + " 42\n";
            break;
        default:
            text += "}\n";
        }
    }
    text.resize(fileBytes - 1);
    text += '\n';
    return text;
}

struct Shape {
    std::string name;
    std::string file;
    std::function<std::string()> make;
};

const std::vector<Shape> &shapes()
{
    static const std::vector<Shape> all{
        {"one line", "search-index.js", oneLine},
        {"lines of 64 bytes", "lines64.txt",
         [] {
             return lines(64, "\n", {asciiWords, 14});
         }},
        {"138,000 lines", "lines138k.txt", [] { return exactLineCount(138'000); }},
        {"a 2 MiB line among short ones", "long-among-short.txt", longLineAmongShort},
        {"CR LF lines", "crlf.txt",
         [] {
             return lines(64, "\r\n", {asciiWords, 14});
         }},
        {"scripts and emoji", "scripts.txt", mixedScripts},
        {"C source, highlighted", "big.c", cSource},
    };
    return all;
}

// Every figure of the run, printed again as one table at its end.
std::map<std::string, std::map<std::string, double>> &figures()
{
    static std::map<std::string, std::map<std::string, double>> all;
    return all;
}

double worst(const std::vector<double> &times)
{
    return *std::max_element(times.begin(), times.end());
}

double milliseconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

// The main window over a folder holding one file of each shape.
struct Window {
    Window()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((home / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((home / "config").string()));
        for (const Shape &shape : shapes()) {
            const std::string bytes = shape.make();
            if (bytes.size() != fileBytes)
                std::abort();
            tree.file("Left/" + shape.file, bytes);
            const QString text = QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
            texts[shape.name] = text;
        }
        tree.folder("Right");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((tree / "Right").string()));
        CommanderModelOptions options;
        options.panes.preferences = &preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        view = std::make_unique<CommanderView>(std::move(options));
        view->resize(1200, 800);
        view->show();
        QApplication::setActiveWindow(view.get());
        if (!QTest::qWaitForWindowActive(view.get()))
            std::abort();
        PaneModel &left = view->model().left();
        if (!QTest::qWaitFor([&] { return !left.loading() && left.visible().size() == shapes().size(); }))
            std::abort();
    }

    EditorSheet *editor() const
    {
        QDialog *sheet = view->toolHost()->sheet();
        return sheet ? sheet->findChild<EditorSheet *>() : nullptr;
    }
    detail::EditorView *textView() const
    {
        return editor() ? editor()->findChild<detail::EditorView *>("textEditor") : nullptr;
    }

    bool editable() const
    {
        detail::EditorView *text = textView();
        return text && text->isEnabled() && !text->isReadOnly() &&
               editor()->status() != EditorSheet::loadingStatus;
    }

    // F4 on the shape's file, the event loop driven until the text takes
    // keys, and its first frame drawn: the milliseconds from the key.
    double open(const Shape &shape)
    {
        // A reference widget shown before may have taken the activation; F4 goes to the active window.
        QApplication::setActiveWindow(view.get());
        if (!QTest::qWaitForWindowActive(view.get()))
            std::abort();
        view->model().left().setCursor(tree / "Left" / shape.file);
        view->centralWidget()->setFocus();
        QElapsedTimer timer;
        timer.start();
        QTest::keyClick(view->centralWidget(), Qt::Key_F4);
        while (!editable()) {
            if (timer.elapsed() > 60'000 ||
                (editor() && editor()->status() != EditorSheet::loadingStatus && !textView()->isEnabled())) {
                std::fprintf(stderr, "the editor did not open %s: %s\n", shape.file.c_str(),
                             editor() ? qPrintable(editor()->status()) : "no sheet");
                std::abort();
            }
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        textView()->viewport()->repaint();
        const double taken = milliseconds(timer);
        if (editor()->text() != texts[shape.name]) {
            std::fprintf(stderr, "%s: the editor does not hold the file's text\n", shape.file.c_str());
            std::abort();
        }
        return taken;
    }

    void close()
    {
        QTest::keyClick(textView(), Qt::Key_Escape);
        if (!QTest::qWaitFor([&] {
                return !view->toolHost()->sheet() && QApplication::activeWindow() == view.get() &&
                       !QApplication::activeModalWidget();
            }))
            std::abort();
    }

    TestTree home;
    TestTree tree;
    std::map<std::string, QString> texts;
    Preferences preferences{QString::fromStdString((home / "prefs.ini").string())};
    std::unique_ptr<CommanderView> view;
};

std::unique_ptr<Window> &windowInstance()
{
    static std::unique_ptr<Window> instance;
    return instance;
}

Window &window()
{
    if (!windowInstance())
        windowInstance() = std::make_unique<Window>();
    return *windowInstance();
}

void record(benchmark::State &state, const std::string &shape, const std::string &what,
            const std::vector<double> &times, double target)
{
    const double slowest = worst(times);
    std::vector<double> sorted = times;
    std::sort(sorted.begin(), sorted.end());
    const double median = sorted[sorted.size() / 2];
    state.counters["worst_ms"] = slowest;
    state.counters["median_ms"] = median;
    figures()[shape][what] = slowest;
    std::fprintf(stderr, "%-30s %-28s worst %8.2f ms, median %7.2f ms of %zu", shape.c_str(), what.c_str(),
                 slowest, median, times.size());
    if (target > 0)
        std::fprintf(stderr, " (target %.0f ms): %s\n", target, slowest <= target ? "met" : "MISSED");
    else
        std::fprintf(stderr, " (reference)\n");
}

// Eight letters typed and taken back by eight Backspaces at one place; every
// key must reach the text, and the text ends as the file's.
std::vector<double> typeAt(QWidget *target, const std::function<void()> &place,
                           const std::function<bool()> &clean, int keys)
{
    static const Qt::Key letters[] = {Qt::Key_Q, Qt::Key_U, Qt::Key_I, Qt::Key_L,
                                      Qt::Key_L, Qt::Key_O, Qt::Key_R, Qt::Key_N};
    place();
    target->setFocus();
    QCoreApplication::processEvents();
    std::vector<double> times;
    for (int i = 0; i < keys; ++i) {
        const Qt::Key key = i < keys / 2 ? letters[i % 8] : Qt::Key_Backspace;
        QElapsedTimer timer;
        timer.start();
        QTest::keyClick(target, key);
        QCoreApplication::processEvents();
        times.push_back(milliseconds(timer));
    }
    if (!clean())
        std::fprintf(stderr, "the typed keys did not come back to the file's text\n");
    return times;
}

// The view taken from the top to the bottom in `steps` frames: a row at a
// time for the first sixth, then in strides down to the last row.
std::vector<double> scrollThrough(QAbstractScrollArea *area, int steps)
{
    QScrollBar *bar = area->verticalScrollBar();
    bar->setValue(0);
    QCoreApplication::processEvents();
    std::vector<double> frames;
    const int single = steps / 6;
    for (int i = 1; i <= steps; ++i) {
        const int value = i <= single ? i : int(qint64(bar->maximum()) * (i - single) / (steps - single));
        QElapsedTimer timer;
        timer.start();
        bar->setValue(value);
        area->viewport()->repaint();
        QCoreApplication::processEvents();
        frames.push_back(milliseconds(timer));
    }
    return frames;
}

void openEditor(benchmark::State &state, const Shape &shape)
{
    Window &w = window();
    std::vector<double> times;
    for (auto _ : state) {
        const double taken = w.open(shape);
        state.SetIterationTime(taken / 1e3);
        times.push_back(taken);
        state.PauseTiming();
        w.close();
        state.ResumeTiming();
    }
    record(state, shape.name, "open", times, 300);
}

void editorKeysAndScroll(benchmark::State &state, const Shape &shape)
{
    Window &w = window();
    for (auto _ : state) {
        w.open(shape);
        detail::EditorView *text = w.textView();
        EditorSheet *sheet = w.editor();
        const auto clean = [sheet] { return !sheet->dirty(); };
        const std::pair<const char *, std::function<detail::TextPosition()>> places[] = {
            {"key at start", [] { return detail::TextPosition{}; }},
            {"key in middle", [text] { return text->buffer().position(text->buffer().length() / 2); }},
            {"key at end", [text] { return text->buffer().end(); }},
        };
        for (const auto &[what, where] : places) {
            const auto times = typeAt(
                text, [&] { text->setCursorPosition(where()); }, clean, 16);
            record(state, shape.name, what, times, 16);
        }
        record(state, shape.name, "scroll frame", scrollThrough(text, 240), 50);
        w.close();
    }
}

// The same text in a plain QPlainTextEdit as the editor had it before: no wrap, the fixed font.
void plainReference(benchmark::State &state, const Shape &shape)
{
    Window &w = window();
    for (auto _ : state) {
        QPlainTextEdit plain;
        plain.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        plain.setLineWrapMode(QPlainTextEdit::NoWrap);
        plain.resize(1000, 500);
        plain.show();
        QCoreApplication::processEvents();
        const QString text = QString(w.texts[shape.name]).remove(QLatin1Char('\r'));
        QElapsedTimer timer;
        timer.start();
        plain.document()->setPlainText(text);
        plain.viewport()->repaint();
        record(state, shape.name, "QPlainTextEdit open", {milliseconds(timer)}, 0);
        const auto clean = [&plain] { return plain.document()->characterCount() > 0; };
        const std::pair<const char *, double> places[] = {{"QPlainTextEdit key at start", 0.0},
                                                          {"QPlainTextEdit key in middle", 0.5},
                                                          {"QPlainTextEdit key at end", 1.0}};
        for (const auto &[what, where] : places) {
            const auto place = [&plain, where = where] {
                QTextCursor cursor(plain.document());
                cursor.setPosition(int((plain.document()->characterCount() - 1) * where));
                plain.setTextCursor(cursor);
            };
            record(state, shape.name, what, typeAt(&plain, place, clean, 2), 0);
        }
        // Where a frame takes seconds, a few make the point.
        record(state, shape.name, "QPlainTextEdit scroll frame", scrollThrough(&plain, 12), 0);
    }
}

void printTable()
{
    const char *const columns[] = {"open",
                                   "key at start",
                                   "key in middle",
                                   "key at end",
                                   "scroll frame",
                                   "QPlainTextEdit open",
                                   "QPlainTextEdit key at end",
                                   "QPlainTextEdit scroll frame"};
    std::fprintf(stderr, "\nworst, ms        %-30s", "shape");
    for (const char *column : columns)
        std::fprintf(stderr, " | %s", column);
    std::fprintf(stderr, "\n");
    for (const Shape &shape : shapes()) {
        std::fprintf(stderr, "%-47s", shape.name.c_str());
        for (const char *column : columns) {
            const auto &row = figures()[shape.name];
            const auto found = row.find(column);
            std::fprintf(stderr, " | %*.*f", int(std::string(column).size()), found == row.end() ? 0 : 1,
                         found == row.end() ? 0.0 : found->second);
        }
        std::fprintf(stderr, "\n");
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillorn-bench-bus");
    QApplication application(argc, argv);
    for (const Shape &shape : shapes()) {
        benchmark::RegisterBenchmark(("open/" + shape.name).c_str(), openEditor, shape)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(5);
        benchmark::RegisterBenchmark(("keys and scroll/" + shape.name).c_str(), editorKeysAndScroll, shape)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1);
    }
    // The references last: on a long line they take minutes.
    for (const Shape &shape : shapes())
        benchmark::RegisterBenchmark(("QPlainTextEdit/" + shape.name).c_str(), plainReference, shape)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printTable();
    windowInstance().reset();
    return 0;
}
