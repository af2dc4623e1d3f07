#include "platform/posix/posixerror.h"
#include "platform/posix/trash.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;

namespace {

// Points the home trash at a fresh folder for one test and restores the
// environment afterwards.
class HomeTrash : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (const char *old = std::getenv("XDG_DATA_HOME"))
            m_previous = old;
        ::setenv("XDG_DATA_HOME", m_data.root().c_str(), 1);
    }
    void TearDown() override
    {
        if (m_previous)
            ::setenv("XDG_DATA_HOME", m_previous->c_str(), 1);
        else
            ::unsetenv("XDG_DATA_HOME");
    }

    fs::path trash() const { return m_data / "Trash"; }
    std::string info(const std::string &entry) const
    {
        return TestTree::read(trash() / "info" / (entry + ".trashinfo"));
    }

    TestTree m_data;
    TestTree m_items;
    std::optional<std::string> m_previous;
};

// Splits a .trashinfo into its Path= value and deletion time, checking the rest
// of the format on the way.
struct ParsedInfo {
    std::string path;
    std::time_t deleted = 0;
};

ParsedInfo parse(const std::string &text)
{
    static const std::regex format(
        "\\[Trash Info\\]\nPath=([^\n]*)\nDeletionDate=(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d)\n");
    std::smatch match;
    EXPECT_TRUE(std::regex_match(text, match, format)) << text;
    if (match.empty())
        return {};
    std::tm local{};
    ::strptime(match[2].str().c_str(), "%Y-%m-%dT%H:%M:%S", &local);
    local.tm_isdst = -1;
    return {match[1].str(), std::mktime(&local)};
}

bool gioCanListTrash()
{
    return ::access("/usr/bin/gio", X_OK) == 0 && ::access("/usr/bin/dbus-run-session", X_OK) == 0 &&
           ::access("/usr/libexec/gvfsd-trash", X_OK) == 0;
}

} // namespace

TEST_F(HomeTrash, FileMovesIntoFilesWithInfoWrittenBeside)
{
    const fs::path item = m_items.file("report.txt", "contents");
    const std::time_t before = std::time(nullptr);

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed, trash() / "files" / "report.txt");
    EXPECT_FALSE(fs::exists(fs::symlink_status(item)));
    EXPECT_EQ(TestTree::read(trashed), "contents");
    const ParsedInfo parsed = parse(info("report.txt"));
    EXPECT_EQ(parsed.path, (fs::canonical(m_items.root()) / "report.txt").native());
    EXPECT_GE(parsed.deleted, before - 1);
    EXPECT_LE(parsed.deleted, std::time(nullptr) + 1);
}

TEST_F(HomeTrash, TrashFoldersArePrivateToTheUser)
{
    trashItem(m_items.file("a"));
    for (const char *folder : {"", "files", "info"}) {
        struct stat info {};
        ASSERT_EQ(::stat((trash() / folder).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u) << folder;
    }
}

TEST_F(HomeTrash, LineFeedsAndInvalidUtf8ArePercentEncodedAndKeptOnDisk)
{
    const std::string name = "two\nlines \xFF\xFE% caf\xC3\xA9";
    const fs::path item = m_items.file(name, "x");

    const fs::path trashed = trashItem(item);

    EXPECT_EQ(trashed.filename().native(), name);
    EXPECT_EQ(TestTree::read(trashed), "x");
    const std::string expected =
        fs::canonical(m_items.root()).native() + "/two%0Alines%20%FF%FE%25%20caf%C3%A9";
    EXPECT_EQ(parse(info(name)).path, expected);
}

TEST_F(HomeTrash, SameNameTwiceGivesTwoEntries)
{
    const fs::path first = m_items.file("one/notes", "first");
    const fs::path second = m_items.file("two/notes", "second");

    EXPECT_EQ(trashItem(first), trash() / "files" / "notes");
    EXPECT_EQ(trashItem(second), trash() / "files" / "notes.2");

    EXPECT_EQ(TestTree::read(trash() / "files" / "notes"), "first");
    EXPECT_EQ(TestTree::read(trash() / "files" / "notes.2"), "second");
    EXPECT_EQ(parse(info("notes")).path, fs::canonical(m_items / "one").native() + "/notes");
    EXPECT_EQ(parse(info("notes.2")).path, fs::canonical(m_items / "two").native() + "/notes");
}

TEST_F(HomeTrash, OrphanInFilesIsNeitherReplacedNorReused)
{
    // Left behind by a program that crashed between its rename and its cleanup.
    m_data.file("Trash/files/draft", "orphan");

    EXPECT_EQ(trashItem(m_items.file("draft", "new")), trash() / "files" / "draft.2");
    EXPECT_EQ(TestTree::read(trash() / "files" / "draft"), "orphan");
    EXPECT_FALSE(fs::exists(trash() / "info" / "draft.trashinfo"));
    EXPECT_TRUE(fs::exists(trash() / "info" / "draft.2.trashinfo"));
}

TEST_F(HomeTrash, FolderGoesWholeAndDanglingLinkGoesAsALink)
{
    m_items.file("tree/inner/leaf", "leaf");
    const fs::path link = m_items.symlink("dangling", "does-not-exist");

    EXPECT_EQ(TestTree::read(trashItem(m_items / "tree") / "inner" / "leaf"), "leaf");
    const fs::path trashedLink = trashItem(link);
    EXPECT_TRUE(fs::is_symlink(trashedLink));
    EXPECT_EQ(fs::read_symlink(trashedLink), "does-not-exist");
}

TEST_F(HomeTrash, LongestNameIsShortenedInTheTrashButRecordedInFull)
{
    // 254 bytes ending in two-byte characters, so a cut at the limit would split one.
    std::string longName(200, 'a');
    for (int i = 0; i < 27; ++i)
        longName += "\xC3\xA9";
    ASSERT_EQ(longName.size(), 254u);

    const fs::path trashed = trashItem(m_items.file(longName, "long"));

    const std::string entry = trashed.filename().native();
    EXPECT_LE(entry.size() + std::string(".trashinfo").size(), 255u);
    EXPECT_EQ(longName.compare(0, entry.size(), entry), 0);
    EXPECT_NE(static_cast<unsigned char>(entry.back()), 0xC3) << "cut inside a character";
    EXPECT_EQ(TestTree::read(trashed), "long");
    EXPECT_NE(parse(info(entry)).path.find(std::string(200, 'a') + "%C3%A9"), std::string::npos);
}

TEST_F(HomeTrash, MissingItemIsAnErrorNamingItAndCreatesNoEntry)
{
    const fs::path missing = m_items / "gone";
    try {
        trashItem(missing);
        FAIL() << "trashing a missing item succeeded";
    } catch (const PosixError &error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_EQ(error.path(), missing);
    }
    EXPECT_FALSE(fs::exists(trash() / "info" / "gone.trashinfo"));
}

TEST_F(HomeTrash, FailedMoveLeavesNoInfoBehind)
{
    if (!quillorn::test::runningAsRoot())
        GTEST_SKIP() << "needs root to set the immutable attribute";
    const fs::path item = m_items.file("locked/kept", "kept");
    // An immutable folder refuses to let its entries be renamed away, even for root.
    int status = 0;
    quillorn::test::runCommand("chattr +i " + quillorn::test::shellQuote((m_items / "locked").string()),
                               &status);
    if (status != 0)
        GTEST_SKIP() << "this file system does not support chattr +i";
    struct Unlock {
        fs::path folder;
        ~Unlock() { quillorn::test::runCommand("chattr -i " + quillorn::test::shellQuote(folder.string())); }
    } unlock{m_items / "locked"};

    EXPECT_THROW(trashItem(item), PosixError);

    EXPECT_EQ(TestTree::read(item), "kept");
    EXPECT_TRUE(fs::is_empty(trash() / "info"));
    EXPECT_TRUE(fs::is_empty(trash() / "files"));
}

TEST_F(HomeTrash, DesktopTrashListsTheItemWithItsOriginalPath)
{
    if (!gioCanListTrash())
        GTEST_SKIP() << "gio, dbus-run-session or gvfsd-trash is not installed (packages libglib2.0-bin, "
                        "dbus-daemon, gvfs-daemons)";
    const fs::path item = m_items.file("with space.txt", "x");
    trashItem(item);
    int status = 0;
    const std::string listing =
        quillorn::test::runCommand("timeout 60 dbus-run-session -- gio trash --list 2>/dev/null", &status);
    ASSERT_EQ(status, 0) << listing;
    EXPECT_NE(listing.find(fs::canonical(m_items.root()).native() + "/with space.txt"), std::string::npos)
        << listing;

    // And the desktop can put it back where it was.
    const std::string restore = quillorn::test::runCommand(
        "timeout 60 dbus-run-session -- gio trash --restore 'trash:///with%20space.txt' 2>&1", &status);
    ASSERT_EQ(status, 0) << restore;
    EXPECT_EQ(TestTree::read(item), "x");
}
