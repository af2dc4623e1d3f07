#include "operationstesting.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <thread>

namespace {

// The default services, with afterChunk() run after the first chunk copied and
// beforeRename(from, to) before each rename (from empty when a file written
// with no name is named).
FileOperations hooked(
    std::function<void()> afterChunk,
    std::function<void(const fs::path &, const fs::path &)> beforeRename = [](auto &, auto &) {})
{
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    manager.rename = [beforeRename, rename = manager.rename](const Folder &from, const std::string &fromName,
                                                             const Folder &to, const std::string &toName) {
        beforeRename(from / fromName, to / toName);
        rename(from, fromName, to, toName);
    };
    manager.name = [beforeRename, name = manager.name](int descriptor, const Folder &to,
                                                       const std::string &toName) {
        beforeRename({}, to / toName);
        name(descriptor, to, toName);
    };
    manager.copyChunk = [afterChunk, copy = manager.copyChunk, calls = 0](auto &&...arguments) mutable {
        const std::size_t count = copy(arguments...);
        if (++calls == 1)
            afterChunk();
        return count;
    };
    return FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                          FileOperations::defaultVolumeIsLocal(), manager);
}

// A folder's files are made under their names, a lone file with no name until
// it is published: both ways carry the same metadata. The destination hands a
// default ACL to what is made in it, which a copy of a file without one drops.
TEST(TransferCopy, treeAndLoneFileArriveWithHiddenFilesLinksModesDatesAndExtendedAttributes)
{
    TestTree tree;
    tree.file("src/box/.hidden", "h");
    tree.symlink("src/box/dangling", "../nowhere");
    const fs::path data = tree.file("src/box/sub/data.bin", pattern(3 * 1024 * 1024 + 5)),
                   lone = tree.file("src/lone.bin", "lone"), plain = tree.file("src/plain.txt", "plain"),
                   dst = tree.folder("dst");
    const auto metadata = [](const fs::path &item) {
        return runCommand("getfacl -cp " + shellQuote(item) + "; getfattr --only-values -n user.colour " +
                          shellQuote(item) + " 2>/dev/null");
    };
    const timespec stamp[2] = {{1'600'000'000, 123'456'789}, {1'500'000'000, 987'654'321}};
    for (const fs::path &file : {data, lone}) {
        ::chmod(file.c_str(), 0640);
        runCommand("setfacl -m u:nobody:rw " + shellQuote(file) + "; setfattr -n user.colour -v blue " +
                   shellQuote(file));
        ASSERT_THAT(metadata(file), AllOf(HasSubstr("user:nobody:rw-"), EndsWith("blue")));
    }
    runCommand("setfacl -d -m u:nobody:rwx " + shellQuote(dst));
    for (const fs::path &item : {data, data.parent_path(), tree / "src/box", lone, plain})
        ::utimensat(AT_FDCWD, item.c_str(), stamp, 0);
    OperationControl control;
    FileOperations().transfer({tree / "src/box", lone, plain}, dst, false, stop, control, false);
    EXPECT_THAT(contents(tree / "dst/box"),
                ElementsAre(Pair(".hidden", "h"), Pair("dangling", ""), Pair("sub", "/")));
    EXPECT_EQ(fs::read_symlink(tree / "dst/box/dangling"), "../nowhere");
    EXPECT_EQ(TestTree::read(tree / "dst/box/sub/data.bin"), pattern(3 * 1024 * 1024 + 5));
    EXPECT_EQ(TestTree::read(tree / "dst/lone.bin"), "lone");
    for (const char *item : {"box/sub/data.bin", "box/sub", "box", "lone.bin", "plain.txt"}) {
        struct stat source {
        }, copy{};
        ::lstat((tree / "src" / item).c_str(), &source);
        ::lstat((tree / "dst" / item).c_str(), &copy);
        EXPECT_EQ(std::tuple(copy.st_mode, copy.st_mtim.tv_sec, copy.st_mtim.tv_nsec),
                  std::tuple(source.st_mode, 1'500'000'000L, 987'654'321L))
            << item;
        if (S_ISREG(source.st_mode)) {
            EXPECT_EQ(metadata(tree / "dst" / item), metadata(tree / "src" / item)) << item;
        }
    }
    EXPECT_THAT(metadata(tree / "dst/plain.txt"), Not(HasSubstr("nobody")));
    EXPECT_EQ(control.progress().expected,
              1 + 3 * 1024 * 1024 + 5 + 10 + 4 + 5); // the link counts its own size
    EXPECT_EQ(control.progress().completed, control.progress().expected);
}

TEST(TransferCopy, symbolicLinksKeepTheirOwnModificationTimeToTheNanosecond)
{
    TestTree tree;
    const timespec stamp[2] = {{1'400'000'000, 111'111'111}, {1'300'000'000, 222'222'222}};
    const auto stamped = [&](const fs::path &link) {
        EXPECT_EQ(::utimensat(AT_FDCWD, link.c_str(), stamp, AT_SYMLINK_NOFOLLOW), 0) << link;
        return link;
    };
    const auto modified = [](const fs::path &link) {
        struct stat info {};
        EXPECT_EQ(::lstat(link.c_str(), &info), 0) << link;
        EXPECT_TRUE(S_ISLNK(info.st_mode)) << link;
        return std::pair(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
    };
    const std::pair expected(1'300'000'000L, 222'222'222L);
    stamped(tree.symlink("src/box/inner", "../elsewhere"));
    const fs::path alone = stamped(tree.symlink("src/alone", "box"));
    transfer({tree / "src/box", alone}, tree.folder("dst"));
    EXPECT_EQ(modified(tree / "dst/box/inner"), expected);
    EXPECT_EQ(modified(tree / "dst/alone"), expected);
    EXPECT_EQ(modified(tree / "src/box/inner"), expected) << "the source link was touched";

    // A move to another volume is a copy too.
    MOUNT_OR_SKIP(volume, "tmpfs", tree.folder("volume"), "size=1m");
    transfer({tree / "src/box", alone}, volume->path(), true);
    EXPECT_EQ(modified(volume->path() / "box/inner"), expected);
    EXPECT_EQ(modified(volume->path() / "alone"), expected);
}

TEST(TransferCopy, namedPipeStopsTheFolderCopyWithoutOpeningIt)
{
    TestTree tree;
    ASSERT_EQ(::mkfifo((tree.folder("src/box") / "pipe").c_str(), 0644), 0);
    EXPECT_EQ(failure([&] { transfer({tree / "src/box"}, tree.folder("dst")); }),
              wrapped("Copying \u2018box\u2019",
                      "Unsupported special file: " + (tree / "src/box/pipe").string(),
                      "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

TEST(TransferCopy, cancellingWithinAChunkOrBetweenItemsKeepsOnlyFinishedItems)
{
    for (const bool withinChunk : {true, false}) {
        TestTree tree;
        OperationControl control;
        const fs::path dst = tree.folder("dst"), source = tree.file("src/a.bin", pattern(3 * 1024 * 1024));
        const auto cancel = [&](auto &&...) { control.cancel(); };
        const FileOperations operations = withinChunk ? hooked(cancel) : hooked([] {}, cancel);
        const auto logged = logMark();
        EXPECT_THROW(operations.transfer({source, tree.file("src/b.txt")}, dst, false, stop, control, false),
                     CancellationError);
        EXPECT_THAT(contents(dst), SizeIs(withinChunk ? 0 : 1));
        EXPECT_EQ(control.progress().completed, withinChunk ? 1024 * 1024 : 3 * 1024 * 1024);
        EXPECT_THAT(
            logged().back(),
            StartsWith(withinChunk
                           ? "TRANSFER FAILED phase=Copying \u2018a.bin\u2019 source=" + source.string() +
                                 " destination=" + (dst / "a.bin").string() + " staging=unnamed"
                           : "TRANSFER ITEM COMPLETE phase=copy target=" + (dst / "a.bin").string()));
    }
}

TEST(TransferCopy, aSourceReplacedDuringTheCopyByOneOfTheSameSizeAndSecondPublishesNothing)
{
    TestTree tree;
    const fs::path source = tree.file("src/big.bin", pattern(4 * 1024 * 1024)), other = tree / "other";
    const auto replaceSource = [&] {
        fs::copy_file(source, other);
        fs::last_write_time(other, fs::last_write_time(source));
        fs::rename(other, source);
    };
    EXPECT_EQ(failure([&] { transfer({source}, tree.folder("dst"), false, stop, hooked(replaceSource)); }),
              wrapped("Copying \u2018big.bin\u2019",
                      "The source changed during copying: big.bin. Retry when it is no longer being edited.",
                      "Quillorn.CommanderError 1"));
    EXPECT_TRUE(fs::is_empty(tree / "dst"));
}

TEST(TransferCopy, replacingAHardLinkOfTheSourceIsRefusedAsTheSameItem)
{
    TestTree tree;
    const fs::path source = tree.file("src/a.txt", "precious bytes");
    fs::create_hard_link(source, tree.folder("dst") / "a.txt");
    for (const bool move : {false, true})
        EXPECT_EQ(failure([&] { transfer({source}, tree / "dst", move, replace); }),
                  "Source and destination are the same item.");
    EXPECT_EQ(TestTree::read(tree / "dst/a.txt"), "precious bytes");
    EXPECT_TRUE(fs::equivalent(source, tree / "dst/a.txt"));
}

TEST(TransferMove, withinOneVolumeIsOneRenameWhoseFailureLeavesBothSidesAlone)
{
    TestTree tree;
    const fs::path box = tree.folder("src/box"), dst = tree.folder("dst");
    tree.file("src/box/a.txt", "abc");
    std::vector<std::pair<fs::path, fs::path>> renames;
    bool refuse = true;
    const FileOperations operations = hooked([] {},
                                             [&](const fs::path &from, const fs::path &to) {
                                                 renames.emplace_back(from, to);
                                                 if (refuse)
                                                     throwPosixError(from, EACCES);
                                             });
    const auto logged = logMark();
    EXPECT_EQ(failure([&] { transfer({box}, dst, true, stop, operations); }),
              wrapped("Moving \u2018box\u2019 on the same volume", box.string() + ": Permission denied",
                      "POSIX 13"));
    EXPECT_TRUE(fs::is_empty(dst));
    EXPECT_EQ(logged().at(1), "TRANSFER FAILED phase=Moving \u2018box\u2019 on the same volume source=" +
                                  box.string() + " destination=" + (dst / "box").string() +
                                  " error=POSIX code=13: Permission denied path=" + box.string());
    refuse = false;
    transfer({box}, dst, true, stop, operations);
    EXPECT_THAT(renames, ElementsAre(std::pair(box, dst / "box"), std::pair(box, dst / "box")));
    EXPECT_THAT(logged(), Contains("TRANSFER ITEM COMPLETE phase=rename target=" + (dst / "box").string()));
}

TEST(TransferMove, replacingASourceFolderThatChangesWhileCopiedPreservesBothSides)
{
    TestTree tree;
    tree.file("src/box/big.bin", pattern(2 * 1024 * 1024));
    tree.file("dst/box/old.txt", "old");
    EXPECT_EQ(
        failure([&] {
            transfer({tree / "src/box"}, tree / "dst", true, replace,
                     hooked([&] { tree.file("src/box/late.txt", "late"); }));
        }),
        wrapped("Verifying \u2018box\u2019",
                "The source folder changed while copying. The move was stopped and the source was preserved.",
                "Quillorn.CommanderError 1"));
    EXPECT_THAT(contents(tree / "src/box"), ElementsAre(Key("big.bin"), Key("late.txt")));
    EXPECT_THAT(contents(tree / "dst/box"), ElementsAre(Pair("old.txt", "old")));
}

// A file already copied is rewritten, same size, while the next one is copied;
// the folder's verification must see it however little else changed.
TEST(TransferMove, aFileRewrittenWithinTheSameSecondAfterItWasCopiedStopsTheMove)
{
    for (const bool timeSetBack : {false, true}) {
        TestTree tree;
        tree.file("src/box/a.txt", "first");
        tree.file("src/box/b.txt", "other");
        tree.file("dst/box/old.txt", "old"); // replaced, so that the move copies
        fs::path rewritten;
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        manager.copyChunk = [&, copy = manager.copyChunk](int input, int output, std::size_t limit,
                                                          const fs::path &source, const fs::path &target) {
            if (rewritten.empty())
                rewritten = source;
            else if (source != rewritten && TestTree::read(rewritten) != "FIRST" &&
                     TestTree::read(rewritten) != "OTHER") {
                struct stat before {};
                EXPECT_EQ(::lstat(rewritten.c_str(), &before), 0);
                std::ofstream(rewritten, std::ios::binary | std::ios::trunc)
                    << (rewritten.filename() == "a.txt" ? "FIRST" : "OTHER");
                if (timeSetBack) {
                    const struct timespec times[2] = {before.st_atim, before.st_mtim};
                    EXPECT_EQ(::utimensat(AT_FDCWD, rewritten.c_str(), times, 0), 0);
                }
            }
            return copy(input, output, limit, source, target);
        };
        const FileOperations operations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                        FileOperations::defaultVolumeIsLocal(), manager);
        EXPECT_EQ(failure([&] { transfer({tree / "src/box"}, tree / "dst", true, replace, operations); }),
                  wrapped("Verifying \u2018box\u2019",
                          "The source folder changed while copying. The move was stopped and the source was "
                          "preserved.",
                          "Quillorn.CommanderError 1"))
            << "time set back: " << timeSetBack;
        EXPECT_THAT(contents(tree / "src/box"),
                    Contains(Pair(rewritten.filename().string(), AnyOf("FIRST", "OTHER"))));
        EXPECT_THAT(contents(tree / "dst/box"), ElementsAre(Pair("old.txt", "old")));
    }
}

// The size of the file this process is writing with no name in folder, or -1.
long long unnamedSize(const fs::path &folder)
{
    struct stat info {};
    const fs::path unnamed = unnamedFileIn(folder);
    return !unnamed.empty() && ::stat(unnamed.c_str(), &info) == 0 ? info.st_size : -1;
}

TEST(TransferPause, holdsItsUnnamedCopyStillThenFinishesOrCancelsCleanly)
{
    for (const bool resume : {true, false}) {
        TestTree tree;
        const fs::path source = tree.file("src/big.bin", pattern(8 * 1024 * 1024 + 3)),
                       dst = tree.folder("dst");
        OperationControl control;
        const FileOperations operations = hooked([&] { control.pause(); });
        auto worker = std::async(std::launch::async,
                                 [&] { operations.transfer({source}, dst, false, stop, control, false); });
        // Paused after the first chunk: the copy keeps its size, and nothing is
        // seen in the folder.
        while (control.progress().completed < static_cast<std::int64_t>(FileOperations::chunkSize))
            std::this_thread::yield();
        const long long held = unnamedSize(dst);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(unnamedSize(dst), held);
        EXPECT_EQ(held, static_cast<long long>(FileOperations::chunkSize));
        EXPECT_TRUE(fs::is_empty(dst));
        EXPECT_TRUE(control.isPaused());
        if (resume) {
            control.resume();
            EXPECT_NO_THROW(worker.get());
            EXPECT_THAT(contents(dst), ElementsAre(Pair("big.bin", pattern(8 * 1024 * 1024 + 3))));
        } else {
            control.cancel();
            EXPECT_THROW(worker.get(), CancellationError);
            EXPECT_TRUE(fs::is_empty(dst));
            EXPECT_EQ(unnamedSize(dst), -1);
        }
    }
}

TEST(TransferRecord, eachPublishedItemIsToldWhileItsMovedSourceIsStillThere)
{
    TestTree tree;
    MOUNT_OR_SKIP(volume, "tmpfs", tree.folder("volume"), "size=4m");
    const fs::path copied = tree.file("src/a.txt", "a"), moved = tree.file("src/b.txt", "b");
    std::vector<std::tuple<fs::path, fs::path, bool, bool>> told;
    OperationControl control;
    control.onPublished([&](const fs::path &source, const fs::path &target) {
        told.emplace_back(source, target, fs::exists(source), fs::exists(target));
    });
    FileOperations().transfer({copied}, volume->path(), false, stop, control, false);
    FileOperations().transfer({moved}, volume->path(), true, stop, control, false);
    const fs::path sub = volume->path() / "sub";
    fs::create_directory(sub);
    FileOperations().transfer({volume->path() / "b.txt"}, sub, true, stop, control, false); // a rename
    EXPECT_THAT(told, ElementsAre(std::tuple(copied, volume->path() / "a.txt", true, true),
                                  std::tuple(moved, volume->path() / "b.txt", true, true),
                                  std::tuple(volume->path() / "b.txt", sub / "b.txt", false, true)));
}

} // namespace
