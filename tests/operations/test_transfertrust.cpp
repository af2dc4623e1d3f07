// ctest-labels: root
// What a transfer must never do to a user's data, each case on a real file system:
// aliases of the source, folders swapped for links mid-copy, flushes that only a
// FUSE daemon sees, drop boxes, file-size limits, sparse files and hard links.
#include "operationstesting.h"

#include "platform/posix/filedescriptor.h"
#include "platform/posix/renaming.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

namespace {

const std::string sameItem = "Source and destination are the same item.";

TEST(SameItem, replacingTheSourceReachedThroughABindMountALinkedFolderOrALinkIsRefused)
{
    TestTree tree;
    const fs::path real = tree.folder("real"), source = tree.file("real/x.txt", "only copy");
    MOUNT_OR_SKIP(alias, ScopedMount::bind(real, tree.folder("alias")));
    const fs::path linkedFolder = tree.symlink("linked", real);
    tree.symlink("dst/x.txt", source);
    for (const fs::path &destination : {alias->path(), linkedFolder, tree / "dst"})
        for (const bool move : {false, true}) {
            EXPECT_EQ(failure([&] { transfer({source}, destination, move, replace); }), sameItem)
                << destination;
            EXPECT_EQ(TestTree::read(source), "only copy") << destination;
        }
    EXPECT_TRUE(fs::is_symlink(tree / "dst/x.txt"));

    // A folder copied into itself through the alias would copy its own copy, on and on.
    tree.folder("real/box/sub");
    EXPECT_EQ(failure([&] { transfer({real / "box"}, alias->path() / "box/sub"); }),
              "Cannot transfer a folder into itself.");
    EXPECT_TRUE(fs::is_empty(real / "box/sub"));
}

TEST(SameItem, onACaseInsensitiveVolumeCaseOnlyRenamesWorkAndReplaceNeverTrashesTheItem)
{
    TestTree tree;
    const fs::path image = tree / "fat.img", where = tree.folder("fat");
    MOUNT_OR_SKIP(volume, ScopedMount::fat(image, where));
    fs::create_directory(where / "Sub");
    std::ofstream(where / "Sub/Notes.txt") << "notes";
    ASSERT_TRUE(fs::exists(where / "SUB/NOTES.TXT")) << "not a case-insensitive volume";

    EXPECT_EQ(failure([&] { transfer({where / "Sub/Notes.txt"}, where / "SUB", true, replace); }), sameItem);
    EXPECT_EQ(TestTree::read(where / "Sub/Notes.txt"), "notes");

    renameWithoutReplacing(where / "Sub/Notes.txt", where / "Sub/notes.txt");
    EXPECT_THAT(contents(where / "Sub"), ElementsAre(Pair("notes.txt", "notes")));
    std::ofstream(where / "Sub/other.txt") << "other";
    EXPECT_THROW(renameWithoutReplacing(where / "Sub/other.txt", where / "Sub/NOTES.txt"), PosixError);
    EXPECT_THAT(contents(where / "Sub"), ElementsAre(Pair("notes.txt", "notes"), Pair("other.txt", "other")));
}

// A copy opened inside the tree may only ever see what is inside; whether it then
// succeeds or stops does not matter, reading or publishing anything from outside does.
void expectNothingReadFromOutside(const fs::path &outside, const fs::path &dst,
                                  const std::function<void()> &copy)
{
    const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(watch.get(), outside.c_str(), IN_OPEN | IN_ACCESS), 0);
    try {
        copy();
    } catch (const std::exception &) {
    }
    char events[4096];
    EXPECT_LT(::read(watch.get(), events, sizeof events), 0) << "the copy opened something outside";
    for (const auto &entry : fs::recursive_directory_iterator(dst)) {
        if (fs::is_regular_file(entry.symlink_status())) {
            EXPECT_EQ(TestTree::read(entry.path()), "inside") << entry.path();
        }
    }
}

TEST(MountPoints, replacingAMountedShareLeavesItsFilesAndNothingHalfDone)
{
    TestTree tree;
    const fs::path backing = tree.folder("backing");
    tree.file("backing/keep.txt", "on the share");
    tree.file("src/share/new.txt", "new");
    const fs::path where = tree.folder("dst/share");
    MOUNT_OR_SKIP(share,
                  ScopedMount::byCommand(
                      "bindfs -o subtype=sshfs " + shellQuote(backing) + " " + shellQuote(where), where));
    for (const bool move : {false, true})
        EXPECT_THAT(
            failure([&] { transfer({tree / "src/share"}, tree / "dst", move, replace); }),
            StartsWith("Removing the existing destination \u2018share\u2019 failed: \u2018share\u2019 is "
                       "the mount point of another volume."));
    EXPECT_THAT(contents(where), ElementsAre(Pair("keep.txt", "on the share")));
    EXPECT_THAT(contents(tree / "dst"), ElementsAre(Key("share")));
    EXPECT_THAT(contents(tree / "src/share"), ElementsAre(Pair("new.txt", "new")));
}

TEST(SwappedLinks, aFolderSwappedForALinkDuringACopyNeverBringsInOutsideFiles)
{
    TestTree tree;
    // The same names outside, so a walk that looks names up by path finds them there.
    for (const char *name : {"f0", "f1"}) {
        tree.file(fs::path("src/box/sub") / name, "inside");
        tree.file(fs::path("outside") / name, "SECRET");
    }
    tree.symlink("src/box/lnk", tree / "outside");
    const fs::path box = tree / "src/box";
    const auto swap = [&] {
        return ::renameat2(AT_FDCWD, (box / "sub").c_str(), AT_FDCWD, (box / "lnk").c_str(), RENAME_EXCHANGE);
    };

    // Swapped once while a file below "sub" is copied.
    for (const int swapAt : {1, 2}) {
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        manager.copyChunk = [&, copy = manager.copyChunk, calls = 0](auto &&...arguments) mutable {
            if (++calls == swapAt) {
                EXPECT_EQ(swap(), 0);
            }
            return copy(arguments...);
        };
        const FileOperations operations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                        FileOperations::defaultVolumeIsLocal(), manager);
        const fs::path dst = tree.folder("hooked" + std::to_string(swapAt));
        expectNothingReadFromOutside(tree / "outside", dst,
                                     [&] { transfer({box}, dst, false, stop, operations); });
        if (fs::is_symlink(box / "sub"))
            swap();
    }

    // Swapped back and forth by another program at any moment.
    std::jthread swapper([&](std::stop_token stop) {
        while (!stop.stop_requested()) {
            swap();
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    for (int attempt = 0; attempt < 100 && !HasFailure(); ++attempt) {
        const fs::path dst = tree.folder("raced" + std::to_string(attempt));
        expectNothingReadFromOutside(tree / "outside", dst, [&] { transfer({box}, dst); });
    }
}

TEST(FuseVolume, aFlushThatFailsInTheDaemonStopsTheFolderFromBeingPublished)
{
    TestTree tree;
    tree.file("src/box/a.txt", "a");
    tree.file("src/box/sub/b.txt", "b");
    const fs::path backing = tree.folder("backing"), where = tree.folder("fuse");
    // The daemon's own fsync fails: only a flush of each file reaches it.
    MOUNT_OR_SKIP(volume,
                  ScopedMount::byCommand("(strace -f -qq -o /dev/null -e inject=fsync,fdatasync:error=EIO "
                                         "bindfs -f " +
                                             shellQuote(backing) + " " + shellQuote(where) +
                                             " >/dev/null 2>&1 &) ; for i in $(seq 50); do "
                                             "mountpoint -q " +
                                             shellQuote(where) + " && exit 0; sleep 0.1; done; exit 1",
                                         where));
    EXPECT_THAT(failure([&] { transfer({tree / "src/box"}, where); }),
                HasSubstr("Input/output error (POSIX 5)"));
    EXPECT_TRUE(fs::is_empty(backing));
}

TEST(DropBox, publishingIntoAFolderTheUserMayWriteButNotReadSucceedsWithAWarning)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "needs root to make a drop box for the user nobody";
    TestTree tree;
    const fs::path box = tree.folder("dropbox"), src = tree.folder("src");
    for (const fs::path &folder : {tree.root(), src})
        fs::permissions(folder, fs::perms(0777));
    fs::permissions(box, fs::perms(01733));
    for (const char *name : {"copied.txt", "moved.txt"})
        fs::permissions(tree.file(fs::path("src") / name, name), fs::perms(0666));
    // The user's own log, since nobody may not write the test's.
    const fs::path data = tree.folder("data");
    fs::permissions(data, fs::perms(0777));
    const std::string prefix = "XDG_DATA_HOME=" + shellQuote(data) + " " + asNobody;
    const auto copied = drive(prefix, "copy", box, src / "copied.txt");
    if (copied.second.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << copied.second;
    EXPECT_EQ(copied, std::pair(0, std::string()));
    EXPECT_EQ(drive(prefix, "move", box, src / "moved.txt"), std::pair(0, std::string()));
    EXPECT_EQ(TestTree::read(box / "copied.txt"), "copied.txt");
    EXPECT_EQ(TestTree::read(box / "moved.txt"), "moved.txt");
    EXPECT_FALSE(fs::exists(src / "moved.txt"));
    EXPECT_EQ(runCommand("grep -c '^[^ ]* METADATA WARNING flush destination=" + box.string() +
                         " error=POSIX code=13: Permission denied' " +
                         shellQuote(data / "Quillorn/Logs/Quillorn.log")),
              "2\n");
}

// One rename moves a folder whole, as mv does, so a folder inside it that the
// user may not list must not refuse the move; a copy, which reads it all, fails.
TEST(UnreadableInside, aMoveWithinOneVolumeTakesAFolderTheUserCannotListAlong)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "needs root to act as the user nobody";
    TestTree tree;
    fs::permissions(tree.root(), fs::perms::all);
    const fs::path box = tree.folder("src/box"), dst = tree.folder("dst"), data = tree.folder("data");
    tree.file("src/box/plain.txt", "plain");
    const fs::path locked = tree.file("src/box/locked/secret.txt", "secret").parent_path();
    runCommand("chown -R nobody: " + shellQuote(tree.root()));
    ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
    const std::string prefix = "XDG_DATA_HOME=" + shellQuote(data) + " " + asNobody;
    const auto copied = drive(prefix, "copy", dst, box);
    if (copied.second.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << copied.second;
    EXPECT_EQ(copied, std::pair(3, locked.string() + ": Permission denied\n"));
    EXPECT_TRUE(fs::is_empty(dst));
    EXPECT_EQ(drive(prefix, "move", dst, box), std::pair(0, std::string()));
    EXPECT_FALSE(fs::exists(box));
    EXPECT_EQ(TestTree::read(dst / "box/plain.txt"), "plain");
    EXPECT_EQ(TestTree::read(dst / "box/locked/secret.txt"), "secret");
    EXPECT_EQ(fs::status(dst / "box/locked").permissions(), fs::perms::none);
}

TEST(FileSizeLimit, aFileAboveTheLimitFailsCleanlyInsteadOfKillingTheProgram)
{
    TestTree tree;
    const fs::path source = tree.file("src/big.bin", pattern(3 * 1024 * 1024)), dst = tree.folder("dst");
    const auto [status, errors] = drive("prlimit --fsize=1048576", "copy", dst, source);
    EXPECT_EQ(status, 1) << "128 + " << SIGXFSZ << " means the signal ended it";
    EXPECT_THAT(errors, HasSubstr("File too large (POSIX 27)"));
    EXPECT_TRUE(fs::is_empty(dst));
}

TEST(Fidelity, sparseFilesKeepTheirHolesAndHardLinksStayLinkedWithinTheTransfer)
{
    TestTree tree;
    const fs::path sparse = tree.file("src/box/disk.img");
    {
        std::fstream out(sparse, std::ios::in | std::ios::out | std::ios::binary);
        out.seekp(100 * 1024 * 1024);
        out << pattern(4096);
    }
    fs::resize_file(sparse, 256 * 1024 * 1024);
    const fs::path first = tree.file("src/box/a.txt", "linked");
    fs::create_hard_link(first, tree.folder("src/box/sub") / "b.txt");
    fs::create_hard_link(first, tree / "src/second.txt");
    fs::create_hard_link(first, tree / "src/a-lone.txt"); // copied first, on its own
    tree.file("src/box/c.txt", "linked");

    OperationControl control;
    FileOperations().transfer({tree / "src/box", tree / "src/second.txt", tree / "src/a-lone.txt"},
                              tree.folder("dst"), false, stop, control, false);
    struct stat copy {};
    ASSERT_EQ(::stat((tree / "dst/box/disk.img").c_str(), &copy), 0);
    EXPECT_EQ(copy.st_size, 256 * 1024 * 1024);
    EXPECT_LE(copy.st_blocks * 512, 1024 * 1024) << "the holes were filled in";
    EXPECT_EQ(runCommand("cmp " + shellQuote(sparse) + " " + shellQuote(tree / "dst/box/disk.img") +
                         " && echo same"),
              "same\n");
    EXPECT_TRUE(fs::equivalent(tree / "dst/box/a.txt", tree / "dst/box/sub/b.txt"));
    EXPECT_TRUE(fs::equivalent(tree / "dst/box/a.txt", tree / "dst/second.txt"));
    EXPECT_TRUE(fs::equivalent(tree / "dst/box/a.txt", tree / "dst/a-lone.txt"));
    EXPECT_FALSE(fs::equivalent(tree / "dst/box/a.txt", tree / "dst/box/c.txt"));
    EXPECT_FALSE(fs::equivalent(first, tree / "dst/box/a.txt"));
    EXPECT_EQ(control.progress().completed, control.progress().expected);
}

TEST(Fidelity, onAVolumeThatRefusesModesTheCopyIsNeverMoreOpenThanItsSource)
{
    TestTree tree;
    const fs::path backing = tree.folder("backing"), where = tree.folder("strict");
    MOUNT_OR_SKIP(volume, ScopedMount::byCommand(
                              "bindfs --chmod-deny " + shellQuote(backing) + " " + shellQuote(where), where));
    const std::vector<std::pair<std::string, fs::perms>> sources = {{"read-only.txt", fs::perms(0400)},
                                                                    {"private.txt", fs::perms(0600)},
                                                                    {"shared.txt", fs::perms(0644)}};
    std::vector<fs::path> paths;
    for (const auto &[name, mode] : sources) {
        paths.push_back(tree.file(fs::path("src") / name, name));
        fs::permissions(paths.back(), mode);
    }
    const auto logged = logMark();
    transfer(paths, where);
    for (const auto &[name, mode] : sources) {
        const fs::perms copied = fs::symlink_status(backing / name).permissions();
        EXPECT_EQ(copied & ~mode, fs::perms::none) << name << " is more open than its source";
        EXPECT_EQ(copied, mode & fs::perms::owner_all) << name;
    }
    EXPECT_THAT(logged(), Contains(StartsWith("METADATA WARNING attribute=permissions destination=" +
                                              (where / "shared.txt").string())));
}

TEST(ErrorTexts, failuresNameTheItemWhereTheUserWillLookAndTheSystemsReason)
{
    TestTree tree;
    for (int i = 0; i < 20; ++i)
        tree.file("src/box/f" + std::to_string(i), "x");
    MOUNT_OR_SKIP(volume, "tmpfs", tree.folder("volume"), "nr_inodes=8");
    const std::string message = failure([&] { transfer({tree / "src/box"}, volume->path()); });
    EXPECT_THAT(message, ContainsRegex("^Copying \u2018box\u2019 failed: Cannot create " +
                                       (volume->path() / "box").string() +
                                       "/f[0-9]+: No space left on device \\(Quillorn.CommanderError 1\\)"));
    EXPECT_TRUE(fs::is_empty(volume->path()));

    // Measuring cannot enter a folder: the user learns which one.
    const fs::path locked = tree.folder("src/box/locked");
    for (const fs::path &folder : {tree.root(), tree / "src", tree / "src/box"})
        fs::permissions(folder, fs::perms(0755));
    fs::permissions(locked, fs::perms(0700));
    const auto [status, errors] = drive(asNobody, "copy", tree.folder("nobody"), tree / "src/box");
    if (errors.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << errors;
    EXPECT_EQ(errors, locked.string() + ": Permission denied\n");
}

} // namespace
