// ctest-labels: root
#include "operationstesting.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <regex>

extern char **environ;

namespace fs = std::filesystem;
using quillorn::AppDiagnostics;
using quillorn::CommanderError;
using quillorn::ConflictPolicy;
using quillorn::FileOperations;
using quillorn::test::failure;
using quillorn::test::LogMark;
using quillorn::test::names;
using quillorn::test::pattern;
using quillorn::test::TestTree;
using quillorn::test::wrapped;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const fs::path &dataHome = quillorn::test::temporaryDataHome();

// A file system of its own mounted for one test and always unmounted again.
class Mount {
public:
    Mount(const fs::path &point, const char *type, const std::string &options, const char *source = nullptr,
          unsigned long flags = 0)
        : m_point(point)
    {
        fs::create_directories(point);
        if (::mount(source ? source : type, point.c_str(), type, flags, options.c_str()) == 0)
            m_mounted = true;
        else
            m_error = std::strerror(errno);
    }
    ~Mount()
    {
        if (m_mounted)
            ::umount2(m_point.c_str(), MNT_DETACH);
    }
    bool mounted() const { return m_mounted; }
    const std::string &error() const { return m_error; }

private:
    fs::path m_point;
    bool m_mounted = false;
    std::string m_error;
};

#define REQUIRE_MOUNT(mount)                                                                                 \
    do {                                                                                                     \
        if (!quillorn::test::runningAsRoot())                                                                \
            GTEST_SKIP() << "needs root to mount a file system";                                             \
        if (!(mount).mounted())                                                                              \
            GTEST_SKIP() << "this machine refuses the mount: " << (mount).error();                           \
    } while (false)

std::size_t trashCount()
{
    std::error_code error;
    std::size_t count = 0;
    for (auto it = fs::directory_iterator(dataHome / "Trash/files", error);
         !error && it != fs::directory_iterator(); it.increment(error))
        ++count;
    return count;
}

// ---- second volumes -------------------------------------------------------------

TEST(CrossVolume, moveCarriesTheWholeTreeAndTrashesTheSource)
{
    TestTree tree;
    const Mount volume(tree / "volume", "tmpfs", "size=64m");
    REQUIRE_MOUNT(volume);
    const fs::path data = tree.file("src/box/data.bin", pattern(3 * 1024 * 1024 + 1));
    tree.file("src/box/sub/.hidden", "h");
    tree.symlink("src/box/link", "sub/.hidden");
    ::chmod(data.c_str(), 0604);
    ASSERT_EQ(::lsetxattr(data.c_str(), "user.colour", "blue", 4, 0), 0);
    ASSERT_EQ(std::system(("setfacl -m u:nobody:rw " + data.string()).c_str()), 0);
    const timespec stamp[2] = {{1'600'000'000, 111}, {1'500'000'000, 222'333'444}};
    ::utimensat(AT_FDCWD, data.c_str(), stamp, 0);
    ::utimensat(AT_FDCWD, (tree / "src/box").c_str(), stamp, 0);
    const std::string acl = "getfacl --omit-header --absolute-names ";
    const auto capture = [](const std::string &command) {
        std::string output;
        if (FILE *pipe = ::popen(command.c_str(), "r")) {
            char buffer[512];
            for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
                output.append(buffer, n);
            ::pclose(pipe);
        }
        return output;
    };
    const std::string aclBefore = capture(acl + data.string());
    const std::size_t trashedBefore = trashCount();

    const LogMark mark;
    const auto result =
        FileOperations().transfer({tree / "src/box"}, tree / "volume", true, ConflictPolicy::stop, false);
    EXPECT_THAT(result, ElementsAre(tree / "volume/box"));
    EXPECT_FALSE(fs::exists(tree / "src/box"));
    EXPECT_EQ(trashCount(), trashedBefore + 1);
    const fs::path moved = tree / "volume/box/data.bin";
    EXPECT_EQ(TestTree::read(moved), pattern(3 * 1024 * 1024 + 1));
    EXPECT_EQ(TestTree::read(tree / "volume/box/sub/.hidden"), "h");
    EXPECT_EQ(fs::read_symlink(tree / "volume/box/link"), "sub/.hidden");
    struct stat attributes {};
    ::lstat(moved.c_str(), &attributes);
    EXPECT_EQ(attributes.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(attributes.st_mtim.tv_nsec, 222'333'444);
    char colour[16] = {};
    EXPECT_EQ(::lgetxattr(moved.c_str(), "user.colour", colour, sizeof colour), 4);
    EXPECT_STREQ(colour, "blue");
    EXPECT_EQ(capture(acl + moved.string()), aclBefore);
    ::lstat((tree / "volume/box").c_str(), &attributes);
    EXPECT_EQ(attributes.st_mtim.tv_nsec, 222'333'444);
    EXPECT_THAT(mark.lines(), testing::Contains("TRANSFER ITEM COMPLETE phase=copy target=" +
                                                (tree / "volume/box").string()));
}

TEST(CrossVolume, aSourceFolderThatChangesWhileCopiedIsPreserved)
{
    TestTree tree;
    const Mount volume(tree / "volume", "tmpfs", "size=64m");
    REQUIRE_MOUNT(volume);
    tree.file("src/box/data.bin", pattern(3 * 1024 * 1024));
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    manager.copyChunk = [&tree, copy = manager.copyChunk](int in, int out, std::size_t limit,
                                                          const fs::path &source, const fs::path &target) {
        if (!fs::exists(tree / "src/box/late.txt")) {
            tree.file("src/box/late.txt", "late");
            std::ofstream(tree / "src/box/notes.txt", std::ios::app) << " and more";
        }
        return copy(in, out, limit, source, target);
    };
    tree.file("src/box/notes.txt", "notes");
    const FileOperations operations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                    FileOperations::defaultVolumeIsLocal(), manager);
    EXPECT_EQ(
        failure([&] {
            operations.transfer({tree / "src/box"}, tree / "volume", true, ConflictPolicy::stop, false);
        }),
        wrapped("Verifying \u2018box\u2019",
                "The source folder changed while copying. The move was stopped and the source was preserved.",
                "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::exists(tree / "src/box/data.bin"));
    EXPECT_TRUE(fs::is_empty(tree / "volume"));
}

TEST(CrossVolume, aVolumeWithoutExtendedAttributesKeepsTheDataAndWarns)
{
    TestTree tree;
    const Mount volume(tree / "volume", "ramfs", "");
    REQUIRE_MOUNT(volume);
    const fs::path source = tree.file("src/a.txt", "data");
    ASSERT_EQ(::lsetxattr(source.c_str(), "user.colour", "blue", 4, 0), 0);
    const LogMark mark;
    FileOperations().transfer({source}, tree / "volume", false, ConflictPolicy::stop, false);
    EXPECT_EQ(TestTree::read(tree / "volume/a.txt"), "data");
    EXPECT_THAT(mark.text(), testing::ContainsRegex("METADATA WARNING copyfile source=" + source.string() +
                                                    " destination=" + (tree / "volume").string() +
                                                    "/.quillorn-[-0-9A-F]+ error=POSIX code=95: "));
}

TEST(CrossVolume, aBindMountOfTheSameDeviceFallsBackToCopying)
{
    // Both sides report one st_dev, yet rename(2) across the two mounts fails with EXDEV.
    TestTree tree;
    const fs::path real = tree.folder("real");
    const Mount bound(tree / "bound", "none", "", real.c_str(), MS_BIND);
    REQUIRE_MOUNT(bound);
    const fs::path source = tree.file("src/a.txt", "moved by copying");
    const LogMark mark;
    const auto result =
        FileOperations().transfer({source}, tree / "bound", true, ConflictPolicy::stop, false);
    EXPECT_THAT(result, ElementsAre(tree / "bound/a.txt"));
    EXPECT_EQ(TestTree::read(real / "a.txt"), "moved by copying");
    EXPECT_FALSE(fs::exists(source));
    EXPECT_THAT(mark.lines(), testing::Contains("TRANSFER ITEM COMPLETE phase=copy target=" +
                                                (tree / "bound/a.txt").string()));
}

// ---- disk full --------------------------------------------------------------------

TEST(DiskFull, inTheMiddleOfAFileKeepsEarlierItemsAndLeavesNoStaging)
{
    TestTree tree;
    const Mount volume(tree / "volume", "tmpfs", "size=2m");
    REQUIRE_MOUNT(volume);
    tree.file("src/a.txt", "small");
    tree.file("src/big.bin", pattern(6 * 1024 * 1024));
    EXPECT_EQ(failure([&] {
                  FileOperations().transfer({tree / "src/big.bin", tree / "src/a.txt"}, tree / "volume",
                                            false, ConflictPolicy::stop, false);
              }),
              wrapped("Copying \u2018big.bin\u2019", "No space left on device", "POSIX 28"));
    EXPECT_THAT(names(tree / "volume"), ElementsAre("a.txt"));
    EXPECT_EQ(TestTree::read(tree / "volume/a.txt"), "small");
}

TEST(DiskFull, whileReplacingLeavesTheOldItemInPlaceAndOutOfTheTrash)
{
    TestTree tree;
    const Mount volume(tree / "volume", "tmpfs", "size=2m");
    REQUIRE_MOUNT(volume);
    tree.file("src/big.bin", pattern(6 * 1024 * 1024));
    tree.file("volume/big.bin", "old bytes");
    const std::size_t trashedBefore = trashCount();
    EXPECT_THAT(failure([&] {
                    FileOperations().transfer({tree / "src/big.bin"}, tree / "volume", false,
                                              ConflictPolicy::replace, false);
                }),
                HasSubstr("No space left on device"));
    EXPECT_THAT(names(tree / "volume"), ElementsAre("big.bin"));
    EXPECT_EQ(TestTree::read(tree / "volume/big.bin"), "old bytes");
    EXPECT_EQ(trashCount(), trashedBefore);
}

// ---- the driver under strace and as another user ------------------------------------

struct Outcome {
    int exitCode = -1;
    int signal = 0;
    std::string errors;
};

// Runs prefix (strace, setpriv...) + the driver + arguments; stderr is kept.
Outcome runDriver(const TestTree &tree, std::vector<std::string> prefix,
                  const std::vector<std::string> &arguments)
{
    // LeakSanitizer cannot run under ptrace; the driver's leaks are not the question here.
    ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    prefix.push_back(QUILLORN_TRANSFER_DRIVER);
    prefix.insert(prefix.end(), arguments.begin(), arguments.end());
    const fs::path errors = tree / "driver.err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    std::vector<char *> argv;
    for (std::string &argument : prefix)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    Outcome outcome;
    if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        int status = 0;
        ::waitpid(child, &status, 0);
        outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    outcome.errors = TestTree::read(errors);
    fs::remove(errors);
    return outcome;
}

class InjectedFault : public testing::Test {
protected:
    void SetUp() override
    {
        if (std::system("strace -V >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "strace is not installed";
        m_source = m_tree.file("src/a.txt", pattern(3 * 1024 * 1024 + 7));
        m_tree.folder("dst");
    }

    // strace passes the driver's own exit status through; a killed driver makes
    // strace itself die of the same signal (exit status 128 + signal with -qq).
    Outcome run(const std::string &injection, const std::string &policy = "Stop")
    {
        return runDriver(m_tree, {"strace", "-f", "-qq", "-o", "/dev/null", "-e", "inject=" + injection},
                         {"copy", policy, (m_tree / "dst").string(), m_source.string()});
    }

    // After a crash: the final name is absent or holds the old bytes, and at most
    // one staging item is left behind.
    void expectCrashSafe(const std::string &oldBytes)
    {
        std::size_t staging = 0;
        for (const std::string &name : names(m_tree / "dst")) {
            if (name == "a.txt")
                EXPECT_EQ(TestTree::read(m_tree / "dst/a.txt"), oldBytes);
            else
                EXPECT_EQ(name.rfind(".quillorn-", 0), 0u) << name;
            staging += name != "a.txt";
        }
        EXPECT_LE(staging, 1u);
        if (oldBytes.empty()) {
            EXPECT_FALSE(fs::exists(m_tree / "dst/a.txt"));
        }
    }

    TestTree m_tree;
    fs::path m_source;
};

TEST_F(InjectedFault, failingFlushPublishesNothing)
{
    const Outcome outcome = run("fsync:error=EIO");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.errors, wrapped("Copying \u2018a.txt\u2019", "Input/output error", "POSIX 5") + "\n");
    EXPECT_TRUE(fs::is_empty(m_tree / "dst"));
}

TEST_F(InjectedFault, failingPublishingRenamePublishesNothing)
{
    const Outcome outcome = run("renameat2:error=EIO");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.errors,
              wrapped("Publishing \u2018a.txt\u2019 at the destination", "Input/output error", "POSIX 5") +
                  "\n");
    EXPECT_TRUE(fs::is_empty(m_tree / "dst"));
}

TEST_F(InjectedFault, killedWhileWritingLeavesAtMostAStagingItem)
{
    EXPECT_NE(run("copy_file_range:signal=KILL:when=2").exitCode, 0);
    expectCrashSafe("");
}

TEST_F(InjectedFault, killedWhileWritingOverAnOldItemKeepsItsBytes)
{
    m_tree.file("dst/a.txt", "old bytes");
    EXPECT_NE(run("copy_file_range:signal=KILL:when=2", "Replace (old item to Trash)").exitCode, 0);
    expectCrashSafe("old bytes");
}

TEST_F(InjectedFault, killedAtTheFlushOrAtTheRenameNeverShowsAShortFile)
{
    EXPECT_NE(run("fsync:signal=KILL").exitCode, 0);
    expectCrashSafe("");
    for (const std::string &name : names(m_tree / "dst"))
        fs::remove_all(m_tree / "dst" / name);
    EXPECT_NE(run("renameat2:signal=KILL").exitCode, 0);
    expectCrashSafe("");
}

TEST_F(InjectedFault, destinationWithoutWritePermissionIsRefused)
{
    ::chmod(m_source.parent_path().c_str(), 0755);
    ::chmod(m_source.c_str(), 0644);
    ::chmod((m_tree / "dst").c_str(), 0755);
    ::chmod(m_tree.root().c_str(), 0755);
    const Outcome outcome =
        runDriver(m_tree, {"setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"},
                  {"copy", "Stop", (m_tree / "dst").string(), m_source.string()});
    if (outcome.exitCode == -1 || outcome.errors.find("setpriv:") == 0)
        GTEST_SKIP() << "cannot switch to the user nobody: " << outcome.errors;
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(std::regex_search(
        outcome.errors, std::regex("^Copying \u2018a.txt\u2019 failed: Cannot create .*/dst/\\.quillorn-"
                                   "[-0-9A-F]+ \\(Quillorn.CommanderError 1\\)\\. See ")))
        << outcome.errors;
    EXPECT_TRUE(fs::is_empty(m_tree / "dst"));
}

TEST_F(InjectedFault, aFailedFolderCopyRemovesReadOnlyStagingFoldersToo)
{
    // As an ordinary user: root could empty read-only folders without their write bit.
    m_tree.file("src/box/sub/inner.txt", "inner");
    for (const char *folder : {"src/box/sub", "src/box"})
        ::chmod((m_tree / folder).c_str(), 0555);
    ::chmod((m_tree / "dst").c_str(), 0777);
    ::chmod(m_tree.root().c_str(), 0755);
    ::chmod((m_tree / "src").c_str(), 0755);
    const Outcome outcome =
        runDriver(m_tree,
                  {"strace", "-f", "-qq", "-o", "/dev/null", "-e", "inject=syncfs:error=EIO", "setpriv",
                   "--reuid=nobody", "--regid=nogroup", "--clear-groups"},
                  {"copy", "Stop", (m_tree / "dst").string(), (m_tree / "src/box").string()});
    if (outcome.errors.find("setpriv:") != std::string::npos)
        GTEST_SKIP() << "cannot switch to the user nobody: " << outcome.errors;
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.errors, wrapped("Copying \u2018box\u2019", "Input/output error", "POSIX 5") + "\n");
    EXPECT_THAT(names(m_tree / "dst"), ElementsAre());
}

} // namespace
