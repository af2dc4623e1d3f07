// ctest-labels: root
#include "platform/posix/volume.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::runCommand;
using quillorn::test::ScopedMount;
using quillorn::test::shellQuote;
using quillorn::test::TestTree;

namespace {

bool contains(const std::vector<fs::path> &paths, const fs::path &path)
{
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

class Volumes : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "mounting test volumes needs root";
        if (::access("/usr/bin/bindfs", X_OK) != 0)
            GTEST_SKIP() << "bindfs is not installed (package bindfs)";
        // A FUSE mount that reports itself as sshfs, on a name with a space and a line feed.
        m_share.emplace(ScopedMount::byCommand("bindfs -o subtype=sshfs " +
                                                   shellQuote(m_tree.folder("backing").string()) + " " +
                                                   shellQuote(m_tree.folder("share with space\nand line")),
                                               m_tree / "share with space\nand line"));
        m_memory.emplace("tmpfs", m_tree.folder("memory"), "size=1m");
    }
    TestTree m_tree;
    std::optional<ScopedMount> m_share, m_memory;
};

} // namespace

TEST_F(Volumes, IdentifierTellsVolumesApartWithoutFollowingLinks)
{
    const fs::path here = m_tree.file("here");
    const fs::path there = m_tree.file("memory/there");

    ASSERT_TRUE(volumeIdentifier(here).has_value());
    EXPECT_EQ(volumeIdentifier(here), volumeIdentifier(m_tree.root()));
    EXPECT_NE(volumeIdentifier(here), volumeIdentifier(there));
    EXPECT_EQ(volumeIdentifier(m_tree.symlink("link-to-there", there)), volumeIdentifier(here));
    EXPECT_EQ(volumeIdentifier(m_tree / "missing"), std::nullopt);
}

TEST_F(Volumes, DiskAndMemoryAreLocalAFuseShareIsNotEvenForADanglingLinkOnIt)
{
    m_tree.symlink("backing/dangling", "nowhere");
    EXPECT_TRUE(volumeIsLocal(m_tree.file("on-disk")));
    EXPECT_TRUE(volumeIsLocal(m_tree / "memory"));
    EXPECT_TRUE(volumeIsLocal(m_tree / "backing/dangling"));
    EXPECT_FALSE(volumeIsLocal(m_share->path()));
    EXPECT_FALSE(volumeIsLocal(m_share->path() / "dangling"));
    try {
        volumeIsLocal(m_tree / "missing");
        FAIL() << "no error for a missing item";
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code(), std::error_code(ENOENT, std::generic_category()));
    }
}

TEST_F(Volumes, MountListShowsRootSharesAndDisksButNotKernelPlumbing)
{
    const fs::path image = m_tree / "disk.img", disk = m_tree.folder("disk");
    int status = 0;
    const std::string made = runCommand(
        "truncate -s 16M " + shellQuote(image) + " && mkfs.ext4 -q " + shellQuote(image) + " 2>&1", &status);
    ASSERT_EQ(status, 0) << made;
    std::optional<ScopedMount> mounted;
    try {
        mounted.emplace(
            ScopedMount::byCommand("mount -o loop " + shellQuote(image) + " " + shellQuote(disk), disk));
    } catch (const std::exception &error) {
        GTEST_SKIP() << "loop devices are not available here: " << error.what();
    }

    const std::vector<fs::path> volumes = mountedVolumes();

    EXPECT_TRUE(contains(volumes, "/"));
    EXPECT_TRUE(contains(volumes, m_share->path()));
    EXPECT_TRUE(contains(volumes, disk));
    EXPECT_FALSE(contains(volumes, m_tree / "memory"));
    for (const char *plumbing : {"/proc", "/sys", "/dev", "/dev/pts", "/sys/fs/cgroup"})
        EXPECT_FALSE(contains(volumes, plumbing)) << plumbing;
    EXPECT_TRUE(std::is_sorted(volumes.begin(), volumes.end()));
}
