// ctest-labels: root
// The rename that never replaces, on volumes that refuse RENAME_NOREPLACE (FUSE
// daemons answer EINVAL): an item another program makes in the last instant
// survives, and moves to free names still work.
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"
#include "platform/posix/volume.h"

#include "heldcall.h"
#include "scopedmount.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <optional>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using namespace quillorn::test;
using namespace ::testing;

namespace {

ino_t inode(const fs::path &item)
{
    struct stat info {};
    return ::lstat(item.c_str(), &info) == 0 ? info.st_ino : 0;
}

// A bindfs view of a plain folder: a FUSE volume without RENAME_NOREPLACE.
class WithoutNoReplace : public Test {
protected:
    void SetUp() override
    {
        if (!runningAsRoot())
            GTEST_SKIP() << "mounting a FUSE volume needs root";
        if (runCommand("command -v bindfs && command -v strace").find("strace") == std::string::npos)
            GTEST_SKIP() << "needs bindfs and strace (packages bindfs, strace)";
        m_volume.emplace(ScopedMount::byCommand("bindfs " + shellQuote(m_tree.folder("backing")) + " " +
                                                    shellQuote(m_tree.folder("volume")),
                                                m_tree / "volume"));
        const fs::path probe = m_tree.file("volume/probe");
        if (::renameat2(AT_FDCWD, probe.c_str(), AT_FDCWD, (volume() / "probed").c_str(), RENAME_NOREPLACE) ==
            0)
            GTEST_SKIP() << "this bindfs honours RENAME_NOREPLACE, so the fallback is never reached";
        ASSERT_EQ(errno, EINVAL);
        fs::remove(probe);
    }
    fs::path volume() const { return m_tree / "volume"; }

    // Moves from to to in another process whose rename or link into to's folder is
    // held; meanwhile, theirs() makes an item of this process's own at to. The
    // driver's exit status and message.
    std::pair<int, std::string> race(const fs::path &from, const fs::path &to,
                                     const std::function<void()> &theirs)
    {
        const fs::path driver = fs::read_symlink("/proc/self/exe").parent_path() / "rename_driver";
        HeldCall held({driver, from, to}, to.parent_path(), std::chrono::seconds(2), m_tree / "driver.out");
        if (!held.waitForCall()) {
            ADD_FAILURE() << "the driver never renamed into " << to.parent_path() << ": "
                          << held.finish().second;
            return {};
        }
        theirs();
        EXPECT_TRUE(held.stillHeld()) << "the item was made after the window closed: the machine is too slow";
        return held.finish();
    }

    TestTree m_tree;
    std::optional<ScopedMount> m_volume;
};

TEST_F(WithoutNoReplace, aFileMadeAtTheNameInTheLastInstantIsNeverReplaced)
{
    const fs::path from = m_tree.file("volume/from/ours.txt", "ours"),
                   to = m_tree.folder("volume/to") / "item";
    ino_t made = 0;
    const auto [status, message] = race(from, to, [&] {
        const int file = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        ASSERT_GE(file, 0) << std::strerror(errno);
        ASSERT_EQ(::write(file, "theirs", 6), 6);
        ::close(file);
        made = inode(to);
    });
    EXPECT_EQ(status, 1);
    EXPECT_EQ(message, "17: File exists\n");
    EXPECT_EQ(TestTree::read(to), "theirs");
    EXPECT_EQ(inode(to), made);
    EXPECT_EQ(TestTree::read(from), "ours");
    EXPECT_THAT(TestTree::names(volume() / "to"), ElementsAre("item"));
}

TEST_F(WithoutNoReplace, anEmptyFolderMadeAtTheNameInTheLastInstantIsNeverReplaced)
{
    // rename(2) replaces an empty folder silently, so only an empty one is at risk.
    const fs::path from = m_tree.folder("volume/from/box"), to = m_tree.folder("volume/to") / "box";
    m_tree.file("volume/from/box/inside.txt", "inside");
    std::optional<ino_t> made;
    int refusal = 0;
    const auto [status, message] = race(from, to, [&] {
        if (::mkdir(to.c_str(), 0755) == 0)
            made = inode(to);
        else
            refusal = errno;
    });
    EXPECT_THAT(TestTree::names(volume() / "to"), ElementsAre("box"));
    if (made) {
        // Theirs came first: it stays, and the move is refused.
        EXPECT_EQ(std::pair(status, message), std::pair(1, std::string("17: File exists\n")));
        EXPECT_EQ(inode(to), *made) << "the folder made meanwhile was replaced";
        EXPECT_TRUE(fs::is_empty(to));
        EXPECT_EQ(TestTree::read(from / "inside.txt"), "inside");
    } else {
        // The move held the name first: the other program was told it is taken.
        EXPECT_EQ(refusal, EEXIST);
        EXPECT_EQ(std::pair(status, message), std::pair(0, std::string()));
        EXPECT_EQ(TestTree::read(to / "inside.txt"), "inside");
        EXPECT_FALSE(fs::exists(from));
    }
}

// Moves within one volume to free and taken names; afterwards the destination
// holds exactly the expected names, so no placeholder or second name is left.
// fusefat loses the entries of any folder it renames and has no symbolic links.
void expectMovesToFreeNamesOnlyAndNothingLeftBehind(TestTree &tree, const fs::path &volume, bool fat)
{
    const fs::path to = tree.folder(volume / "to");
    tree.file(volume / "from/file.txt", "file");
    tree.file(volume / "from/folder/inside.txt", "inside");
    renameWithoutReplacing(volume / "from/file.txt", to / "file.txt");
    renameWithoutReplacing(volume / "from/folder", to / "folder");
    EXPECT_EQ(TestTree::read(to / "file.txt"), "file");
    EXPECT_TRUE(fs::is_empty(volume / "from"));
    if (!fat) {
        EXPECT_EQ(TestTree::read(to / "folder/inside.txt"), "inside");
        tree.symlink(volume / "from/dangling", "nowhere");
        renameWithoutReplacing(volume / "from/dangling", to / "dangling");
        EXPECT_EQ(fs::read_symlink(to / "dangling"), "nowhere");
    }

    tree.file(volume / "from/file.txt", "second file");
    tree.file(volume / "from/folder/other.txt", "second folder");
    tree.folder(volume / "to/empty");
    const ino_t empty = inode(to / "empty");
    for (const auto &[source, target] : std::vector<std::pair<fs::path, fs::path>>{{"file.txt", "file.txt"},
                                                                                   {"file.txt", "folder"},
                                                                                   {"file.txt", "empty"},
                                                                                   {"folder", "folder"},
                                                                                   {"folder", "file.txt"},
                                                                                   {"folder", "empty"}}) {
        try {
            renameWithoutReplacing(volume / "from" / source, to / target);
            ADD_FAILURE() << source << " replaced " << target;
        } catch (const PosixError &error) {
            EXPECT_EQ(error.code().value(), EEXIST) << source << " onto " << target;
        }
    }
    EXPECT_EQ(TestTree::read(volume / "from/file.txt"), "second file");
    EXPECT_EQ(TestTree::read(volume / "from/folder/other.txt"), "second folder");
    EXPECT_EQ(inode(to / "empty"), empty);
    EXPECT_TRUE(fs::is_empty(to / "empty"));
    std::vector<std::string> expected{"empty", "file.txt", "folder"};
    if (!fat)
        expected.insert(expected.begin(), "dangling");
    EXPECT_EQ(TestTree::names(to), expected);
}

TEST_F(WithoutNoReplace, filesMoveByASecondNameAndFoldersOntoAPlaceholder)
{
    expectMovesToFreeNamesOnlyAndNothingLeftBehind(m_tree, volume(), false);
}

TEST(WithoutNoReplaceOrLinks, onFatMovesStillWorkAndTakenNamesAreRefused)
{
    // FAT through fusefat refuses RENAME_NOREPLACE, hard links and renaming onto
    // a folder alike, so it takes the last fallback. Its names refuse Windows
    // characters and ignore letter case, in every folder of it.
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting a FUSE volume needs root";
    TestTree tree;
    const fs::path where = tree.folder("fat");
    std::optional<ScopedMount> volume;
    try {
        volume.emplace(ScopedMount::fat(tree / "fat.img", where));
    } catch (const std::exception &error) {
        GTEST_SKIP() << error.what();
    }
    EXPECT_EQ(volumeNaming(where), (VolumeNaming{true, true}));
    EXPECT_EQ(volumeNaming(tree.folder("fat/sub")), (VolumeNaming{true, true}));
    fs::remove(where / "sub");
    const fs::path probe = tree.file("fat/probe");
    ASSERT_NE(::link(probe.c_str(), (where / "linked").c_str()), 0) << "this FAT has hard links";
    fs::remove(probe);
    expectMovesToFreeNamesOnlyAndNothingLeftBehind(tree, where, true);
}

} // namespace
