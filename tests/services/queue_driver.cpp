// The transfer queue as the program runs it, in a process of its own, so that
// tests can kill it in the middle of a job and start it again:
//   queue_driver move DESTINATION SOURCE...  queues a move and waits for it;
//   queue_driver resume                      offers what a killed run left, as
//                                            start-up does, and resumes it all.
// Both print one line per change of a job: "STATE title=TITLE state=TEXT".
// The state folder is $XDG_STATE_HOME/Quillorn. CHUNK_DELAY_MS slows each copied
// chunk down so a test can catch the job in the middle of an item.
#include "operations/fileoperations.h"
#include "operations/stagingjournal.h"
#include "services/jobjournal.h"
#include "services/transferqueue.h"

#include <QCoreApplication>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace quillorn;

namespace {

FileOperations slowed(int delayMs)
{
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    manager.copyChunk = [copy = manager.copyChunk, delayMs](int input, int output, std::size_t limit,
                                                            const auto &source, const auto &target) {
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        return copy(input, output, limit, source, target);
    };
    return FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                          FileOperations::defaultVolumeIsLocal(), manager);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2 || (arguments[1] == "move" && arguments.size() < 4)) {
        std::fprintf(stderr, "usage: queue_driver move DESTINATION SOURCE... | resume\n");
        return 2;
    }
    TransferQueue queue(nullptr, 20);
    const char *delay = std::getenv("CHUNK_DELAY_MS");
    queue.setRunner(JobRunner(slowed(delay ? std::atoi(delay) : 0)));
    queue.setJournal(JobJournal::open());
    QObject::connect(&queue, &TransferQueue::itemsChanged, [&] {
        for (const QueueItem &item : queue.items())
            std::printf("STATE title=%s state=%s\n", qPrintable(item.title), qPrintable(item.stateText()));
        std::fflush(stdout);
        const bool interrupted =
            std::any_of(queue.items().begin(), queue.items().end(),
                        [](const QueueItem &item) { return item.state == JobState::interrupted; });
        if (arguments[1] == "resume" && interrupted) {
            // Resumed from the event loop: the change being reported is not over yet.
            QTimer::singleShot(0, &queue, [&queue] {
                for (const QueueItem &item : queue.items())
                    if (item.state == JobState::interrupted)
                        queue.resume(item.id);
            });
        }
        if (!queue.hasWork() && !interrupted && !queue.items().empty())
            QTimer::singleShot(0, &application, &QCoreApplication::quit);
    });
    if (arguments[1] == "move") {
        std::vector<std::filesystem::path> sources;
        for (int index = 3; index < argc; ++index)
            sources.emplace_back(argv[index]);
        queue.enqueue("Move", TransferJob{sources, argv[2], true, ConflictPolicy::stop});
    } else {
        queue.recoverInterrupted([] { StagingJournal::shared().recover(); });
        // Nothing to resume ends the run after a moment.
        QTimer::singleShot(5000, &application, [&] {
            if (queue.items().empty())
                QCoreApplication::quit();
        });
    }
    return application.exec();
}
