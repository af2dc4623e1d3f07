#include "operations/appdiagnostics.h"
#include "scopedmount.h"
#include "services/jobjournal.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

namespace {

JobJournal::Entry entry(const QString &title, Job job, std::vector<JobRunner::Publication> published = {})
{
    return {QUuid::createUuid(), title, std::move(job), std::move(published)};
}

// A publication as an older journal recorded it: the source alone, confirmed.
JobRunner::Publication confirmedOnly(const fs::path &source)
{
    return {{source, {}, {}, {}, {}}, true};
}

// What the journal folder holds, by name.
QStringList namesIn(const fs::path &folder)
{
    QStringList names;
    if (fs::exists(folder))
        for (const auto &item : fs::directory_iterator(folder))
            names << QString::fromStdString(item.path().filename().string());
    names.sort();
    return names;
}

std::string pattern(std::size_t size, char seed)
{
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        bytes[index] = char(seed + index * 7 % 251);
    return bytes;
}

// Whether an item below the folder has a name beginning with ".quillorn-".
bool stagingBelow(const fs::path &folder)
{
    for (const auto &item : fs::recursive_directory_iterator(folder))
        if (item.path().filename().string().starts_with(".quillorn-"))
            return true;
    return false;
}

// A queue driver run to its end with the test's state and data folders and
// extra environment: whether it was killed, and what it printed.
struct DriverRun {
    bool killed = false;
    int exitCode = -1;
    QString output;
};

DriverRun runDriver(const TestTree &tree, const QStringList &arguments,
                    const QList<std::pair<QString, QString>> &extra = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_STATE_HOME", QString::fromStdString((tree / "state").string()));
    environment.insert("XDG_DATA_HOME", QString::fromStdString((tree / "data").string()));
    environment.insert("ASAN_OPTIONS", "detect_leaks=0");
    for (const auto &[name, value] : extra)
        environment.insert(name, value);
    QProcess driver;
    driver.setProcessEnvironment(environment);
    driver.start(QUILLORN_QUEUE_DRIVER, arguments);
    if (!driver.waitForFinished(60000))
        driver.kill();
    driver.waitForFinished();
    return {driver.exitStatus() == QProcess::CrashExit, driver.exitCode(),
            QString::fromUtf8(driver.readAllStandardOutput())};
}

// A moved folder "proj" on its own tmpfs (so the move copies), killed at the
// moment the extra environment picks; the destination is on the test's disk.
struct InterruptedMove {
    TestTree tree;
    std::optional<ScopedMount> volume;
    fs::path source, dst;

    // Moves the folder proj, or with lone the file report.txt alone.
    bool start(const QList<std::pair<QString, QString>> &kill, bool lone = false)
    {
        volume.emplace("tmpfs", tree.folder("volume"), "size=16m");
        tree.file("volume/src/proj/report.txt", "quarterly figures");
        tree.file("volume/src/proj/sub/notes.txt", "notes");
        source = lone ? tree / "volume/src/proj/report.txt" : tree / "volume/src/proj";
        dst = tree.folder("dst");
        return runDriver(
                   tree,
                   {"move", QString::fromStdString(dst.string()), QString::fromStdString(source.string())},
                   kill)
            .killed;
    }
    DriverRun resume() { return runDriver(tree, {"resume"}); }
    bool sourceTrashed() const { return fs::exists(tree / "volume/.Trash-0/files" / source.filename()); }
    QString log() const
    {
        return QString::fromStdString(TestTree::read(tree / "data/Quillorn/Logs/Quillorn.log"));
    }
};

} // namespace

class JobJournalTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_data.root().string()));
        AppDiagnostics::shared().record("TEST START");
    }

    void everyKindOfJobComesBackByteForByte()
    {
        // Names that are not UTF-8, with spaces, percent signs and line breaks.
        const fs::path odd = "/tmp/a b/%41\n\xff\xfe.txt";
        const std::vector<JobJournal::Entry> entries{
            entry("Copy 2 \u2192 Inbox",
                  TransferJob{{odd, "/x/y"}, "/dst dir", false, ConflictPolicy::keepBoth},
                  {{{odd, "/dst dir/.quillorn-1", "/dst dir/a\n\xff (2).txt", "", "c0ffee"}, true},
                   {{"/x/y", "/dst dir/.quillorn-2", "/dst dir/y", "", "beef"}, false}}),
            entry("Move 1 \u2192 Old", TransferJob{{"/old"}, "/d", true, ConflictPolicy::stop},
                  {confirmedOnly("/old")}),
            entry("Move 1 \u2192 Data", TransferJob{{"/src"}, "/d", true, ConflictPolicy::replace}),
            entry("File operation", RenameJob{odd, "new\nname"}),
            entry("File operation", NewFolderJob{"/f", "New Folder"}),
            entry("File operation", TrashJob{{odd, "/t"}}),
            entry("Multi-rename 2 item(s)",
                  MultiRenameJob{"/f %", {{odd.filename().native(), "new\nname"}, {"b", "a"}}}),
            entry("Extract c.txt", ArchiveExtraction{odd, "a/b c/\u00e9.txt", "/dst",
                                                     std::make_shared<const QByteArray>("bytes")}),
            entry("Undo", UndoJob{UndoJob::Rename{"/f", {{"a", "\xff\n", "5ea1"}, {"c", "d", ""}}}}),
            entry("Undo", UndoJob{UndoJob::NewFolder{odd}}),
            entry("Undo", UndoJob{UndoJob::Trash{{{odd, "/home/Trash/files/a\n\xff.2"}}}}),
            entry("Undo", UndoJob{UndoJob::Transfer{
                              true, {{odd, "/d/x (2)", "c0de", false}, {"/y", "/d/y", "", true}}}}),
            entry("Restore from Trash", RestoreFromTrashJob{{"/T/files/a", odd}, true}),
            entry("Empty Trash", EraseFromTrashJob{{odd, "/T/files/b"}}),
            entry("Synchronize", SyncJob{"/l",
                                         odd,
                                         true,
                                         {{SyncStep::Kind::replace, odd, "/r/x", "5ea1", "", 7, "a\xff"},
                                          {SyncStep::Kind::trash, {}, "/r/y", "", "beef", 0, "y"}},
                                         {"pending \n"}}),
        };
        const std::string text = detail::journalText(entries);
        const auto parsed = detail::parseJournal(text);
        QVERIFY(parsed);
        QCOMPARE(parsed->size(), entries.size());
        for (std::size_t index = 0; index < entries.size(); ++index) {
            QCOMPARE((*parsed)[index].id, entries[index].id);
            QCOMPARE((*parsed)[index].title, entries[index].title);
            QCOMPARE((*parsed)[index].job.index(), entries[index].job.index());
            QVERIFY((*parsed)[index].published == entries[index].published);
        }
        QCOMPARE(detail::journalText(*parsed), text);
        QVERIFY(text.find("\xff") == std::string::npos);
        QVERIFY(text.find("bytes") == std::string::npos); // never file contents
        const auto &copy = std::get<TransferJob>((*parsed)[0].job);
        QVERIFY(copy.sources.front() == odd && copy.policy == ConflictPolicy::keepBoth && !copy.move);
        QCOMPARE(std::get<ArchiveExtraction>((*parsed)[7].job).member, QStringLiteral("a/b c/\u00e9.txt"));
        const auto &renames = std::get<MultiRenameJob>((*parsed)[6].job);
        QVERIFY(renames.folder == "/f %" && renames.names == std::get<MultiRenameJob>(entries[6].job).names);
        const auto &moved = std::get<UndoJob::Transfer>(std::get<UndoJob>((*parsed)[11].job).change);
        QVERIFY(moved.move && moved.items.size() == 2 && !moved.items[0].wholeTree &&
                moved.items[1].wholeTree);
        const auto &restore = std::get<RestoreFromTrashJob>((*parsed)[12].job);
        QVERIFY(restore.keepBoth && restore.items == std::get<RestoreFromTrashJob>(entries[12].job).items);
        QVERIFY(std::get<EraseFromTrashJob>((*parsed)[13].job).items.back() == "/T/files/b");
        QVERIFY(std::get<SyncJob>((*parsed)[14].job) == std::get<SyncJob>(entries[14].job));
    }

    void damagedTextIsRefused_data()
    {
        QTest::addColumn<QByteArray>("text");
        const QByteArray whole = QByteArray::fromStdString(
            detail::journalText({entry("T", TransferJob{{"/a"}, "/d", false, ConflictPolicy::stop})}));
        QTest::newRow("cut off before its end") << whole.left(whole.size() - 4);
        QTest::newRow("another format") << QByteArray("quillorn-jobs 2\nend\n");
        QTest::newRow("unknown kind") << QByteArray(whole).replace("kind transfer", "kind format");
        QTest::newRow("unknown policy") << QByteArray(whole).replace("policy Stop", "policy stop");
        QTest::newRow("bad escape") << QByteArray(whole).replace("source /a", "source /%G1");
        QTest::newRow("no sources") << QByteArray(whole).replace("source /a\n", "");
        const QByteArray undo = QByteArray::fromStdString(
            detail::journalText({entry("Undo", UndoJob{UndoJob::Rename{"/f", {{"a", "b", "5ea1"}}}})}));
        QTest::newRow("an undone name without its seal") << QByteArray(undo).replace("seal 5ea1\n", "");
        QTest::newRow("text after the end") << whole + "job x\n";
        QTest::newRow("binary") << QByteArray("\x00\x01\x02", 3);
        QTest::newRow("a rename without its new name")
            << QByteArray::fromStdString(
                   detail::journalText({entry("M", MultiRenameJob{"/f", {{"a", "b"}}})}))
                   .replace("to b\n", "");
    }
    void damagedTextIsRefused()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!detail::parseJournal(text.toStdString()));
    }

    void onlyJobsOfQuillornsThatAreGoneAreTaken()
    {
        TestTree tree;
        const fs::path folder = tree / "state";
        auto killed = std::make_unique<JobJournal>(folder);
        const JobJournal::Entry left = entry("Copy 1 \u2192 Photos", TransferJob{{"/a"}, "/d", false, {}});
        killed->save({left});
        killed->publishing(left.id, {"/a", "/d/.quillorn-1", "/d/a", "", "5ea1"});
        killed->published(left.id, "/a");
        auto running = std::make_unique<JobJournal>(folder);
        running->save({entry("Copy 1 \u2192 Other", TransferJob{{"/b"}, "/d", false, {}})});
        running->flush();

        // Both owners alive: nobody takes anything.
        JobJournal starting(folder);
        QVERIFY(starting.recover().empty());
        killed.reset(); // its process is gone: its journal stays, its lock is free
        const auto taken = starting.recover();
        QCOMPARE(taken.size(), std::size_t(1));
        QCOMPARE(taken.front().id, left.id);
        const std::vector<JobRunner::Publication> published{
            {{"/a", "/d/.quillorn-1", "/d/a", "", "5ea1"}, true}};
        QVERIFY(taken.front().published == published);
        QVERIFY(starting.publishedBy(left.id) == published);
        QVERIFY(JobJournal(folder).recover().empty()); // taken once, by one owner
        // The living one's files and the new owner's remain; the dead one's are gone.
        QCOMPARE(namesIn(folder).filter(".journal").size(), 2);
        QCOMPARE(namesIn(folder).filter(".lock").size(), 2);
    }

    // Item by item, publications go to a log beside the journal; a Quillorn killed
    // before its next rewrite leaves them there, the last line perhaps cut off.
    void publicationsLoggedSinceTheLastRewriteAreTakenOnce()
    {
        TestTree tree;
        const fs::path folder = tree / "state";
        const JobJournal::Entry job = entry("Move 2 \u2192 d", TransferJob{{"/a", "/b"}, "/d", true, {}});
        const PublishIntent a{"/a", "/d/.quillorn-1", "/d/a", "5eal", "c0py"},
            b{"/b", "/d/.quillorn-2", "/d/b \n\xff", "", ""};
        JobJournal running(folder);
        running.save({job});
        running.flush();
        running.publishing(job.id, a);
        running.published(job.id, "/a");
        running.publishing(job.id, b);
        // What a kill right now would leave, under the name of an owner that is gone.
        const std::string own = namesIn(folder).filter(".journal").front().chopped(8).toStdString();
        fs::copy_file(folder / (own + ".journal"), folder / "jobs-gone.journal");
        const std::string log = TestTree::read(folder / (own + ".publications"));
        QVERIFY(log.find("publishing") != std::string::npos);
        tree.file("state/jobs-gone.publications",
                  log + log + "publishing " + job.id.toString(QUuid::WithoutBraces).toStdString());

        JobJournal starting(folder);
        const auto taken = starting.recover();
        QCOMPARE(taken.size(), std::size_t(1));
        const std::vector<JobRunner::Publication> expected{{a, true}, {b, false}};
        QVERIFY(taken.front().published == expected);
        // The next rewrite takes the log in and empties it.
        running.save({job});
        running.flush();
        QCOMPARE(TestTree::read(folder / (own + ".publications")), std::string());
        QVERIFY(running.publishedBy(job.id) == expected);
    }

    void aDamagedOrUnreadableJournalIsSetAsideAndTheOthersAreTaken()
    {
        TestTree tree;
        const fs::path folder = tree.folder("state");
        tree.file("state/jobs-1-damaged.journal", "quillorn-jobs 1\njob 12\n");
        fs::create_directory(folder / "jobs-2-unreadable.journal"); // opens, but cannot be read
        {
            JobJournal gone(folder);
            gone.save({entry("Copy 1 \u2192 Photos", TransferJob{{"/a"}, "/d", false, {}})});
        }
        JobJournal starting(folder);
        QCOMPARE(starting.recover().size(), std::size_t(1));
        const QStringList names = namesIn(folder);
        QVERIFY2(names.contains("damaged-jobs-1-damaged.journal"), qPrintable(names.join(' ')));
        QVERIFY(names.contains("damaged-jobs-2-unreadable.journal"));
        const QString log = QString::fromStdString(TestTree::read(AppDiagnostics::shared().fileURL()));
        QVERIFY(log.contains("JOB JOURNAL SET ASIDE path=" +
                             QString::fromStdString((folder / "jobs-1-damaged.journal").string())));
        QVERIFY(starting.recover().empty()); // set aside for good, not offered again
    }

    void aQueueOffersInterruptedJobsAndStartsNothingByItself()
    {
        TestTree tree;
        const fs::path folder = tree / "state";
        const fs::path a = tree.file("src/a.txt", "a"), b = tree.file("src/b.txt", "b"),
                       dst = tree.folder("dst");
        const JobJournal::Entry copy =
            entry("Copy 2 \u2192 dst", TransferJob{{a, b}, dst, false, {}}, {confirmedOnly(a)});
        const JobJournal::Entry other = entry("File operation", NewFolderJob{dst, "New Folder"});
        { // a killed run had published a.txt (here: by hand) when it died
            JobJournal killed(folder);
            killed.save({copy, other});
        }
        fs::copy_file(a, dst / "a.txt");
        TransferQueue queue(nullptr, 10);
        queue.setJournal(std::make_shared<JobJournal>(folder));
        bool beforeRan = false;
        queue.recoverInterrupted([&] { beforeRan = true; });
        QTRY_COMPARE(queue.items().size(), std::size_t(2));
        QVERIFY(beforeRan);
        for (const QueueItem &item : queue.items())
            QCOMPARE(item.stateText(), QStringLiteral("Interrupted"));
        QVERIFY(!queue.hasWork()); // quitting now keeps them for the next start
        QTest::qWait(50);
        QVERIFY(!queue.running());
        queue.discard(queue.items()[1].id);
        queue.resume(queue.items()[0].id);
        // Each publication waits for the disk, which other programs may keep busy.
        QTRY_COMPARE_WITH_TIMEOUT(queue.items()[0].stateText(), QStringLiteral("Complete"), 60000);
        // a.txt was not copied again (with Stop it would have failed on the name).
        QCOMPARE(TestTree::read(dst / "b.txt"), std::string("b"));
        QVERIFY(!fs::exists(dst / "New Folder"));
    }

    // Moving three files off a tmpfs, killed in the second: resumed, each file is once at the
    // destination, each source in the Trash, and nothing half-copied is left anywhere.
    void killedInTheMiddleOfAMoveBetweenVolumesResumesWithoutLossOrDuplicates()
    {
        if (!runningAsRoot())
            QSKIP("needs root to mount a tmpfs");
        TestTree tree;
        std::optional<ScopedMount> volume;
        try {
            volume.emplace("tmpfs", tree.folder("volume"), "size=64m");
        } catch (const std::exception &error) {
            QSKIP(qPrintable(QString("this machine refuses the mount: ") + error.what()));
        }
        const std::size_t size = 4 * FileOperations::chunkSize + 5;
        std::vector<fs::path> sources;
        for (const char *name : {"a.bin", "b.bin", "c.bin"})
            sources.push_back(tree.file(fs::path("volume/src") / name, pattern(size, name[0])));
        const fs::path dst = tree.folder("dst");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_STATE_HOME", QString::fromStdString((tree / "state").string()));
        environment.insert("XDG_DATA_HOME", QString::fromStdString((tree / "data").string()));
        environment.insert("CHUNK_DELAY_MS", "60");
        QProcess first, second;
        first.setProcessEnvironment(environment);
        second.setProcessEnvironment(environment);
        QStringList arguments{"move", QString::fromStdString(dst.string())};
        for (const fs::path &source : sources)
            arguments << QString::fromStdString(source.string());
        first.start(QUILLORN_QUEUE_DRIVER, arguments);
        QVERIFY(first.waitForStarted());
        // Each file is copied with no name until it is published: the second is
        // seen only among the driver's open files.
        QTRY_VERIFY_WITH_TIMEOUT(fs::exists(dst / "a.bin") && !unnamedFileIn(dst, first.processId()).empty(),
                                 30000);
        first.kill(); // SIGKILL
        QVERIFY(first.waitForFinished());
        QVERIFY2(!fs::exists(dst / "b.bin"), "not killed in the second item");
        second.start(QUILLORN_QUEUE_DRIVER, {"resume"});
        QVERIFY(second.waitForFinished(60000));
        const QString output = QString::fromUtf8(second.readAllStandardOutput());
        QCOMPARE(second.exitCode(), 0);
        QVERIFY2(output.contains("STATE title=Move state=Interrupted"), qPrintable(output));
        QVERIFY2(output.trimmed().endsWith("STATE title=Move state=Complete"), qPrintable(output));

        QCOMPARE(namesIn(dst), (QStringList{"a.bin", "b.bin", "c.bin"}));
        for (const fs::path &source : sources) {
            QCOMPARE(TestTree::read(dst / source.filename()), pattern(size, source.filename().string()[0]));
            const fs::path trashed = tree / "volume/.Trash-0/files" / source.filename();
            QVERIFY2(fs::exists(source) != fs::exists(trashed), qPrintable(QString::fromStdString(source)));
        }
        QVERIFY(!stagingBelow(tree.root()));
        QVERIFY(namesIn(tree / "state/Quillorn").filter(QRegularExpression("^jobs-.*journal$")).isEmpty());
    }

    // A mirror killed right after its second file was published: resumed, every
    // file is there once, the extra is in the Trash once, and nothing done is
    // taken for an item that changed since the plan.
    void aMirrorKilledInTheMiddleResumesAndEndsComplete()
    {
        TestTree tree;
        const fs::path left = tree.folder("L"), right = tree.folder("R");
        const std::size_t size = 2 * FileOperations::chunkSize + 3;
        for (const char *name : {"a.bin", "b.bin", "c.bin"})
            tree.file(fs::path("L") / name, pattern(size, name[0]));
        tree.file("L/folder/inner.txt", "inner");
        tree.file("R/extra.txt", "extra");
        const QStringList arguments{"mirror", QString::fromStdString(left.string()),
                                    QString::fromStdString(right.string())};
        QVERIFY2(runDriver(tree, arguments, {{"KILL_AFTER_RENAME_TO", "b.bin"}}).killed, "not killed");
        QVERIFY(fs::exists(right / "b.bin") && !fs::exists(right / "c.bin"));

        const DriverRun resumed = runDriver(tree, {"resume"});
        QVERIFY2(resumed.output.contains("STATE title=Synchronize state=Interrupted"),
                 qPrintable(resumed.output));
        QVERIFY2(resumed.output.trimmed().endsWith("STATE title=Synchronize state=Complete"),
                 qPrintable(resumed.output));
        QCOMPARE(namesIn(right), (QStringList{"a.bin", "b.bin", "c.bin", "folder"}));
        for (const char *name : {"a.bin", "b.bin", "c.bin"})
            QCOMPARE(TestTree::read(right / name), pattern(size, name[0]));
        QCOMPARE(TestTree::read(right / "folder/inner.txt"), std::string("inner"));
        QCOMPARE(namesIn(tree / "data/Trash/files"), QStringList{"extra.txt"});
        QVERIFY(!stagingBelow(tree.root()));
    }

    // Killed after the copy was published and recorded, before the source went to
    // the Trash; then the user works on either side before the resume.
    void aResumedMoveRemovesItsSourceOnlyAsItWasVerified_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("reason");
        QTest::newRow("nothing changed") << ""
                                         << "";
        QTest::newRow("a file edited") << "edit"
                                       << "it changed after it was copied";
        QTest::newRow("a file rewritten and its time set back") << "rewrite"
                                                                << "it changed after it was copied";
        QTest::newRow("a file added") << "add"
                                      << "it changed after it was copied";
        QTest::newRow("the copy deleted") << "delete copy"
                                          << "its copy is missing or changed at the destination";
        QTest::newRow("the copy edited") << "edit copy"
                                         << "its copy is missing or changed at the destination";
    }
    void aResumedMoveRemovesItsSourceOnlyAsItWasVerified()
    {
        QFETCH(QString, change);
        QFETCH(QString, reason);
        if (!runningAsRoot())
            QSKIP("needs root to mount a tmpfs");
        InterruptedMove move;
        QVERIFY2(move.start({{"KILL_AT_TRASH", "1"}}), "the driver was not killed");
        QCOMPARE(TestTree::read(move.dst / "proj/report.txt"), std::string("quarterly figures"));
        QVERIFY(fs::exists(move.source / "report.txt"));

        const fs::path report = move.source / "report.txt";
        if (change == "edit") {
            move.tree.file("volume/src/proj/report.txt", "quarterly figures, revised");
        } else if (change == "rewrite") {
            // Same size, same modification time to the nanosecond: only the change time tells.
            struct stat before {};
            QCOMPARE(::lstat(report.c_str(), &before), 0);
            move.tree.file("volume/src/proj/report.txt", "QUARTERLY FIGURES");
            const struct timespec times[2] = {before.st_atim, before.st_mtim};
            QCOMPARE(::utimensat(AT_FDCWD, report.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
        } else if (change == "add") {
            move.tree.file("volume/src/proj/new.txt", "new work");
        } else if (change == "delete copy") {
            fs::remove_all(move.dst / "proj");
        } else if (change == "edit copy") {
            move.tree.file("dst/proj/sub/notes.txt", "notes, edited at the destination");
        }
        const DriverRun resumed = move.resume();
        QCOMPARE(resumed.exitCode, 0);
        if (reason.isEmpty()) {
            QVERIFY2(resumed.output.trimmed().endsWith("STATE title=Move state=Complete"),
                     qPrintable(resumed.output));
            QVERIFY(!fs::exists(move.source));
            QVERIFY(move.sourceTrashed());
            QCOMPARE(TestTree::read(move.dst / "proj/report.txt"), std::string("quarterly figures"));
            return;
        }
        QVERIFY2(
            resumed.output.trimmed().endsWith("STATE title=Move state=Complete \u2014 \u2018proj\u2019 was "
                                              "left where it was: " +
                                              reason + "."),
            qPrintable(resumed.output));
        QVERIFY(fs::exists(report));
        QVERIFY(!move.sourceTrashed());
        QVERIFY2(move.log().contains(
                     "TRANSFER SOURCE KEPT source=" + QString::fromStdString(move.source.string()) +
                     " target=" + QString::fromStdString((move.dst / "proj").string()) + " reason=" + reason),
                 qPrintable(move.log()));
        if (change == "edit")
            QCOMPARE(TestTree::read(report), std::string("quarterly figures, revised"));
    }

    // Killed right after the publishing rename, before the job recorded it: the
    // resumed job knows the item under the final name as its own copy.
    // A folder is published by a rename of its staging item, a lone file by
    // naming a file written with no name.
    void aMoveKilledRightAfterItsPublishIsNotCopiedAgain_data()
    {
        QTest::addColumn<QString>("policy");
        QTest::addColumn<QString>("item");
        for (const char *item : {"proj", "report.txt"})
            for (const char *policy : {"Keep both", "Skip", "Stop"})
                QTest::newRow((std::string(item) + ", " + policy).c_str()) << policy << item;
    }
    void aMoveKilledRightAfterItsPublishIsNotCopiedAgain()
    {
        QFETCH(QString, policy);
        QFETCH(QString, item);
        if (!runningAsRoot())
            QSKIP("needs root to mount a tmpfs");
        InterruptedMove move;
        QVERIFY2(move.start({{"KILL_AFTER_RENAME_TO", item}, {"POLICY", policy}}, item == "report.txt"),
                 "the driver was not killed");
        QVERIFY(fs::exists(move.dst / item.toStdString()) && fs::exists(move.source));
        const DriverRun resumed = move.resume();
        QCOMPARE(resumed.exitCode, 0);
        QVERIFY2(resumed.output.trimmed().endsWith("STATE title=Move state=Complete"),
                 qPrintable(resumed.output));
        QCOMPARE(namesIn(move.dst), QStringList{item});
        QCOMPARE(TestTree::read(move.dst / "proj/report.txt") + TestTree::read(move.dst / "report.txt"),
                 std::string("quarterly figures"));
        QVERIFY(!fs::exists(move.source));
        QVERIFY(move.sourceTrashed());
        QVERIFY(!stagingBelow(move.tree.root()));
    }

    // The same for a move within one volume: the rename is the whole move.
    void aRenameKilledRightAfterItIsDoneIsNotMissed()
    {
        TestTree tree;
        tree.file("src/proj/report.txt", "figures");
        const fs::path dst = tree.folder("dst");
        QVERIFY(runDriver(tree,
                          {"move", QString::fromStdString(dst.string()),
                           QString::fromStdString((tree / "src/proj").string())},
                          {{"KILL_AFTER_RENAME_TO", "proj"}})
                    .killed);
        QVERIFY(fs::exists(dst / "proj/report.txt") && !fs::exists(tree / "src/proj"));
        const DriverRun resumed = runDriver(tree, {"resume"});
        QVERIFY2(resumed.output.trimmed().endsWith("STATE title=Move state=Complete"),
                 qPrintable(resumed.output));
        QCOMPARE(TestTree::read(dst / "proj/report.txt"), std::string("figures"));
    }

    void aMultiRenameKilledAnywhereEndsRenamedOnceOnResume_data()
    {
        // a→b, b→c, c→a runs a→hidden, c→a, b→c, hidden→b: killed in the middle
        // of the cycle, and right after its last step, when every name is back.
        QTest::addColumn<QString>("killAfter");
        QTest::newRow("in the middle") << "a";
        QTest::newRow("after the last rename") << "b";
    }
    void aMultiRenameKilledAnywhereEndsRenamedOnceOnResume()
    {
        QFETCH(QString, killAfter);
        TestTree tree;
        for (const char *name : {"a", "b", "c"})
            tree.file(fs::path("items") / name, name);
        const QString folder = QString::fromStdString((tree / "items").string());
        QVERIFY(runDriver(tree, {"multirename", folder, "a", "b", "b", "c", "c", "a"},
                          {{"KILL_AFTER_RENAME_TO", killAfter}})
                    .killed);
        const DriverRun resumed = runDriver(tree, {"resume"});
        QVERIFY2(resumed.output.trimmed().endsWith("state=Complete"), qPrintable(resumed.output));
        QCOMPARE(TestTree::names(tree / "items"), (std::vector<std::string>{"a", "b", "c"}));
        QCOMPARE(TestTree::read(tree / "items/b") + TestTree::read(tree / "items/c") +
                     TestTree::read(tree / "items/a"),
                 std::string("abc"));
    }

private:
    TestTree m_data;
};

QTEST_GUILESS_MAIN(JobJournalTest)
#include "tst_jobjournal.moc"
