// How long the archive sheet keeps a key waiting on a 100,000-member ZIP: while
// the listing runs in the background, and while each typed character filters
// all 100,000 paths. Target: every key answered within 50 ms.
//
//   bench_archivesheet [ZIP]   (without ZIP, one is made with python3 in /tmp)
#include "services/transferqueue.h"
#include "tools/archivesheet.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLineEdit>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace quillorn;

namespace {

// One key press and release delivered to the field, with everything it sets off
// on the interface thread before the next event is looked at.
double keyMilliseconds(QWidget *field, Qt::Key key)
{
    const QString text = key == Qt::Key_Backspace ? QString() : QString(QChar(key)).toLower();
    QElapsedTimer timer;
    timer.start();
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(field, &press);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QApplication::sendEvent(field, &release);
    const double milliseconds = double(timer.nsecsElapsed()) / 1e6;
    QApplication::processEvents(); // lets the listing's result arrive between keys
    return milliseconds;
}

void report(const char *what, std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    std::printf("%s: %zu keys, median %.2f ms, worst %.2f ms (target < 50 ms)\n", what, times.size(),
                times[times.size() / 2], times.back());
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication application(argc, argv);
    std::string zip = argc > 1 ? argv[1] : "/tmp/quillorn-bench-100000.zip";
    if (argc <= 1) {
        const std::string make =
            "python3 -c \"import zipfile\nwith zipfile.ZipFile('" + zip +
            "', 'w') as z:\n    for i in range(100000): z.writestr('folder%03d/member-%06d.txt' "
            "% (i // 1000, i), b'')\"";
        if (std::system(make.c_str()) != 0)
            return 1;
    }
    TransferQueue queue;
    ArchiveSheet sheet(zip, "/tmp", queue, [] {});
    sheet.resize(900, 600);
    sheet.show();
    auto *field = sheet.findChild<QLineEdit *>("filterField");

    std::vector<double> whileListing;
    const Qt::Key keys[] = {Qt::Key_A, Qt::Key_Backspace};
    for (int i = 0; sheet.status() == ArchiveSheet::initialStatus; ++i)
        whileListing.push_back(keyMilliseconds(field, keys[i % 2]));
    std::printf("%s\n", qPrintable(sheet.status()));
    if (!whileListing.empty())
        report("while listing", whileListing);

    std::vector<double> filtering;
    for (int round = 0; round < 5; ++round) {
        for (const Qt::Key key :
             {Qt::Key_M, Qt::Key_E, Qt::Key_M, Qt::Key_B, Qt::Key_E, Qt::Key_R, Qt::Key_9})
            filtering.push_back(keyMilliseconds(field, key));
        for (int i = 0; i < 7; ++i)
            filtering.push_back(keyMilliseconds(field, Qt::Key_Backspace));
    }
    report("filtering 100,000 paths", filtering);
    return 0;
}
