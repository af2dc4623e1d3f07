// ctest-labels: root
#include "platform/posix/metadata.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace quillorn {
void PrintTo(const MetadataProblem &problem, std::ostream *out)
{
    *out << problem.step << ": " << problem.error.message();
}
} // namespace quillorn

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;

namespace {

constexpr uid_t kNobody = 65534;

struct stat lstatOf(const fs::path &path)
{
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

unsigned modeOf(const fs::path &path)
{
    return lstatOf(path).st_mode & 07777;
}

bool operator==(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

void setTimes(const fs::path &path, timespec access, timespec modification)
{
    const std::array<timespec, 2> times = {access, modification};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::optional<std::string> attribute(const fs::path &path, const char *name)
{
    char value[4096];
    const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? std::nullopt : std::optional<std::string>(std::in_place, value, size);
}

void setfacl(const std::string &arguments, const fs::path &path)
{
    ASSERT_EQ(::system(("setfacl " + arguments + " " + quillorn::test::shellQuote(path)).c_str()), 0)
        << arguments;
}

// Runs body in a child that has given up root for nobody; its result is the exit status.
int asNobody(const std::function<int()> &body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(kNobody, kNobody, kNobody) != 0 ||
            ::setresuid(kNobody, kNobody, kNobody) != 0)
            ::_exit(100);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 200;
}

class CopyMetadata : public ::testing::Test {
protected:
    TestTree m_tree;
};

class CopyMetadataAsRoot : public CopyMetadata {
protected:
    void SetUp() override
    {
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "changing owners and mounting need root";
        fs::permissions(m_tree.root(), static_cast<fs::perms>(0755)); // for the unprivileged child
    }
};

} // namespace

TEST_F(CopyMetadata, ModeAndTimesToTheNanosecondComeFromTheStatTakenBefore)
{
    const fs::path source = m_tree.file("source", "data");
    const fs::path target = m_tree.file("target", "data");
    ASSERT_EQ(::chmod(source.c_str(), 0751), 0);
    setTimes(source, {1'500'000'000, 123'456'789}, {1'400'000'000, 987'654'321});
    const struct stat before = lstatOf(source);
    setTimes(source, {1'300'000'000, 0}, {1'300'000'000, 0}); // changed while the copy ran

    const auto problems = copyMetadata(source, target, before);

    EXPECT_THAT(problems, ::testing::IsEmpty());
    const struct stat after = lstatOf(target);
    EXPECT_EQ(after.st_mode & 07777, 0751u);
    EXPECT_TRUE(after.st_atim == (timespec{1'500'000'000, 123'456'789}));
    EXPECT_TRUE(after.st_mtim == (timespec{1'400'000'000, 987'654'321}));
}

TEST_F(CopyMetadata, UserAttributesAreCopiedByteForByte)
{
    const fs::path source = m_tree.file("source");
    const fs::path target = m_tree.file("target");
    const std::pair<const char *, std::string> attributes[] = {
        {"user.plain", "value"}, {"user.binary", std::string("a\0b\xFF", 4)}, {"user.empty", ""}};
    for (const auto &[name, value] : attributes)
        ASSERT_EQ(::lsetxattr(source.c_str(), name, value.data(), value.size(), 0), 0) << name;

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_THAT(problems, ::testing::IsEmpty());
    for (const auto &[name, value] : attributes)
        EXPECT_EQ(attribute(target, name), value) << name;
}

TEST_F(CopyMetadata, AccessAndDefaultAclsTravelWithTheItem)
{
    const fs::path source = m_tree.folder("source");
    const fs::path target = m_tree.folder("target");
    setfacl("-m u:nobody:rx", source);
    setfacl("-d -m g:nogroup:rwx", source);

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_THAT(problems, ::testing::IsEmpty());
    for (const char *acl : {"system.posix_acl_access", "system.posix_acl_default"}) {
        EXPECT_TRUE(attribute(target, acl).has_value()) << acl;
        EXPECT_EQ(attribute(target, acl), attribute(source, acl)) << acl;
    }
    EXPECT_EQ(modeOf(target), modeOf(source));
}

TEST_F(CopyMetadata, AclInheritedFromTheNewFolderIsDroppedWhenTheSourceHasNone)
{
    const fs::path source = m_tree.file("source");
    ASSERT_EQ(::chmod(source.c_str(), 0600), 0);
    setfacl("-d -m u:nobody:rwx", m_tree.folder("destination"));
    const fs::path target = m_tree.file("destination/target");
    ASSERT_TRUE(attribute(target, "system.posix_acl_access").has_value()) << "no ACL was inherited";

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_THAT(problems, ::testing::IsEmpty());
    EXPECT_FALSE(attribute(target, "system.posix_acl_access").has_value());
    EXPECT_EQ(modeOf(target), 0600u);
}

TEST_F(CopyMetadata, SymbolicLinkGetsItsOwnTimesAndOwnerWithoutFollowing)
{
    const fs::path pointedAt = m_tree.file("pointed-at");
    const fs::path source = m_tree.symlink("source", "pointed-at");
    const fs::path target = m_tree.symlink("target", "pointed-at");
    setTimes(source, {1'100'000'000, 111}, {1'100'000'000, 222});
    const bool root = quillorn::test::runningAsRoot();
    if (root) {
        ASSERT_EQ(::lchown(source.c_str(), kNobody, kNobody), 0);
    }
    const struct stat pointedBefore = lstatOf(pointedAt);

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_THAT(problems, ::testing::IsEmpty());
    EXPECT_TRUE(lstatOf(target).st_mtim == (timespec{1'100'000'000, 222}));
    EXPECT_TRUE(lstatOf(pointedAt).st_mtim == pointedBefore.st_mtim) << "the link was followed";
    if (root) {
        EXPECT_EQ(lstatOf(target).st_uid, kNobody);
        EXPECT_EQ(lstatOf(pointedAt).st_uid, 0u);
    }
}

TEST_F(CopyMetadata, MissingTargetIsReportedStepByStepNeverThrown)
{
    const fs::path source = m_tree.file("source");
    std::vector<MetadataProblem> problems;
    ASSERT_NO_THROW(problems = copyMetadata(source, m_tree / "missing", lstatOf(source)));

    ASSERT_EQ(problems.size(), 3u) << ::testing::PrintToString(problems);
    EXPECT_EQ(problems[0].step, "copyfile");
    EXPECT_EQ(problems[1].step, "permissions");
    EXPECT_EQ(problems[2].step, "modificationDate");
    for (const MetadataProblem &problem : problems)
        EXPECT_EQ(problem.error, std::error_code(ENOENT, std::generic_category()));
}

TEST_F(CopyMetadataAsRoot, OwnerIsGivenFirstSoSetUidSurvives)
{
    const fs::path source = m_tree.file("source", "x");
    const fs::path target = m_tree.file("target", "x");
    ASSERT_EQ(::chown(source.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(::chmod(source.c_str(), 06755), 0);

    EXPECT_THAT(copyMetadata(source, target, lstatOf(source)), ::testing::IsEmpty());

    EXPECT_EQ(lstatOf(target).st_uid, kNobody);
    EXPECT_EQ(lstatOf(target).st_gid, kNobody);
    EXPECT_EQ(modeOf(target), 06755u);
}

TEST_F(CopyMetadataAsRoot, UserWhoCannotGiveAFileAwayKeepsItSilentlyButGetsModeAndTimes)
{
    const fs::path source = m_tree.file("source-of-root", "x");
    const fs::path target = m_tree.file("target", "x");
    ASSERT_EQ(::chmod(source.c_str(), 0640), 0);
    ASSERT_EQ(::chown(target.c_str(), kNobody, kNobody), 0);
    const struct stat before = lstatOf(source);

    const int result = asNobody([&] { return copyMetadata(source, target, before).empty() ? 0 : 1; });

    EXPECT_EQ(result, 0) << "1: a problem was reported, 100: could not drop root";
    EXPECT_EQ(lstatOf(target).st_uid, kNobody);
    EXPECT_EQ(modeOf(target), 0640u);
    EXPECT_TRUE(lstatOf(target).st_mtim == before.st_mtim);
}

TEST_F(CopyMetadataAsRoot, VolumeWithoutExtendedAttributesIsAProblemAndTheDataIsUntouched)
{
    const fs::path source = m_tree.file("source", "payload");
    ASSERT_EQ(::setxattr(source.c_str(), "user.tag", "v", 1, 0), 0);
    ASSERT_EQ(::chmod(source.c_str(), 0604), 0);
    // ramfs has no handler for user.* attributes and refuses them.
    quillorn::test::ScopedMount ramfs("ramfs", m_tree.folder("ramfs"));
    const fs::path target = m_tree.file("ramfs/target", "payload");

    const auto problems = copyMetadata(source, target, lstatOf(source));

    ASSERT_EQ(problems.size(), 1u) << ::testing::PrintToString(problems);
    EXPECT_EQ(problems[0].step, "copyfile");
    EXPECT_EQ(problems[0].error, std::error_code(EOPNOTSUPP, std::generic_category()));
    EXPECT_EQ(TestTree::read(target), "payload");
    EXPECT_EQ(modeOf(target), 0604u);
    EXPECT_TRUE(lstatOf(target).st_mtim == lstatOf(source).st_mtim);
}
