// The Trash read from inside: what `gio trash` and this program put there, the
// folder-size cache beside it, removal for good and the trash folders of volumes.
#include "platform/posix/trash.h"
#include "platform/posix/trashcan.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::runCommand;
using quillorn::test::shellQuote;
using quillorn::test::TestTree;
using namespace ::testing;

namespace {

class TrashCan : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_DATA_HOME", (m_home / "data").c_str(), 1); }

    fs::path home() const { return m_home / "data/Trash"; }
    std::string original(const std::string &name) const { return fs::canonical(m_items.root()) / name; }
    std::string cache() const { return TestTree::read(home() / "directorysizes"); }
    // The bytes du -B1 counts for the tree: what the Trash's sizes must agree with.
    static std::int64_t du(const fs::path &tree)
    {
        return std::stoll(runCommand("du -s -B1 " + shellQuote(tree) + " | cut -f1"));
    }
    static std::int64_t seconds(const fs::path &path)
    {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
        return info.st_mtim.tv_sec;
    }
    static const TrashedItem *named(const std::vector<TrashedItem> &items, const std::string &name)
    {
        for (const TrashedItem &item : items)
            if (item.trashed.filename() == name)
                return &item;
        return nullptr;
    }

    TestTree m_home, m_items;
};

std::string localTime(std::time_t when)
{
    std::tm local{};
    ::localtime_r(&when, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local));
}

} // namespace

TEST_F(TrashCan, ItemsTrashedByGioShowWhereAndWhenTheyWereDeletedAndTheirSizeAndGoBack)
{
    if (::access("/usr/bin/gio", X_OK) != 0)
        GTEST_SKIP() << "needs gio (libglib2.0-bin)";
    const std::string odd = "caf\xE9 100%\n.txt"; // not UTF-8, escaped in the info
    m_items.file(odd, "odd");
    m_items.file("a.txt", "hello");
    m_items.file("folder/inner/leaf", std::string(10000, 'x'));
    m_items.file("folder/second", "2");
    const std::time_t before = std::time(nullptr);
    int status = 0;
    const std::string output =
        runCommand("cd " + shellQuote(m_items.root()) + " && HOME=" + shellQuote(m_home.root()) +
                       " XDG_DATA_HOME=" + shellQuote(m_home / "data") + " gio trash a.txt folder " +
                       shellQuote(odd) + " 2>&1",
                   &status);
    ASSERT_EQ(status, 0) << output;
    const std::time_t after = std::time(nullptr);

    const std::vector<TrashedItem> items = readTrash(home());
    ASSERT_EQ(items.size(), 3u);
    const TrashedItem *file = named(items, "a.txt");
    const TrashedItem *folder = named(items, "folder");
    const TrashedItem *oddItem = named(items, odd);
    ASSERT_TRUE(file && folder && oddItem);
    EXPECT_EQ(file->origin, original("a.txt"));
    EXPECT_EQ(oddItem->origin, original(odd));
    EXPECT_THAT(file->deletionDate, AllOf(Ge(localTime(before)), Le(localTime(after))));
    EXPECT_FALSE(file->folder);
    EXPECT_EQ(file->size, 5);
    EXPECT_TRUE(folder->folder);
    EXPECT_EQ(folder->size, du(folder->trashed));
    // gio keeps no cache; the reading made one, keyed by the info's time.
    EXPECT_EQ(cache(), std::to_string(folder->size) + " " +
                           std::to_string(seconds(home() / "info/folder.trashinfo")) + " folder\n");

    EXPECT_EQ(restoreTrashedItem(oddItem->trashed), original(odd));
    EXPECT_EQ(TestTree::read(original(odd)), "odd");
    EXPECT_EQ(restoreTrashedItem(folder->trashed), original("folder"));
    EXPECT_EQ(TestTree::read(original("folder/inner/leaf")).size(), 10000u);
    EXPECT_EQ(cache(), "");
    EXPECT_EQ(readTrash(home()).size(), 1u);
}

TEST_F(TrashCan, AFolderSizeIsTakenFromTheCacheWhileItsInfoIsUnchangedElseCountedAgain)
{
    m_items.file("tree/a/b", std::string(5000, 'b'));
    trashItem(m_items.file("plain.txt", "p"));
    const fs::path trashedTree = trashItem(m_items / "tree");
    const std::string info = std::to_string(seconds(home() / "info/tree.trashinfo"));
    // Trashing a folder caches its size at once, and a file is never cached.
    EXPECT_EQ(cache(), std::to_string(du(trashedTree)) + " " + info + " tree\n");

    // A fresh line is believed; a line of a folder that left and a broken one are dropped.
    m_home.file("data/Trash/directorysizes", "77 " + info + " tree\n5 5 gone\nnot a line\n");
    EXPECT_EQ(named(readTrash(home()), "tree")->size, 77);
    EXPECT_EQ(cache(), "77 " + info + " tree\n");
    // Another info (the folder trashed again) makes the line stale.
    const timespec later[2] = {{0, UTIME_OMIT}, {std::stoll(info) + 60, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (home() / "info/tree.trashinfo").c_str(), later, 0), 0);
    EXPECT_EQ(named(readTrash(home()), "tree")->size, du(trashedTree));
    EXPECT_EQ(cache(),
              std::to_string(du(trashedTree)) + " " + std::to_string(std::stoll(info) + 60) + " tree\n");
}

TEST_F(TrashCan, ErasingRemovesTheItemThenItsInfoAndItsCacheLine)
{
    const fs::path leaf = trashItem(m_items.file("leaf", "x"));
    m_items.file("tree/sub/leaf", "x");
    const fs::path folder = trashItem(m_items / "tree");
    fs::permissions(folder / "sub", fs::perms::owner_read | fs::perms::owner_exec); // no write: still goes
    const fs::path file = trashItem(m_items.file("keep.txt", "k"));
    ASSERT_NE(cache(), "");
    eraseTrashedItem(folder);
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_FALSE(fs::exists(home() / "info/tree.trashinfo"));
    EXPECT_EQ(cache(), "");
    // An item already gone (a crash after its removal) loses its info all the same.
    fs::remove(leaf);
    eraseTrashedItem(leaf);
    EXPECT_THAT(TestTree::names(home() / "info"), ElementsAre("keep.txt.trashinfo"));
    EXPECT_EQ(readTrash(home()).front().trashed, file);
    EXPECT_THROW(eraseTrashedItem(m_items / "keep.txt"), std::system_error); // not in a trash
}

TEST_F(TrashCan, EachVolumeOffersItsOwnTrashFoldersButNeverALinkOrAnUnstickyShare)
{
    const std::string uid = std::to_string(::geteuid());
    // Volumes as the mount table would give them; their trash folders as another program left them.
    const fs::path plain = m_items.folder("plain"), shared = m_items.folder("shared"),
                   bad = m_items.folder("bad");
    m_items.file("plain/.Trash-" + uid + "/files/caf\xE9", "c");
    m_items.file("plain/.Trash-" + uid + "/info/caf\xE9.trashinfo",
                 "[Trash Info]\nPath=sub/caf%E9\nDeletionDate=2024-03-01T10:20:30\n");
    m_items.folder("shared/.Trash/" + uid + "/files");
    m_items.folder("shared/.Trash/" + uid + "/info");
    fs::permissions(shared / ".Trash", fs::perms(01777));
    m_items.folder("bad/.Trash/" + uid + "/info"); // .Trash without its sticky bit
    m_items.folder("elsewhere/info");
    fs::create_directory_symlink(m_items / "elsewhere", bad / (".Trash-" + uid));
    m_home.folder("data/Trash/info");

    EXPECT_THAT(trashFolders({plain, shared, bad, plain}),
                ElementsAre(home(), plain / (".Trash-" + uid), shared / ".Trash" / uid));
    const std::vector<TrashedItem> items = readTrash(plain / (".Trash-" + uid));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items.front().origin, plain / "sub/caf\xE9"); // relative to the volume's top
    EXPECT_EQ(items.front().deletionDate, "2024-03-01T10:20:30");
    m_items.folder("plain/sub");
    EXPECT_EQ(restoreTrashedItem(items.front().trashed), plain / "sub/caf\xE9");
    EXPECT_EQ(TestTree::read(plain / "sub/caf\xE9"), "c");
}
