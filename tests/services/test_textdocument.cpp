// ctest-labels: root
#include "scopedmount.h"
#include "testtree.h"

#include "operations/commandererror.h"
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

// The shared staging journal, made on first use, in a fresh folder.
const TestTree stateTree;
const bool stateHome = ::setenv("XDG_STATE_HOME", stateTree.root().c_str(), 1) == 0;

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

std::vector<std::string> names(const fs::path &folder)
{
    std::vector<std::string> result;
    for (const auto &entry : fs::directory_iterator(folder))
        result.push_back(entry.path().filename());
    std::sort(result.begin(), result.end());
    return result;
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
    EXPECT_EQ(names(tree.root()), std::vector<std::string>{"target.txt"}); // nothing created
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
    EXPECT_EQ(names(tree.root()), std::vector<std::string>{"kept.txt"});

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
        EXPECT_EQ(names(volume->path()).size(), inPlace ? 2u : 1u) << inPlace;
    }
}

// The driver saving a file under strace (killed at one system call) or as another user.
class SaveDriver : public Test {
protected:
    std::pair<int, std::string> save(const std::string &prefix, const std::string &text)
    {
        const fs::path input = m_tree.file("input/new.txt", text);
        fs::permissions(input.parent_path(), fs::perms(0755));
        fs::permissions(input, fs::perms(0644));
        int status = -1;
        const std::string out =
            runCommand("ASAN_OPTIONS=detect_leaks=0 XDG_STATE_HOME=" + shellQuote(m_state.string()) + " " +
                           prefix + " " + QUILLORN_TEXTDOCUMENT_DRIVER " " + shellQuote(m_file.string()) +
                           " " + shellQuote(input.string()) + " 2>&1; exit $?",
                       &status);
        return {status, out};
    }

    TestTree m_tree;
    fs::path m_file = m_tree.file("docs/file.txt", std::string(3 * 1024 * 1024, 'o'));
    fs::path m_state = m_tree.folder("state");
    const std::string m_asNobody = "setpriv --reuid=nobody --regid=nogroup --clear-groups";
};

TEST_F(SaveDriver, killedAtTheWriteTheFlushOrTheRenameLeavesTheOldOrTheNewBytes)
{
    if (std::system("strace -V >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "strace is not installed";
    const std::string old(3 * 1024 * 1024, 'o'), fresh(3 * 1024 * 1024, 'n');
    // Which of these calls, counted from the first, a save makes on its hidden
    // file for the nth time: the staging journal writes, flushes and renames too.
    const auto onStaging = [&](const std::string &calls, int nth) {
        const fs::path trace = m_tree / "trace";
        save("strace -f -qq -y -o " + shellQuote(trace.string()) + " -e trace=" + calls, fresh);
        m_tree.file("docs/file.txt", old);
        std::istringstream lines(TestTree::read(trace));
        int count = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find('(') == std::string::npos)
                continue;
            ++count;
            if (line.find("/.quillorn-") != std::string::npos ||
                line.find("\".quillorn-") != std::string::npos)
                if (--nth == 0)
                    return count;
        }
        return -1;
    };
    for (const auto &[calls, nth] :
         {std::pair<std::string, int>{"pwrite64", 2}, {"fsync", 1}, {"rename,renameat,renameat2", 1}}) {
        const int when = onStaging(calls, nth);
        ASSERT_GT(when, 0) << calls;
        const std::string inject = calls + ":signal=KILL:when=" + std::to_string(when);
        EXPECT_EQ(save("strace -f -qq -o /dev/null -e inject=" + inject, fresh).first, 128 + SIGKILL)
            << inject;
        const std::string now = TestTree::read(m_file);
        EXPECT_TRUE(now == old || now == fresh) << inject;
        // Killed with its hidden file made: the next start removes it.
        EXPECT_EQ(names(m_file.parent_path()).size(), 2u) << inject;
        StagingJournal(m_state / "Quillorn").recover();
        EXPECT_EQ(names(m_file.parent_path()), std::vector<std::string>{"file.txt"}) << inject;
        m_tree.file("docs/file.txt", old);
    }
    EXPECT_EQ(save("", fresh), std::pair(0, std::string("1\n")));
    EXPECT_EQ(TestTree::read(m_file), fresh);
}

TEST_F(SaveDriver, aFolderThatTakesNoNewFileOrAnOwnerThatCannotBeKeptIsWrittenInPlace)
{
    for (const fs::path &item : {m_tree.root(), m_file.parent_path()})
        fs::permissions(item, fs::perms(0755));
    fs::permissions(m_file, fs::perms(0666)); // root's file, which nobody may write
    const auto [status, out] = save(m_asNobody, "by nobody\n");
    if (out.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << out;
    EXPECT_EQ(std::pair(status, out),
              std::pair(0, std::to_string(int(ContentsWrite::inPlaceFolderClosed)) + "\n"));
    EXPECT_EQ(TestTree::read(m_file), "by nobody\n");

    fs::permissions(m_file.parent_path(),
                    fs::perms(0777)); // now a new file could be made, but not given to root
    EXPECT_EQ(save(m_asNobody, "again\n"),
              std::pair(0, std::to_string(int(ContentsWrite::inPlaceMetadata)) + "\n"));
    struct stat info {};
    ASSERT_EQ(::lstat(m_file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(TestTree::read(m_file), "again\n");
    EXPECT_EQ(names(m_file.parent_path()), std::vector<std::string>{"file.txt"});
}
