// ctest-labels: root
#include "platform/posix/posixerror.h"
#include "platform/posix/trash.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::ScopedMount;
using quillorn::test::TestTree;

namespace {

// Each test gets its own small tmpfs, a volume apart from the home trash.
class VolumeTrash : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "mounting a test volume needs root";
        m_volume.emplace("tmpfs", m_tree.folder("volume"), "size=8m,mode=0755");
    }

    fs::path volume() const { return m_tree / "volume"; }
    fs::path own() const { return volume() / (".Trash-" + std::to_string(::geteuid())); }
    static unsigned mode(const fs::path &path)
    {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }

    TestTree m_tree;
    std::optional<ScopedMount> m_volume;
};

} // namespace

TEST_F(VolumeTrash, WithoutDotTrashAPrivateTrashIsCreatedAtTheTop)
{
    const fs::path item = m_tree.file("volume/sub/item", "data");

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed, own() / "files" / "item");
    EXPECT_EQ(TestTree::read(trashed), "data");
    EXPECT_EQ(mode(own()), 0700u);
    // Relative to the volume's top, so the entry survives the volume being
    // mounted elsewhere next time.
    const std::string info = TestTree::read(own() / "info" / "item.trashinfo");
    EXPECT_EQ(info.substr(0, info.find("DeletionDate")), "[Trash Info]\nPath=sub/item\n");
}

TEST_F(VolumeTrash, StickyDotTrashGetsAFolderPerUser)
{
    fs::create_directory(volume() / ".Trash");
    fs::permissions(volume() / ".Trash", static_cast<fs::perms>(01777));

    const fs::path trashed = trashItem(m_tree.file("volume/item"));

    const fs::path mine = volume() / ".Trash" / std::to_string(::geteuid());
    EXPECT_EQ(trashed, mine / "files" / "item");
    EXPECT_EQ(mode(mine), 0700u);
    EXPECT_TRUE(fs::exists(mine / "info" / "item.trashinfo"));
    EXPECT_FALSE(fs::exists(own()));
}

TEST_F(VolumeTrash, NonStickyDotTrashIsPassedOverUntouched)
{
    fs::create_directory(volume() / ".Trash");
    fs::permissions(volume() / ".Trash", static_cast<fs::perms>(0777));

    EXPECT_EQ(trashItem(m_tree.file("volume/item")), own() / "files" / "item");
    EXPECT_TRUE(fs::is_empty(volume() / ".Trash"));
}

TEST_F(VolumeTrash, SymlinkedDotTrashIsNeverFollowed)
{
    const fs::path elsewhere = m_tree.folder("volume/elsewhere");
    fs::permissions(elsewhere, static_cast<fs::perms>(01777));
    fs::create_directory_symlink("elsewhere", volume() / ".Trash");

    EXPECT_EQ(trashItem(m_tree.file("volume/item")), own() / "files" / "item");
    EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(VolumeTrash, SymlinkedPrivateTrashIsRefusedAndNothingIsCreatedThroughIt)
{
    const fs::path decoy = m_tree.folder("volume/decoy");
    fs::create_directory_symlink("decoy", own());
    const fs::path item = m_tree.file("volume/item", "stays");

    EXPECT_THROW(trashItem(item), NoTrashError);

    EXPECT_TRUE(fs::is_empty(decoy));
    EXPECT_EQ(TestTree::read(item), "stays");
}

TEST_F(VolumeTrash, PrivateTrashOfAnotherOwnerIsRefused)
{
    fs::create_directory(own());
    ASSERT_EQ(::chown(own().c_str(), 65534, 65534), 0);
    const fs::path item = m_tree.file("volume/item");

    EXPECT_THROW(trashItem(item), NoTrashError);
    EXPECT_TRUE(fs::is_empty(own()));
}

TEST_F(VolumeTrash, ReadOnlyVolumeHasNoTrash)
{
    const fs::path item = m_tree.file("volume/item", "stays");
    m_volume->makeReadOnly();

    try {
        trashItem(item);
        FAIL() << "trashing on a read-only volume succeeded";
    } catch (const NoTrashError &error) {
        EXPECT_STREQ(error.what(), "no Trash on this volume");
    }
    EXPECT_EQ(TestTree::read(item), "stays");
}

TEST_F(VolumeTrash, ReadOnlyVolumeWithAnExistingTrashHasNoTrashEither)
{
    fs::create_directories(own() / "files");
    fs::create_directories(own() / "info");
    const fs::path item = m_tree.file("volume/item", "stays");
    m_volume->makeReadOnly();

    EXPECT_THROW(trashItem(item), NoTrashError);
    EXPECT_TRUE(fs::is_empty(own() / "info"));
    EXPECT_EQ(TestTree::read(item), "stays");
}

TEST_F(VolumeTrash, SameNameTwiceOnAVolumeGivesTwoEntries)
{
    trashItem(m_tree.file("volume/a/same", "1"));
    trashItem(m_tree.file("volume/b/same", "2"));

    EXPECT_EQ(TestTree::read(own() / "files" / "same"), "1");
    EXPECT_EQ(TestTree::read(own() / "files" / "same.2"), "2");
    EXPECT_NE(TestTree::read(own() / "info" / "same.2.trashinfo").find("Path=b/same\n"), std::string::npos);
}

TEST_F(VolumeTrash, MountPointWithSpaceAndLineFeedIsFoundAsTheTop)
{
    const fs::path odd = m_tree.folder("volume/odd name\nhere");
    ScopedMount inner("tmpfs", odd, "size=1m");
    const fs::path item = m_tree.file("volume/odd name\nhere/item");

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed, odd / (".Trash-" + std::to_string(::geteuid())) / "files" / "item");
}

TEST_F(VolumeTrash, MountPointIsRefusedWithoutCreatingATrash)
{
    const fs::path inner = m_tree.folder("volume/inner");
    ScopedMount mounted("tmpfs", inner, "size=1m");

    try {
        trashItem(inner);
        FAIL() << "a mount point was trashed";
    } catch (const PosixError &error) {
        EXPECT_EQ(error.code().value(), EBUSY);
    }
    EXPECT_FALSE(fs::exists(own()));
}

TEST_F(VolumeTrash, BindMountOfTheHomeDeviceUsesItsOwnTopWhenRenameCannotCross)
{
    // Same device as the home trash, but rename(2) refuses to cross mounts.
    const fs::path source = m_tree.folder("source");
    const fs::path bound = m_tree.folder("bound");
    ScopedMount bind = ScopedMount::bind(source, bound);
    const fs::path data = m_tree.folder("data");
    struct Restore {
        const char *old = std::getenv("XDG_DATA_HOME");
        std::string previous = old ? old : "";
        ~Restore() { old ? ::setenv("XDG_DATA_HOME", previous.c_str(), 1) : ::unsetenv("XDG_DATA_HOME"); }
    } restore;
    ::setenv("XDG_DATA_HOME", data.c_str(), 1);
    const fs::path item = m_tree.file("bound/item", "via bind");

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed, bound / (".Trash-" + std::to_string(::geteuid())) / "files" / "item");
    EXPECT_EQ(TestTree::read(trashed), "via bind");
    EXPECT_TRUE(fs::is_empty(data / "Trash" / "info"));
}

namespace {

// A FUSE mount that reports itself as sshfs: the kind of volume that must not
// get trash folders created on it.
class RemoteTrash : public VolumeTrash {
protected:
    void SetUp() override
    {
        VolumeTrash::SetUp();
        if (IsSkipped())
            return;
        if (::access("/usr/bin/bindfs", X_OK) != 0)
            GTEST_SKIP() << "bindfs is not installed (package bindfs)";
        const fs::path share = m_tree.folder("share");
        m_share.emplace(ScopedMount::byCommand("bindfs -o subtype=sshfs " +
                                                   quillorn::test::shellQuote(volume().string()) + " " +
                                                   quillorn::test::shellQuote(share.string()),
                                               share));
    }
    fs::path share() const { return m_tree / "share"; }

    std::optional<ScopedMount> m_share;
};

} // namespace

TEST_F(RemoteTrash, ShareWithoutTrashHasNoTrashAndGetsNoneCreated)
{
    const fs::path item = m_tree.file("share/item", "remote");

    EXPECT_THROW(trashItem(item), NoTrashError);

    EXPECT_EQ(TestTree::read(item), "remote");
    EXPECT_FALSE(fs::exists(own()));
    EXPECT_FALSE(fs::exists(volume() / ".Trash"));
}

TEST_F(RemoteTrash, ShareWithAnExistingTrashUsesIt)
{
    fs::create_directory(own());
    fs::permissions(own(), fs::perms::owner_all);
    const fs::path item = m_tree.file("share/item", "remote");

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed, share() / own().filename() / "files" / "item");
    EXPECT_EQ(TestTree::read(own() / "files" / "item"), "remote");
}
