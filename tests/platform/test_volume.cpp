// ctest-labels: root
#include "platform/posix/posixerror.h"
#include "platform/posix/volume.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::ScopedMount;
using quillorn::test::TestTree;

namespace {

bool contains(const std::vector<fs::path> &paths, const fs::path &path)
{
    return std::find(paths.begin(), paths.end(), path) != paths.end();
}

ScopedMount mountSshfsLookalike(const fs::path &backing, const fs::path &where)
{
    return ScopedMount::byCommand("bindfs -o subtype=sshfs " + quillorn::test::shellQuote(backing.string()) +
                                      " " + quillorn::test::shellQuote(where.string()),
                                  where);
}

class Volumes : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "mounting test volumes needs root";
    }
    void requireBindfs()
    {
        if (::access("/usr/bin/bindfs", X_OK) != 0)
            GTEST_SKIP() << "bindfs is not installed (package bindfs)";
    }
    TestTree m_tree;
};

} // namespace

TEST_F(Volumes, IdentifierTellsVolumesApartAndDoesNotFollowLinks)
{
    ScopedMount tmpfs("tmpfs", m_tree.folder("other"), "size=1m");
    const fs::path here = m_tree.file("here");
    const fs::path there = m_tree.file("other/there");
    const fs::path link = m_tree.symlink("link-to-there", there);

    ASSERT_TRUE(volumeIdentifier(here).has_value());
    EXPECT_EQ(volumeIdentifier(here), volumeIdentifier(m_tree.root()));
    EXPECT_NE(volumeIdentifier(here), volumeIdentifier(there));
    EXPECT_EQ(volumeIdentifier(link), volumeIdentifier(here));
    EXPECT_EQ(volumeIdentifier(m_tree / "missing"), std::nullopt);
}

TEST_F(Volumes, DiskAndMemoryFileSystemsAreLocal)
{
    ScopedMount tmpfs("tmpfs", m_tree.folder("memory"), "size=1m");
    EXPECT_TRUE(volumeIsLocal(m_tree.file("on-disk")));
    EXPECT_TRUE(volumeIsLocal(m_tree / "memory"));
}

TEST_F(Volumes, FuseShareIsNotLocalEvenForADanglingLinkOnIt)
{
    requireBindfs();
    const fs::path backing = m_tree.folder("backing");
    ScopedMount share = mountSshfsLookalike(backing, m_tree.folder("share"));
    m_tree.symlink("backing/dangling", "nowhere");

    EXPECT_FALSE(volumeIsLocal(m_tree / "share"));
    EXPECT_FALSE(volumeIsLocal(m_tree / "share" / "dangling"));
    EXPECT_TRUE(volumeIsLocal(backing / "dangling"));
}

TEST_F(Volumes, LocalityOfAMissingItemIsAnErrorNamingIt)
{
    const fs::path missing = m_tree / "missing";
    try {
        volumeIsLocal(missing);
        FAIL() << "no error for a missing item";
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code(), std::error_code(ENOENT, std::generic_category()));
    }
}

TEST_F(Volumes, MountListShowsRootAndSharesButNotKernelPlumbing)
{
    requireBindfs();
    const fs::path odd = m_tree.folder("share with space\nand line");
    ScopedMount share = mountSshfsLookalike(m_tree.folder("backing"), odd);
    ScopedMount scratch("tmpfs", m_tree.folder("scratch"), "size=1m");

    const std::vector<fs::path> volumes = mountedVolumes();

    EXPECT_TRUE(contains(volumes, "/"));
    EXPECT_TRUE(contains(volumes, odd));
    EXPECT_FALSE(contains(volumes, m_tree / "scratch"));
    for (const char *plumbing : {"/proc", "/sys", "/dev", "/dev/pts", "/sys/fs/cgroup"})
        EXPECT_FALSE(contains(volumes, plumbing)) << plumbing;
    EXPECT_TRUE(std::is_sorted(volumes.begin(), volumes.end()));
}

TEST_F(Volumes, MountListShowsALoopMountedDisk)
{
    const fs::path image = m_tree / "disk.img";
    int status = 0;
    const std::string made =
        quillorn::test::runCommand("truncate -s 16M " + quillorn::test::shellQuote(image) +
                                       " && mkfs.ext4 -q " + quillorn::test::shellQuote(image) + " 2>&1",
                                   &status);
    if (status != 0)
        GTEST_SKIP() << "cannot make an ext4 image: " << made;
    const fs::path disk = m_tree.folder("disk");
    std::optional<ScopedMount> mounted;
    try {
        mounted.emplace(ScopedMount::byCommand("mount -o loop " + quillorn::test::shellQuote(image) + " " +
                                                   quillorn::test::shellQuote(disk),
                                               disk));
    } catch (const std::exception &error) {
        GTEST_SKIP() << "loop devices are not available here: " << error.what();
    }

    EXPECT_TRUE(contains(mountedVolumes(), disk));
    EXPECT_TRUE(volumeIsLocal(disk));
}
