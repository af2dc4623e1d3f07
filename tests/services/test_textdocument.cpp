// ctest-labels: root
#include "scopedmount.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/savebackupjournal.h"
#include "operations/stagingjournal.h"
#include "platform/posix/posixerror.h"
#include "services/textdocument.h"

#include <gmock/gmock.h>

#include <csignal>
#include <optional>
#include <sstream>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
using namespace testing;
namespace fs = std::filesystem;

namespace {

// The shared journals and the log, made on first use, in fresh folders.
const TestTree stateTree, dataTree;
const bool stateHome = ::setenv("XDG_STATE_HOME", stateTree.root().c_str(), 1) == 0;
const bool dataHome = ::setenv("XDG_DATA_HOME", dataTree.root().c_str(), 1) == 0;

const std::string refused =
    "The editor supports regular UTF-8 files up to 8 MB. Open other files in their associated application.";
const std::string notText = "This is not a UTF-8 text file.";
const std::string changed = "This file changed on disk. Save was stopped to preserve the external changes.";

template <typename Body> std::string failure(Body &&body)
{
    try {
        body();
    } catch (const CommanderError &error) {
        return error.errorDescription();
    } catch (const std::system_error &error) {
        return "errno " + std::to_string(error.code().value());
    }
    return "(none)";
}

} // namespace

TEST(TextDocumentLoad, takesRegularUtf8UpToTheLimitAndRefusesTheRest)
{
    TestTree tree;
    const fs::path exact = tree.file("exact.txt", std::string(TextDocument::limit, 'a'));
    EXPECT_EQ(TextDocument::load(exact).text.size(), qsizetype(TextDocument::limit));
    const TextDocument kept = TextDocument::load(tree.file("crlf.txt", "\xef\xbb\xbfone\r\ntwo\r\n"));
    EXPECT_EQ(kept.text, QChar(0xfeff) + QStringLiteral("one\r\ntwo\r\n")); // the mark and line ends stay
    EXPECT_EQ(TextDocument::load(tree.file("empty.txt")).text, "");
    ASSERT_EQ(::mkfifo((tree / "fifo").c_str(), 0600), 0); // refused without being opened: no hang
    const std::pair<fs::path, std::string> cases[] = {
        {tree.file("big.txt", std::string(TextDocument::limit + 1, 'a')), refused},
        {tree.symlink("link.txt", tree / "crlf.txt"), refused},
        {tree / "fifo", refused},
        {tree.folder("folder"), refused},
        {tree.file("nul.txt", std::string("a\0b", 3)), notText},
        {tree.file("latin1.txt", "caf\xe9"), notText},
        {tree / "missing.txt", "errno 2"},
    };
    for (const auto &[file, message] : cases)
        EXPECT_EQ(failure([&] { TextDocument::load(file); }), message) << file;
}

TEST(TextDocumentSave, comparesWithTheLastBytesItWroteAndNeverOverwritesOtherChanges)
{
    TestTree tree;
    const fs::path file = tree.file("notes.txt", "one\n");
    TextDocument document = TextDocument::load(file);
    document.text = "two\n";
    EXPECT_EQ(document.save(), ContentsWrite::replaced);
    document.text = "three\n";
    document.save();
    EXPECT_EQ(TestTree::read(file), "three\n");

    tree.file("notes.txt", "three\nappended elsewhere\n");
    document.text = "four\n";
    EXPECT_EQ(failure([&] { document.save(); }), changed);
    EXPECT_EQ(TestTree::read(file), "three\nappended elsewhere\n");
    EXPECT_EQ(document.original, "three\n"); // a failed save keeps the document as it was
    EXPECT_EQ(document.text, "four\n");

    // A link now at the name is a change, and is never followed.
    const fs::path target = tree.file("target.txt", "three\n");
    fs::remove(file);
    fs::create_symlink(target, file);
    EXPECT_EQ(failure([&] { document.save(); }), changed);
    EXPECT_EQ(TestTree::read(target), "three\n");
    EXPECT_TRUE(fs::is_symlink(file));

    fs::remove(file);
    EXPECT_EQ(failure([&] { document.save(); }), "errno 2");
    EXPECT_EQ(TestTree::names(tree.root()), std::vector<std::string>{"target.txt"}); // nothing created
}

TEST(TextDocumentSave, keepsModeOwnerAttributesAndLinksAndSaysWhenItWroteInPlace)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "needs root to give the file another owner";
    TestTree tree;
    const fs::path file = tree.file("kept.txt", "old\n");
    ::chown(file.c_str(), 65534, 65534);
    fs::permissions(file, fs::perms(0640));
    runCommand("setfattr -n user.colour -v blue " + shellQuote(file) + " && setfacl -m u:daemon:r " +
               shellQuote(file));
    TextDocument document = TextDocument::load(file);
    document.text = "new\n";
    EXPECT_EQ(document.save(), ContentsWrite::replaced);
    struct stat info {};
    ASSERT_EQ(::lstat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
    EXPECT_EQ(runCommand("getfattr --only-values -n user.colour " + shellQuote(file)), "blue");
    EXPECT_THAT(runCommand("getfacl -p " + shellQuote(file)), HasSubstr("user:daemon:r--"));
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(TestTree::names(tree.root()), std::vector<std::string>{"kept.txt"});

    const fs::path other = tree / "other name.txt";
    fs::create_hard_link(file, other);
    document.text = "newer, and longer than before\n";
    EXPECT_EQ(document.save(), ContentsWrite::inPlaceLinked);
    EXPECT_EQ(TestTree::read(other), "newer, and longer than before\n");
    document.text = "short\n";
    document.save();
    EXPECT_EQ(TestTree::read(other), "short\n");
}

TEST(TextDocumentSave, aFullDiskLeavesTheOriginalWhole)
{
    TestTree tree;
    std::optional<ScopedMount> volume;
    try {
        if (!runningAsRoot())
            GTEST_SKIP() << "needs root to mount a small volume";
        volume.emplace("tmpfs", tree.folder("volume"), "size=1m");
    } catch (const std::exception &error) {
        GTEST_SKIP() << "this machine refuses the mount: " << error.what();
    }
    const std::string old(600 * 1024, 'o');
    const fs::path file = tree.file("volume/full.txt", old);
    const fs::path linked = tree / "volume/linked.txt";
    for (const bool inPlace : {false, true}) {
        if (inPlace)
            fs::create_hard_link(file, linked);
        TextDocument document = TextDocument::load(file);
        document.text = QString(1100 * 1024, QLatin1Char('n')); // more than the volume holds
        EXPECT_EQ(failure([&] { document.save(); }), "errno 28") << inPlace;
        EXPECT_EQ(TestTree::read(file), old) << inPlace;
        EXPECT_EQ(TestTree::names(volume->path()).size(), inPlace ? 2u : 1u) << inPlace;
    }
}

// The driver saving a file under strace (killed at one system call) or as another user.
class SaveDriver : public Test {
protected:
    std::pair<int, std::string> save(const std::string &prefix, const std::string &text,
                                     const std::string &mode = {})
    {
        const fs::path input = m_tree.file("input/new.txt", text);
        fs::permissions(input.parent_path(), fs::perms(0755));
        fs::permissions(input, fs::perms(0644));
        int status = -1;
        const std::string out =
            runCommand("ASAN_OPTIONS=detect_leaks=0 XDG_STATE_HOME=" + shellQuote(m_state.string()) + " " +
                           prefix + " " + QUILLORN_TEXTDOCUMENT_DRIVER " " + shellQuote(m_file.string()) +
                           " " + shellQuote(input.string()) + " " + mode + " 2>&1; exit $?",
                       &status);
        return {status, out};
    }

    // Which of these calls, counted from the first, a save of `text` makes for
    // the nth time on an item whose path holds `on` (as strace -y shows it); -1
    // when it makes none. `prefix` goes before the driver, as in save().
    int callNumber(const std::string &calls, const std::string &on, int nth, const std::string &text,
                   const std::string &prefix = {})
    {
        const fs::path trace = m_tree / "trace";
        save("strace -f -qq -y -o " + shellQuote(trace.string()) + " -e trace=" + calls + " " + prefix, text);
        std::istringstream lines(TestTree::read(trace));
        int count = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find('(') == std::string::npos)
                continue;
            ++count;
            if (line.find(on) != std::string::npos && --nth == 0)
                return count;
        }
        return -1;
    }

    // A save killed at the nth of `calls` on a path holding `on`, as counted in a
    // traced run first; the file holds the old bytes again before the killed run.
    // Returns the save's exit status, or -1 when that call never came.
    int killedAt(const std::string &calls, const std::string &on, int nth, const std::string &prefix = {})
    {
        const int when = callNumber(calls, on, nth, m_fresh, prefix);
        m_tree.file(m_file.lexically_relative(m_tree.root()), m_old);
        if (when <= 0)
            return -1;
        const std::string inject = calls + ":signal=KILL:when=" + std::to_string(when);
        return save("strace -f -qq -o /dev/null -e inject=" + inject + " " + prefix, m_fresh).first;
    }

    static bool haveStrace() { return std::system("strace -V >/dev/null 2>&1") == 0; }

    // The hidden items (".quillorn-...") in folder.
    static std::vector<fs::path> hidden(const fs::path &folder)
    {
        std::vector<fs::path> found;
        if (fs::exists(folder))
            for (const auto &entry : fs::directory_iterator(folder))
                if (entry.path().filename().string().starts_with(".quillorn-"))
                    found.push_back(entry.path());
        return found;
    }

    std::string log() const { return TestTree::read(dataTree / "Quillorn/Logs/Quillorn.log"); }

    TestTree m_tree;
    const std::string m_old = std::string(3 * 1024 * 1024, 'o'), m_fresh = std::string(3 * 1024 * 1024, 'n');
    fs::path m_file = m_tree.file("docs/file.txt", m_old);
    fs::path m_state = m_tree.folder("state");
    const std::string m_asNobody = "setpriv --reuid=nobody --regid=nogroup --clear-groups";
    // The number the driver prints for a save written in place because of other links.
    const std::string m_linked = std::to_string(int(ContentsWrite::inPlaceLinked)) + "\n";
};

TEST_F(SaveDriver, killedAtTheWriteTheFlushOrTheRenameLeavesTheOldOrTheNewBytes)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    // The staging journal writes, flushes and renames too: the calls are counted on the hidden file.
    for (const auto &[calls, nth] :
         {std::pair<std::string, int>{"pwrite64", 2}, {"fsync", 1}, {"rename,renameat,renameat2", 1}}) {
        const std::string inject = calls + " " + std::to_string(nth);
        EXPECT_EQ(killedAt(calls, ".quillorn-", nth), 128 + SIGKILL) << inject;
        const std::string now = TestTree::read(m_file);
        EXPECT_TRUE(now == m_old || now == m_fresh) << inject;
        // Killed with its hidden file made: the next start removes it.
        EXPECT_EQ(TestTree::names(m_file.parent_path()).size(), 2u) << inject;
        StagingJournal(m_state / "Quillorn").recover();
        EXPECT_EQ(TestTree::names(m_file.parent_path()), std::vector<std::string>{"file.txt"}) << inject;
        m_tree.file("docs/file.txt", m_old);
    }
    EXPECT_EQ(save("", m_fresh), std::pair(0, std::string("1\n")));
    EXPECT_EQ(TestTree::read(m_file), m_fresh);
}

TEST_F(SaveDriver, anInPlaceWriteThatFailsPutsTheOldBytesBackAndCanBeRetried)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    const fs::path link = m_tree / "docs/link.txt";
    fs::create_hard_link(m_file, link);
    // The second of the three 1 MiB writes into the file itself: the first is on disk by then.
    const int when = callNumber("pwrite64", "/docs/file.txt>", 2, m_fresh);
    m_tree.file("docs/file.txt", m_old);
    ASSERT_GT(when, 0);
    const std::string failing =
        "strace -f -qq -o /dev/null -e inject=pwrite64:error=EIO:when=" + std::to_string(when);

    const auto [status, out] = save(failing, m_fresh);
    EXPECT_EQ(status, 1);
    EXPECT_THAT(out, HasSubstr("Input/output error"));
    EXPECT_TRUE(TestTree::read(m_file) == m_old) << "the file holds neither the old bytes nor the new ones";
    EXPECT_EQ(TestTree::names(m_file.parent_path()),
              (std::vector<std::string>{"file.txt", "link.txt"})); // no copy left
    EXPECT_TRUE(hidden(m_state / "Quillorn/Backups").empty());

    // The same document saved again after the failure: the disk still holds what it last saw.
    m_tree.file("docs/file.txt", m_old);
    const auto [again, retried] = save(failing, m_fresh, "retry");
    EXPECT_EQ(again, 0);
    EXPECT_THAT(retried, EndsWith("error\n" + m_linked));
    EXPECT_TRUE(TestTree::read(link) == m_fresh);
    EXPECT_EQ(TestTree::names(m_file.parent_path()), (std::vector<std::string>{"file.txt", "link.txt"}));
}

TEST_F(SaveDriver, aSaveKilledWhileWritingInPlaceGetsTheOldBytesBackAtTheNextStart)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    const fs::path link = m_tree / "docs/link.txt";
    fs::create_hard_link(m_file, link);
    struct Case {
        std::string calls, on;
        int nth;
        std::string after, logged;
    };
    const Case cases[] = {
        // Half the new bytes written: the old ones come back.
        {"pwrite64", "/docs/file.txt>", 2, m_old, "SAVE RESTORED"},
        // All written, not yet flushed: they stay.
        {"fsync", "/docs/file.txt>", 1, m_fresh, "SAVE KEPT"},
        // The copy half made, the file never touched: the copy goes.
        {"pwrite64", "/docs/.quillorn-", 2, m_old, "SAVE BACKUP DROPPED"},
    };
    for (const Case &each : cases) {
        const std::string inject = each.calls + " on " + each.on;
        EXPECT_EQ(killedAt(each.calls, each.on, each.nth), 128 + SIGKILL) << inject;
        const std::vector<fs::path> copies = hidden(m_file.parent_path());
        ASSERT_EQ(copies.size(), 1u) << inject;

        const std::vector<fs::path> restored = SaveBackupJournal(m_state / "Quillorn").recover();
        EXPECT_EQ(restored.size(), each.logged == "SAVE RESTORED" ? 1u : 0u) << inject;
        EXPECT_TRUE(TestTree::read(link) == each.after) << inject;
        EXPECT_EQ(TestTree::names(m_file.parent_path()), (std::vector<std::string>{"file.txt", "link.txt"}))
            << inject;
        EXPECT_THAT(log(),
                    HasSubstr(each.logged + " path=" + m_file.string() + " backup=" + copies[0].string()))
            << inject;
        // Settled once: the journal is gone, and a second start finds nothing.
        EXPECT_TRUE(SaveBackupJournal(m_state / "Quillorn").recover().empty()) << inject;
        m_tree.file("docs/file.txt", m_old);
    }
    EXPECT_EQ(save("", m_fresh), std::pair(0, m_linked));
    EXPECT_TRUE(TestTree::read(link) == m_fresh);
}

TEST_F(SaveDriver, aBackupWhoseFolderTakesNoNewFileGoesToTheStateFolder)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    for (const fs::path &item : {m_tree.root(), m_file.parent_path()})
        fs::permissions(item, fs::perms(0755));
    fs::permissions(m_file, fs::perms(0666)); // root's file in root's folder, which nobody may write to
    ::chown(m_state.c_str(), 65534, 65534);
    const int status = killedAt("pwrite64", "/docs/file.txt>", 2, m_asNobody);
    if (status < 0 && save(m_asNobody, "x").second.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody";
    EXPECT_EQ(status, 128 + SIGKILL);
    EXPECT_EQ(TestTree::names(m_file.parent_path()), std::vector<std::string>{"file.txt"});
    const std::vector<fs::path> copies = hidden(m_state / "Quillorn/Backups");
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_TRUE(TestTree::read(copies[0]) == m_old);

    EXPECT_EQ(SaveBackupJournal(m_state / "Quillorn").recover(), std::vector<fs::path>{m_file});
    EXPECT_TRUE(TestTree::read(m_file) == m_old);
    EXPECT_TRUE(hidden(m_state / "Quillorn/Backups").empty());
}

TEST_F(SaveDriver, aFatVolumeIsWrittenInPlaceWithABackupBesideTheFile)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    if (!runningAsRoot())
        GTEST_SKIP() << "needs root to mount a file system";
    const fs::path where = m_tree.folder("fat");
    std::optional<ScopedMount> volume;
    try {
        volume.emplace(ScopedMount::fat(m_tree / "fat.img", where));
    } catch (const std::exception &error) {
        GTEST_SKIP() << error.what();
    }
    m_file = m_tree.file("fat/file.txt", m_old);
    const int when = callNumber("pwrite64", "/fat/file.txt>", 2, m_fresh);
    fs::remove(m_file); // fusefat refuses to cut a file short, so it is made afresh
    m_tree.file("fat/file.txt", m_old);
    ASSERT_GT(when, 0);
    EXPECT_EQ(save("strace -f -qq -o /dev/null -e inject=pwrite64:signal=KILL:when=" + std::to_string(when),
                   m_fresh)
                  .first,
              128 + SIGKILL);
    ASSERT_EQ(hidden(where).size(), 1u);
    EXPECT_EQ(SaveBackupJournal(m_state / "Quillorn").recover(), std::vector<fs::path>{m_file});
    EXPECT_TRUE(TestTree::read(m_file) == m_old);
    EXPECT_EQ(TestTree::names(where), std::vector<std::string>{"file.txt"});

    EXPECT_EQ(save("", m_fresh), std::pair(0, std::to_string(int(ContentsWrite::inPlaceMetadata)) + "\n"));
    EXPECT_TRUE(TestTree::read(m_file) == m_fresh);
}

TEST_F(SaveDriver, aFolderThatTakesNoNewFileOrAnOwnerThatCannotBeKeptIsWrittenInPlace)
{
    for (const fs::path &item : {m_tree.root(), m_file.parent_path()})
        fs::permissions(item, fs::perms(0755));
    fs::permissions(m_file, fs::perms(0666)); // root's file, which nobody may write
    ::chown(m_state.c_str(), 65534, 65534);
    // Known before the save (it is printed first), and the route the save then takes.
    const auto [status, out] = save(m_asNobody, "by nobody\n", "plan");
    if (out.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << out;
    const std::string closed = std::to_string(int(ContentsWrite::inPlaceFolderClosed)) + "\n";
    EXPECT_EQ(std::pair(status, out), std::pair(0, closed + closed));
    EXPECT_EQ(TestTree::read(m_file), "by nobody\n");

    fs::permissions(m_file.parent_path(),
                    fs::perms(0777)); // now a new file could be made, but not given to root
    // Only trying shows that: the forecast was a new file.
    EXPECT_EQ(save(m_asNobody, "again\n", "plan"),
              std::pair(0, std::to_string(int(ContentsWrite::replaced)) + "\n" +
                               std::to_string(int(ContentsWrite::inPlaceMetadata)) + "\n"));
    struct stat info {};
    ASSERT_EQ(::lstat(m_file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(TestTree::read(m_file), "again\n");
    EXPECT_EQ(TestTree::names(m_file.parent_path()), std::vector<std::string>{"file.txt"});
}

TEST(SaveBackupJournalRecovery, aRunningOwnersCopyIsNeverTouchedAndAGoneOnesIsPutBack)
{
    TestTree tree;
    const fs::path file = tree.file("half written.txt", "new bytes");
    const fs::path copy = tree.file(".quillorn-0F4C2A9E-5B7D-4E21-9C3A-7D1E8F2B6A40", "old bytes");
    struct stat info {};
    ASSERT_EQ(::lstat(file.c_str(), &info), 0);
    auto running = std::make_unique<SaveBackupJournal>(tree / "state");
    running->add(copy, file);
    running->ready({copy, file, std::uint64_t(info.st_ino), 9, 5, contentsDigest("whole")});

    EXPECT_TRUE(SaveBackupJournal(tree / "state").recover().empty());
    EXPECT_EQ(TestTree::read(file), "new bytes");
    EXPECT_TRUE(fs::exists(copy));

    running.reset(); // its lock goes with it, as with a process that ends
    EXPECT_EQ(SaveBackupJournal(tree / "state").recover(), std::vector<fs::path>{file});
    EXPECT_EQ(TestTree::read(file), "old bytes");
    EXPECT_FALSE(fs::exists(copy));
    // Neither the old bytes nor the whole new ones: what it held is kept, not lost.
    const std::vector<std::string> kept = TestTree::names(tree / "state/Replaced");
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_THAT(kept[0], StartsWith("half written.txt.replaced-"));
    EXPECT_EQ(TestTree::read(tree / "state/Replaced" / kept[0]), "new bytes");
}

TEST(TextDocumentSave, forecastsAnInPlaceSaveForAFileWithOtherLinks)
{
    TestTree tree;
    const fs::path file = tree.file("notes.txt", "one\n");
    EXPECT_EQ(TextDocument::expectedSave(file), ContentsWrite::replaced);
    fs::create_hard_link(file, tree / "other.txt");
    EXPECT_EQ(TextDocument::expectedSave(file), ContentsWrite::inPlaceLinked);
    TextDocument document = TextDocument::load(file);
    document.text = "two\n";
    EXPECT_EQ(document.save(), ContentsWrite::inPlaceLinked);
    fs::remove(tree / "other.txt");
    EXPECT_EQ(TextDocument::expectedSave(file), ContentsWrite::replaced);
    EXPECT_EQ(TextDocument::expectedSave(tree / "missing.txt"), ContentsWrite::replaced);
}

TEST_F(SaveDriver, aFileEditedSinceAKilledSaveIsKeptBeforeItsOldBytesGoBack)
{
    if (!haveStrace())
        GTEST_SKIP() << "strace is not installed";
    fs::create_hard_link(m_file, m_tree / "docs/link.txt");
    EXPECT_EQ(killedAt("pwrite64", "/docs/file.txt>", 2), 128 + SIGKILL);
    const std::vector<fs::path> copies = hidden(m_file.parent_path());
    ASSERT_EQ(copies.size(), 1u);
    // Another program writes the file (the same one, so recovery still finds it) before the next start.
    const std::string theirs = "written by another program after the crash\n";
    m_tree.file("docs/file.txt", theirs);

    // Where that edit would go cannot be made: nothing is restored, and all stays for the next start.
    const fs::path replaced = m_state / "Quillorn/Replaced";
    m_tree.file(replaced.lexically_relative(m_tree.root()), "");
    EXPECT_TRUE(SaveBackupJournal(m_state / "Quillorn").recover().empty());
    EXPECT_TRUE(TestTree::read(m_file) == theirs);
    EXPECT_EQ(hidden(m_file.parent_path()), copies);
    EXPECT_THAT(log(),
                HasSubstr("SAVE RESTORE FAILED path=" + m_file.string() + " backup=" + copies[0].string()));

    fs::remove(replaced);
    EXPECT_EQ(SaveBackupJournal(m_state / "Quillorn").recover(), std::vector<fs::path>{m_file});
    EXPECT_TRUE(TestTree::read(m_file) == m_old);
    EXPECT_TRUE(hidden(m_file.parent_path()).empty());
    const std::string logged =
        "SAVE RESTORED path=" + m_file.string() + " backup=" + copies[0].string() + " replaced=";
    const std::string text = log();
    const std::size_t at = text.find(logged);
    ASSERT_NE(at, std::string::npos) << text;
    const std::size_t start = at + logged.size();
    const fs::path kept = text.substr(start, text.find('\n', start) - start);
    EXPECT_EQ(kept.parent_path(), replaced);
    EXPECT_EQ(TestTree::read(kept), theirs);
    struct stat info {};
    ASSERT_EQ(::lstat(kept.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u); // the user's alone, like the file's backup
}
