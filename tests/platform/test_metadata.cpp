#include "platform/posix/metadata.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;

namespace {

struct stat lstatOf(const fs::path &path)
{
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

void setTimes(const fs::path &path, timespec access, timespec modification)
{
    const std::array<timespec, 2> times = {access, modification};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << path;
}

std::optional<std::string> attribute(const fs::path &path, const std::string &name)
{
    std::string value(65536, '\0');
    const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    if (size < 0)
        return std::nullopt;
    value.resize(static_cast<std::size_t>(size));
    return value;
}

void setAttribute(const fs::path &path, const std::string &name, const std::string &value)
{
    ASSERT_EQ(::lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0), 0) << name;
}

void setfacl(const std::string &arguments, const fs::path &path)
{
    int status = 0;
    const std::string output = quillorn::test::runCommand(
        "setfacl " + arguments + " " + quillorn::test::shellQuote(path) + " 2>&1", &status);
    ASSERT_EQ(status, 0) << "setfacl " << arguments << ": " << output;
}

std::string problemsText(const std::vector<MetadataProblem> &problems)
{
    std::string text;
    for (const MetadataProblem &problem : problems)
        text += problem.step + ": " + problem.error.message() + "\n";
    return text;
}

bool sameTime(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

} // namespace

TEST(CopyMetadata, FileGetsModeAndBothTimesToTheNanosecond)
{
    TestTree tree;
    const fs::path source = tree.file("source", "data");
    const fs::path target = tree.file("target", "data");
    ASSERT_EQ(::chmod(source.c_str(), 0751), 0);
    setTimes(source, {1'500'000'000, 123'456'789}, {1'400'000'000, 987'654'321});
    const struct stat before = lstatOf(source);

    const auto problems = copyMetadata(source, target, before);

    EXPECT_TRUE(problems.empty()) << problemsText(problems);
    const struct stat after = lstatOf(target);
    EXPECT_EQ(after.st_mode & 07777, 0751u);
    EXPECT_TRUE(sameTime(after.st_atim, before.st_atim));
    EXPECT_TRUE(sameTime(after.st_mtim, before.st_mtim));
    EXPECT_EQ(after.st_mtim.tv_nsec, 987'654'321);
}

TEST(CopyMetadata, TimesUseTheStatTakenBeforeTheCopyNotTheSourceNow)
{
    TestTree tree;
    const fs::path source = tree.file("source");
    const fs::path target = tree.file("target");
    setTimes(source, {1'200'000'000, 5}, {1'200'000'000, 6});
    const struct stat before = lstatOf(source);
    setTimes(source, {1'300'000'000, 0}, {1'300'000'000, 0});

    copyMetadata(source, target, before);

    EXPECT_TRUE(sameTime(lstatOf(target).st_mtim, timespec{1'200'000'000, 6}));
}

TEST(CopyMetadata, UserAttributesAreCopiedByteForByte)
{
    TestTree tree;
    const fs::path source = tree.file("source");
    const fs::path target = tree.file("target");
    setAttribute(source, "user.plain", "value");
    setAttribute(source, "user.binary", std::string("a\0b\xFF", 4));
    setAttribute(source, "user.empty", "");

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_TRUE(problems.empty()) << problemsText(problems);
    EXPECT_EQ(attribute(target, "user.plain"), "value");
    EXPECT_EQ(attribute(target, "user.binary"), std::string("a\0b\xFF", 4));
    EXPECT_EQ(attribute(target, "user.empty"), "");
}

TEST(CopyMetadata, AccessAndDefaultAclsTravelWithTheItem)
{
    TestTree tree;
    const fs::path source = tree.folder("source");
    const fs::path target = tree.folder("target");
    setfacl("-m u:nobody:rx", source);
    setfacl("-d -m g:nogroup:rwx", source);

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_TRUE(problems.empty()) << problemsText(problems);
    EXPECT_EQ(attribute(target, "system.posix_acl_access"), attribute(source, "system.posix_acl_access"));
    EXPECT_EQ(attribute(target, "system.posix_acl_default"), attribute(source, "system.posix_acl_default"));
    EXPECT_TRUE(attribute(target, "system.posix_acl_default").has_value());
    EXPECT_EQ(lstatOf(target).st_mode & 07777, lstatOf(source).st_mode & 07777);
}

TEST(CopyMetadata, AclInheritedFromTheNewFolderIsDroppedWhenTheSourceHasNone)
{
    TestTree tree;
    const fs::path source = tree.file("source");
    ASSERT_EQ(::chmod(source.c_str(), 0600), 0);
    const fs::path destination = tree.folder("destination");
    setfacl("-d -m u:nobody:rwx", destination);
    const fs::path target = tree.file("destination/target");
    ASSERT_TRUE(attribute(target, "system.posix_acl_access").has_value()) << "no ACL was inherited";

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_TRUE(problems.empty()) << problemsText(problems);
    EXPECT_FALSE(attribute(target, "system.posix_acl_access").has_value());
    EXPECT_EQ(lstatOf(target).st_mode & 07777, 0600u);
}

TEST(CopyMetadata, SymbolicLinkGetsItsOwnTimesAndNoModeProblem)
{
    TestTree tree;
    const fs::path pointedAt = tree.file("pointed-at");
    const fs::path source = tree.symlink("source", "pointed-at");
    const fs::path target = tree.symlink("target", "pointed-at");
    setTimes(source, {1'100'000'000, 111}, {1'100'000'000, 222});
    const struct stat pointedBefore = lstatOf(pointedAt);

    const auto problems = copyMetadata(source, target, lstatOf(source));

    EXPECT_TRUE(problems.empty()) << problemsText(problems);
    EXPECT_TRUE(sameTime(lstatOf(target).st_mtim, timespec{1'100'000'000, 222}));
    EXPECT_TRUE(sameTime(lstatOf(pointedAt).st_mtim, pointedBefore.st_mtim)) << "the link was followed";
}

TEST(CopyMetadata, MissingTargetIsReportedStepByStepNeverThrown)
{
    TestTree tree;
    const fs::path source = tree.file("source");
    setAttribute(source, "user.kept", "1");

    std::vector<MetadataProblem> problems;
    ASSERT_NO_THROW(problems = copyMetadata(source, tree / "missing", lstatOf(source)));

    ASSERT_EQ(problems.size(), 3u) << problemsText(problems);
    EXPECT_EQ(problems[0].step, "copyfile");
    EXPECT_EQ(problems[1].step, "permissions");
    EXPECT_EQ(problems[2].step, "modificationDate");
    for (const MetadataProblem &problem : problems) {
        EXPECT_EQ(problem.error, std::error_code(ENOENT, std::generic_category()));
    }
}
