// The transfer queue as the program runs it, in a process of its own, so that
// tests can kill it in the middle of a job and start it again:
//   queue_driver move DESTINATION SOURCE...  queues a move and waits for it;
//   queue_driver copy DESTINATION SOURCE...  the same with a copy;
//   queue_driver multirename FOLDER OLD NEW… renames items of FOLDER together;
//   queue_driver mirror LEFT RIGHT           plans a mirror of LEFT to RIGHT (extras
//                                            to the Trash) and queues it;
//   queue_driver resume                      offers what a killed run left, as
//                                            start-up does, and resumes it all.
// Both print one line per change of a job: "STATE title=TITLE state=TEXT".
// The state folder is $XDG_STATE_HOME/Quillorn. CHUNK_DELAY_MS slows each copied
// chunk down so a test can catch the job in the middle of an item. POLICY names
// the conflict policy ("Stop" by default). The process kills itself (SIGKILL)
// right after a rename that gives an item the name KILL_AFTER_RENAME_TO, or right
// before its first move of an item to the Trash with KILL_AT_TRASH=1.
#include "operations/fileoperations.h"
#include "operations/stagingjournal.h"
#include "services/jobjournal.h"
#include "services/syncplan.h"
#include "services/transferqueue.h"

#include <QCoreApplication>
#include <QTimer>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>

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
    if (const char *name = std::getenv("KILL_AFTER_RENAME_TO")) {
        manager.rename = [rename = manager.rename,
                          name = std::string(name)](const Folder &from, const std::string &fromName,
                                                    const Folder &to, const std::string &toName) {
            rename(from, fromName, to, toName);
            if (toName == name)
                ::kill(::getpid(), SIGKILL);
        };
        // A lone file is published by naming a file written with no name.
        manager.name = [give = manager.name, name = std::string(name)](int descriptor, const Folder &to,
                                                                       const std::string &toName) {
            give(descriptor, to, toName);
            if (toName == name)
                ::kill(::getpid(), SIGKILL);
        };
    }
    FileOperations::TrashService trash = FileOperations::defaultTrash();
    if (std::getenv("KILL_AT_TRASH"))
        trash = [trash](const std::filesystem::path &item) {
            ::kill(::getpid(), SIGKILL);
            return trash(item);
        };
    return FileOperations(trash, FileOperations::defaultRemove(), FileOperations::defaultVolumeIsLocal(),
                          manager);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    const bool transfer = arguments.size() > 1 && (arguments[1] == "move" || arguments[1] == "copy");
    const bool renames = arguments.size() > 1 && arguments[1] == "multirename";
    const bool mirror = arguments.size() == 4 && arguments[1] == "mirror";
    if (arguments.size() < 2 || (transfer && arguments.size() < 4) ||
        (renames && arguments.size() % 2 != 1)) {
        std::fprintf(stderr, "usage: queue_driver move|copy DESTINATION SOURCE... | multirename FOLDER OLD "
                             "NEW... | resume\n");
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
    if (transfer) {
        std::vector<std::filesystem::path> sources;
        for (int index = 3; index < argc; ++index)
            sources.emplace_back(argv[index]);
        const bool move = arguments[1] == "move";
        const char *policy = std::getenv("POLICY");
        queue.enqueue(
            move ? "Move" : "Copy",
            TransferJob{sources, argv[2], move,
                        conflictPolicyFromRawValue(policy ? policy : "Stop").value_or(ConflictPolicy::stop)});
    } else if (mirror) {
        OperationControl control;
        const SyncPlan plan =
            SyncPlan::make(argv[2], argv[3],
                           {SyncOptions::Direction::leftToRight, SyncOptions::OneSideOnly::trash,
                            SyncOptions::Comparison::sizeAndTime},
                           nullptr, control);
        queue.enqueue("Synchronize", plan.job());
    } else if (renames) {
        MultiRenameJob job{argv[2], {}};
        for (int index = 3; index + 1 < argc; index += 2)
            job.names.emplace_back(argv[index], argv[index + 1]);
        queue.enqueue("Multi-rename", job);
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
