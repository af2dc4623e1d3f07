// ctest-labels: root
#include "platform/posix/metadata.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <functional>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;

namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNogroup = 65534;

struct stat lstatOf(const fs::path &path)
{
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

// Runs body in a child process that has given up root for nobody; body's
// return value becomes the exit status (0 for success).
int asNobody(const std::function<int()> &body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(kNogroup, kNogroup, kNogroup) != 0 ||
            ::setresuid(kNobody, kNobody, kNobody) != 0)
            ::_exit(100);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 200;
}

class AsRoot : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "changing owners and mounting need root";
        // Let the unprivileged child reach the files.
        fs::permissions(m_tree.root(), static_cast<fs::perms>(0755));
    }
    TestTree m_tree;
};

} // namespace

TEST_F(AsRoot, OwnerIsGivenFirstSoSetUidSurvives)
{
    const fs::path source = m_tree.file("source", "x");
    const fs::path target = m_tree.file("target", "x");
    ASSERT_EQ(::chown(source.c_str(), kNobody, kNogroup), 0);
    ASSERT_EQ(::chmod(source.c_str(), 06755), 0);

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_TRUE(problems.empty());
    const struct stat after = lstatOf(target);
    EXPECT_EQ(after.st_uid, kNobody);
    EXPECT_EQ(after.st_gid, kNogroup);
    EXPECT_EQ(after.st_mode & 07777, 06755u);
}

TEST_F(AsRoot, SymbolicLinkOwnerIsTheLinksNotItsTargets)
{
    const fs::path pointedAt = m_tree.file("pointed-at");
    const fs::path source = m_tree.symlink("source", "pointed-at");
    const fs::path target = m_tree.symlink("target", "pointed-at");
    ASSERT_EQ(::lchown(source.c_str(), kNobody, kNogroup), 0);

    EXPECT_TRUE(copyMetadata(source, target, lstatOf(source)).empty());

    EXPECT_EQ(lstatOf(target).st_uid, kNobody);
    EXPECT_EQ(lstatOf(pointedAt).st_uid, 0u);
}

TEST_F(AsRoot, UserWhoCannotGiveAFileAwayKeepsTheirOwnershipSilentlyButGetsModeAndTimes)
{
    const fs::path source = m_tree.file("source-of-root", "x");
    const fs::path target = m_tree.file("target", "x");
    ASSERT_EQ(::chmod(source.c_str(), 0640), 0);
    ASSERT_EQ(::chown(target.c_str(), kNobody, kNogroup), 0);
    const struct stat before = lstatOf(source);

    const int result = asNobody([&] {
        return copyMetadata(source, target, before).empty() ? 0 : 1;
    });

    EXPECT_EQ(result, 0) << "1: a problem was reported, 100: could not drop root";
    const struct stat after = lstatOf(target);
    EXPECT_EQ(after.st_uid, kNobody);
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(AsRoot, UserCopyingTheirOwnFilesHasNoOwnerProblem)
{
    const fs::path source = m_tree.file("source", "x");
    const fs::path target = m_tree.file("target", "x");
    ASSERT_EQ(::chown(source.c_str(), kNobody, kNogroup), 0);
    ASSERT_EQ(::chown(target.c_str(), kNobody, kNogroup), 0);
    const struct stat before = lstatOf(source);

    EXPECT_EQ(asNobody([&] { return static_cast<int>(copyMetadata(source, target, before).size()); }), 0);
}

TEST_F(AsRoot, VolumeWithoutExtendedAttributesIsAProblemAndTheDataIsUntouched)
{
    const fs::path source = m_tree.file("source", "payload");
    ASSERT_EQ(::setxattr(source.c_str(), "user.tag", "v", 1, 0), 0);
    ASSERT_EQ(::chmod(source.c_str(), 0604), 0);
    // ramfs has no handler for user.* attributes and refuses them.
    quillorn::test::ScopedMount ramfs("ramfs", m_tree.folder("ramfs"));
    const fs::path target = m_tree.file("ramfs/target", "payload");

    const auto problems = copyMetadata(source, target, lstatOf(source));

    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].step, "copyfile");
    EXPECT_EQ(problems[0].error, std::error_code(EOPNOTSUPP, std::generic_category()));
    EXPECT_EQ(TestTree::read(target), "payload");
    EXPECT_EQ(lstatOf(target).st_mode & 07777, 0604u);
    EXPECT_EQ(lstatOf(target).st_mtim.tv_nsec, lstatOf(source).st_mtim.tv_nsec);
}
