#include "operationstesting.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "platform/posix/posixerror.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <regex>

namespace fs = std::filesystem;
using quillorn::AppDiagnostics;
using quillorn::CancellationError;
using quillorn::CommanderError;
using quillorn::ConflictPolicy;
using quillorn::FileOperations;
using quillorn::OperationControl;
using quillorn::test::failure;
using quillorn::test::hasStaging;
using quillorn::test::LogMark;
using quillorn::test::names;
using quillorn::test::pattern;
using quillorn::test::TestTree;
using quillorn::test::wrapped;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const fs::path &dataHome = quillorn::test::temporaryDataHome();

FileOperations withManager(const std::function<void(FileOperations::FileManager &)> &change)
{
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    change(manager);
    return FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                          FileOperations::defaultVolumeIsLocal(), manager);
}

// Runs body after the first chunk of every file the transfer copies.
FileOperations afterFirstChunk(std::function<void()> body)
{
    return withManager([body = std::move(body)](FileOperations::FileManager &manager) {
        manager.copyChunk = [body, copy = manager.copyChunk, calls = 0](int in, int out, std::size_t limit,
                                                                        const fs::path &source,
                                                                        const fs::path &target) mutable {
            const std::size_t count = copy(in, out, limit, source, target);
            if (++calls == 1)
                body();
            return count;
        };
    });
}

// ---- copies -------------------------------------------------------------------

TEST(TransferCopy, treeArrivesWithHiddenFilesLinksModesAndDates)
{
    TestTree tree;
    tree.file("src/box/.hidden", "h");
    tree.file("src/box/empty");
    tree.file("src/box/sub/data.bin", pattern(3 * 1024 * 1024 + 5));
    tree.symlink("src/box/dangling", "../nowhere");
    tree.folder("dst");
    ::chmod((tree / "src/box/empty").c_str(), 0640);
    const timespec stamp[2] = {{1'600'000'000, 123'456'789}, {1'500'000'000, 987'654'321}};
    for (const char *item : {"src/box/empty", "src/box/sub", "src/box"})
        ::utimensat(AT_FDCWD, (tree / item).c_str(), stamp, AT_SYMLINK_NOFOLLOW);

    OperationControl control;
    const auto result = FileOperations().transfer({tree / "src/box"}, tree / "dst", false,
                                                  ConflictPolicy::stop, control, false);
    EXPECT_THAT(result, ElementsAre(tree / "dst/box"));
    EXPECT_EQ(TestTree::read(tree / "dst/box/.hidden"), "h");
    EXPECT_EQ(TestTree::read(tree / "dst/box/sub/data.bin"), TestTree::read(tree / "src/box/sub/data.bin"));
    EXPECT_EQ(fs::read_symlink(tree / "dst/box/dangling"), "../nowhere");
    for (const char *item : {"box/empty", "box/sub", "box"}) {
        struct stat source {
        }, copy{};
        ::lstat((tree / "src" / item).c_str(), &source);
        ::lstat((tree / "dst" / item).c_str(), &copy);
        EXPECT_EQ(copy.st_mode, source.st_mode) << item;
        EXPECT_EQ(copy.st_mtim.tv_sec, 1'500'000'000) << item;
        EXPECT_EQ(copy.st_mtim.tv_nsec, 987'654'321) << item;
    }
    const auto progress = control.progress();
    EXPECT_EQ(progress.expected, 1 + 3 * 1024 * 1024 + 5 + 10); // the link counts its own size
    EXPECT_EQ(progress.completed, progress.expected);
    EXPECT_FALSE(hasStaging(tree / "dst"));
}

TEST(TransferCopy, namedPipeStopsTheFolderCopyWithoutOpeningIt)
{
    TestTree tree;
    tree.file("src/box/a.txt", "a");
    ASSERT_EQ(::mkfifo((tree / "src/box/pipe").c_str(), 0644), 0);
    tree.folder("dst");
    const std::string message = failure([&] {
        FileOperations().transfer({tree / "src/box"}, tree / "dst", false, ConflictPolicy::stop, false);
    });
    EXPECT_EQ(message, wrapped("Copying \u2018box\u2019",
                               "Unsupported special file: " + (tree / "src/box/pipe").string(),
                               "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

TEST(TransferCopy, aSocketIsRefusedAsASpecialFile)
{
    TestTree tree;
    tree.folder("dst");
    const fs::path socketPath = tree / "sock";
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.native().size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, socketPath.c_str());
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ::close(socket);
    EXPECT_EQ(failure([&] {
                  FileOperations().transfer({socketPath}, tree / "dst", false, ConflictPolicy::stop, false);
              }),
              wrapped("Copying \u2018sock\u2019", "Unsupported special file: " + socketPath.string(),
                      "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

TEST(TransferCopy, cancellationStopsWithinOneChunkAndLeavesNoStaging)
{
    TestTree tree;
    tree.file("src/big.bin", pattern(8 * 1024 * 1024));
    tree.folder("dst");
    OperationControl control;
    const FileOperations operations = afterFirstChunk([&] { control.cancel(); });
    const LogMark mark;
    EXPECT_THROW(operations.transfer({tree / "src/big.bin"}, tree / "dst", false, ConflictPolicy::stop,
                                     control, false),
                 CancellationError);
    EXPECT_EQ(control.progress().completed, 1024 * 1024);
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
    const std::vector<std::string> lines = mark.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[1], testing::StartsWith("TRANSFER FAILED phase=Copying \u2018big.bin\u2019 source=" +
                                              (tree / "src/big.bin").string() +
                                              " destination=" + (tree / "dst/big.bin").string() +
                                              " staging=" + (tree / "dst/.quillorn-").string()));
    EXPECT_THAT(lines[1], HasSubstr(" error=Quillorn.CancellationError code=1: "));
}

TEST(TransferCopy, stagingNamesAreUpperCaseVersionFourIdentifiers)
{
    TestTree tree;
    tree.file("src/big.bin", pattern(2 * 1024 * 1024));
    tree.folder("dst");
    std::string staging;
    const FileOperations operations = afterFirstChunk([&] {
        for (const auto &entry : fs::directory_iterator(tree / "dst"))
            staging = entry.path().filename().string();
    });
    operations.transfer({tree / "src/big.bin"}, tree / "dst", false, ConflictPolicy::stop, false);
    EXPECT_TRUE(std::regex_match(staging, std::regex("\\.quillorn-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                     "[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << staging;
}

class SourceChange : public testing::TestWithParam<std::function<void(const fs::path &)>> {};

TEST_P(SourceChange, duringTheCopyFailsAndPublishesNothing)
{
    TestTree tree;
    const fs::path source = tree.file("src/big.bin", pattern(4 * 1024 * 1024));
    tree.folder("dst");
    const FileOperations operations = afterFirstChunk([&] { GetParam()(source); });
    const std::string message =
        failure([&] { operations.transfer({source}, tree / "dst", false, ConflictPolicy::stop, false); });
    EXPECT_EQ(message,
              wrapped("Copying \u2018big.bin\u2019",
                      "The source changed during copying: big.bin. Retry when it is no longer being edited.",
                      "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

std::string sourceChangeName(const testing::TestParamInfo<SourceChange::ParamType> &info)
{
    static const char *const names[] = {"appended", "truncated", "replaced"};
    return names[info.index];
}

INSTANTIATE_TEST_SUITE_P(
    AppendedTruncatedReplaced, SourceChange,
    testing::Values([](const fs::path &source) { std::ofstream(source, std::ios::app) << "more"; },
                    [](const fs::path &source) { fs::resize_file(source, 10); },
                    [](const fs::path &source) {
                        // Same size, and the same modification time as far as a second tells.
                        const fs::path other = source.parent_path() / "other";
                        fs::copy_file(source, other);
                        fs::last_write_time(other, fs::last_write_time(source));
                        fs::rename(other, source);
                    }),
    sourceChangeName);

TEST(TransferCopy, copyingOntoAHardLinkOfItselfKeepsItsBytes)
{
    TestTree tree;
    const fs::path source = tree.file("src/a.txt", "precious bytes");
    tree.folder("dst");
    fs::create_hard_link(source, tree / "dst/a.txt");
    FileOperations().transfer({source}, tree / "dst", false, ConflictPolicy::replace, false);
    EXPECT_EQ(TestTree::read(source), "precious bytes");
    EXPECT_EQ(TestTree::read(tree / "dst/a.txt"), "precious bytes");
    struct stat original {
    }, published{};
    ::lstat(source.c_str(), &original);
    ::lstat((tree / "dst/a.txt").c_str(), &published);
    EXPECT_NE(original.st_ino, published.st_ino); // a fresh copy; the old link went to the Trash
}

// ---- failures at the commit points ----------------------------------------------

TEST(TransferFaults, failedPublishingRenameLeavesNothingAndKeepsEarlierItems)
{
    TestTree tree;
    tree.file("src/a.txt", "A");
    tree.file("src/b.txt", "B");
    tree.folder("dst");
    const FileOperations operations = withManager([](FileOperations::FileManager &manager) {
        manager.rename = [rename = manager.rename](const fs::path &from, const fs::path &to) {
            if (to.filename() == "b.txt")
                quillorn::throwPosixError(from, EIO);
            rename(from, to);
        };
    });
    const LogMark mark;
    const std::string message = failure([&] {
        operations.transfer({tree / "src/a.txt", tree / "src/b.txt"}, tree / "dst", false,
                            ConflictPolicy::stop, false);
    });
    EXPECT_EQ(message,
              wrapped("Publishing \u2018b.txt\u2019 at the destination", "Input/output error", "POSIX 5"));
    EXPECT_THAT(fs::directory_iterator(tree / "dst")->path(), tree / "dst/a.txt");
    EXPECT_FALSE(fs::exists(tree / "dst/b.txt"));
    EXPECT_FALSE(hasStaging(tree / "dst"));
    const std::vector<std::string> lines = mark.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[2],
                testing::MatchesRegex("TRANSFER FAILED phase=Publishing \u2018b.txt\u2019 at the destination "
                                      "source=.*/src/b.txt destination=.*/dst/b.txt "
                                      "staging=(.*/dst/.quillorn-[-0-9A-F]+) error=POSIX code=5: "
                                      "Input/output error path=.*/dst/.quillorn-[-0-9A-F]+"));
}

TEST(TransferFaults, failedFlushOfAFileOrAFolderPublishesNothing)
{
    TestTree tree;
    tree.file("src/a.txt", "A");
    tree.file("src/box/inner.txt", "I");
    tree.folder("dst");
    const FileOperations operations = withManager([](FileOperations::FileManager &manager) {
        const auto fail = [](int, const fs::path &item) { quillorn::throwPosixError(item, EIO); };
        manager.flush = fail;
        manager.flushVolume = fail;
    });
    EXPECT_EQ(failure([&] {
                  operations.transfer({tree / "src/a.txt"}, tree / "dst", false, ConflictPolicy::stop, false);
              }),
              wrapped("Copying \u2018a.txt\u2019", "Input/output error", "POSIX 5"));
    EXPECT_EQ(failure([&] {
                  operations.transfer({tree / "src/box"}, tree / "dst", false, ConflictPolicy::stop, false);
              }),
              wrapped("Copying \u2018box\u2019", "Input/output error", "POSIX 5"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

TEST(TransferFaults, cancellingBetweenItemsKeepsTheFinishedOnesAndLogsNothingMore)
{
    TestTree tree;
    tree.file("src/a.txt", "A");
    tree.file("src/b.txt", "B");
    tree.folder("dst");
    OperationControl control;
    const FileOperations operations = withManager([&control](FileOperations::FileManager &manager) {
        manager.rename = [&control, rename = manager.rename](const fs::path &from, const fs::path &to) {
            rename(from, to);
            control.cancel();
        };
    });
    const LogMark mark;
    EXPECT_THROW(operations.transfer({tree / "src/a.txt", tree / "src/b.txt"}, tree / "dst", false,
                                     ConflictPolicy::stop, control, false),
                 CancellationError);
    EXPECT_THAT(names(tree / "dst"), ElementsAre("a.txt"));
    const std::vector<std::string> lines = mark.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "TRANSFER ITEM COMPLETE phase=copy target=" + (tree / "dst/a.txt").string());
}

TEST(TransferFaults, failedRenameOnOneVolumeLeavesBothSidesAlone)
{
    TestTree tree;
    const fs::path source = tree.file("src/a.txt", "A");
    tree.folder("dst");
    const FileOperations operations = withManager([](FileOperations::FileManager &manager) {
        manager.rename = [](const fs::path &from, const fs::path &) {
            quillorn::throwPosixError(from, EACCES);
        };
    });
    const LogMark mark;
    EXPECT_EQ(
        failure([&] { operations.transfer({source}, tree / "dst", true, ConflictPolicy::stop, false); }),
        wrapped("Moving \u2018a.txt\u2019 on the same volume", "Permission denied", "POSIX 13"));
    EXPECT_EQ(TestTree::read(source), "A");
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
    EXPECT_THAT(mark.lines(),
                ElementsAre(testing::StartsWith("TRANSFER BEGIN mode=move "),
                            "TRANSFER FAILED phase=Moving \u2018a.txt\u2019 on the same volume source=" +
                                source.string() + " destination=" + (tree / "dst/a.txt").string() +
                                " error=POSIX code=13: Permission denied path=" + source.string()));
}

// ---- moves --------------------------------------------------------------------

// Names created in or moved into a folder while it is watched.
class FolderWatch {
public:
    explicit FolderWatch(const fs::path &folder) : m_descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        ::inotify_add_watch(m_descriptor, folder.c_str(), IN_CREATE | IN_MOVED_TO);
    }
    ~FolderWatch() { ::close(m_descriptor); }

    std::vector<std::string> arrivals() const
    {
        std::vector<std::string> names;
        alignas(inotify_event) char buffer[8192];
        for (ssize_t length; (length = ::read(m_descriptor, buffer, sizeof buffer)) > 0;)
            for (char *at = buffer; at < buffer + length;) {
                const auto *event = reinterpret_cast<const inotify_event *>(at);
                names.emplace_back(event->len ? event->name : "");
                at += sizeof(inotify_event) + event->len;
            }
        return names;
    }

private:
    int m_descriptor;
};

TEST(TransferMove, withinOneVolumeIsOneRenameWithoutStaging)
{
    TestTree tree;
    tree.file("src/box/a.txt", "abc");
    tree.folder("dst");
    std::vector<std::pair<fs::path, fs::path>> renames;
    const FileOperations operations = withManager([&](FileOperations::FileManager &manager) {
        manager.rename = [&renames, rename = manager.rename](const fs::path &from, const fs::path &to) {
            renames.emplace_back(from, to);
            rename(from, to);
        };
    });
    const FolderWatch watch(tree / "dst");
    const LogMark mark;
    OperationControl control;
    const auto result =
        operations.transfer({tree / "src/box"}, tree / "dst", true, ConflictPolicy::stop, control, false);
    EXPECT_THAT(result, ElementsAre(tree / "dst/box"));
    EXPECT_THAT(renames, ElementsAre(std::pair(tree / "src/box", tree / "dst/box")));
    EXPECT_THAT(watch.arrivals(), ElementsAre("box"));
    EXPECT_FALSE(fs::exists(tree / "src/box"));
    EXPECT_EQ(control.progress().completed, 3);
    EXPECT_THAT(mark.lines(), testing::Contains("TRANSFER ITEM COMPLETE phase=rename target=" +
                                                (tree / "dst/box").string()));
}

TEST(TransferMove, keepBothInItsOwnFolderRenamesBesideIt)
{
    TestTree tree;
    tree.file("a.txt", "A");
    FileOperations().transfer({tree / "a.txt"}, tree.root(), true, ConflictPolicy::keepBoth, false);
    EXPECT_FALSE(fs::exists(tree / "a.txt"));
    EXPECT_EQ(TestTree::read(tree / "a (2).txt"), "A");
}

TEST(TransferMove, replacingCopiesThenTrashesTheOldItemAndTheSource)
{
    TestTree tree;
    tree.file("src/a.txt", "new");
    tree.file("dst/a.txt", "old");
    const LogMark mark;
    FileOperations().transfer({tree / "src/a.txt"}, tree / "dst", true, ConflictPolicy::replace, false);
    EXPECT_EQ(TestTree::read(tree / "dst/a.txt"), "new");
    EXPECT_FALSE(fs::exists(tree / "src/a.txt"));
    EXPECT_THAT(mark.lines(), testing::Contains("TRANSFER ITEM COMPLETE phase=copy target=" +
                                                (tree / "dst/a.txt").string()));
}

TEST(TransferMove, sourceFolderChangedWhileCopyingIsPreserved)
{
    TestTree tree;
    tree.file("src/box/big.bin", pattern(2 * 1024 * 1024));
    tree.file("dst/box/old.txt", "old");
    const FileOperations operations = afterFirstChunk([&] { tree.file("src/box/late.txt", "late"); });
    const std::string message = failure(
        [&] { operations.transfer({tree / "src/box"}, tree / "dst", true, ConflictPolicy::replace, false); });
    EXPECT_EQ(message,
              wrapped("Verifying \u2018box\u2019",
                      "The source folder changed while copying. The move was stopped and the source was "
                      "preserved.",
                      "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::exists(tree / "src/box/big.bin"));
    EXPECT_TRUE(fs::exists(tree / "src/box/late.txt"));
    EXPECT_EQ(TestTree::read(tree / "dst/box/old.txt"), "old");
    EXPECT_FALSE(hasStaging(tree / "dst"));
}

} // namespace
