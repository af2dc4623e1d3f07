// ctest-labels: root
#include "platform/posix/posixerror.h"
#include "platform/posix/trash.h"

#include "scopedmount.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <functional>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::runCommand;
using quillorn::test::ScopedMount;
using quillorn::test::shellQuote;
using quillorn::test::TestTree;
using ::testing::StartsWith;

namespace {

unsigned modeOf(const fs::path &path)
{
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

// Every test points the home trash at its own folder; the variable is read on each call.
class Trash : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_DATA_HOME", m_data.root().c_str(), 1); }
    fs::path home() const { return m_data / "Trash"; }
    std::string original(const std::string &name) const { return fs::canonical(m_items.root()) / name; }
    static std::string info(const fs::path &trashed)
    {
        return TestTree::read(trashed.parent_path().parent_path() / "info" /
                              (trashed.filename() += ".trashinfo"));
    }

    TestTree m_data;
    TestTree m_items;
};

// Volume tests get a small tmpfs of their own, apart from the home trash.
class VolumeTrash : public Trash {
protected:
    void SetUp() override
    {
        Trash::SetUp();
        if (!quillorn::test::runningAsRoot())
            GTEST_SKIP() << "mounting a test volume needs root";
        remount();
    }
    void remount()
    {
        m_volume.reset();
        m_volume.emplace("tmpfs", m_items.folder("volume"), "size=8m,mode=0755");
    }
    fs::path volume() const { return m_items / "volume"; }
    fs::path own() const { return volume() / (".Trash-" + std::to_string(::geteuid())); }

    std::optional<ScopedMount> m_volume;
};

} // namespace

TEST_F(Trash, ItemMovesIntoPrivateFilesWithAnEncodedPathAndTheTimeBeside)
{
    const std::string name = "two\nlines \xFF\xFE% caf\xC3\xA9";
    const std::time_t before = std::time(nullptr);
    const fs::path trashed = trashItem(m_items.file(name, "contents"));

    EXPECT_EQ(trashed, home() / "files" / name);
    EXPECT_FALSE(fs::exists(m_items / name));
    EXPECT_EQ(TestTree::read(trashed), "contents");
    for (const char *folder : {"", "files", "info"})
        EXPECT_EQ(modeOf(home() / folder), 0700u) << folder;
    EXPECT_THAT(info(trashed),
                StartsWith("[Trash Info]\nPath=" + original("two%0Alines%20%FF%FE%25%20caf%C3%A9") +
                           "\nDeletionDate="));
    std::tm deleted{};
    const std::string text = info(trashed);
    ::strptime(text.substr(text.find("DeletionDate=") + 13).c_str(), "%Y-%m-%dT%H:%M:%S", &deleted);
    deleted.tm_isdst = -1;
    EXPECT_LE(std::abs(std::mktime(&deleted) - before), 2) << text;

    m_items.file("tree/inner/leaf", "leaf");
    EXPECT_EQ(TestTree::read(trashItem(m_items / "tree") / "inner" / "leaf"), "leaf");
    EXPECT_EQ(fs::read_symlink(trashItem(m_items.symlink("dangling", "nowhere"))), "nowhere");
}

TEST_F(Trash, TakenNamesAndOrphansInFilesAreNeitherReplacedNorReused)
{
    // Left behind by a program that crashed between its rename and its cleanup.
    m_data.file("Trash/files/notes", "orphan");

    const fs::path first = trashItem(m_items.file("one/notes", "first"));
    const fs::path second = trashItem(m_items.file("two/notes", "second"));

    EXPECT_EQ(first, home() / "files" / "notes.2");
    EXPECT_NE(second, first);
    EXPECT_EQ(TestTree::read(second), "second");
    EXPECT_EQ(TestTree::read(home() / "files" / "notes"), "orphan");
    EXPECT_FALSE(fs::exists(home() / "info" / "notes.trashinfo"));
    EXPECT_THAT(info(second), StartsWith("[Trash Info]\nPath=" + original("two/notes") + "\nDeletionDate="));
}

TEST_F(Trash, LongestNameIsShortenedWithoutSplittingACharacterButRecordedInFull)
{
    std::string longName(200, 'a'), encoded = longName;
    for (int i = 0; i < 27; ++i) {
        longName += "\xC3\xA9";
        encoded += "%C3%A9";
    }

    const fs::path trashed = trashItem(m_items.file(longName, "long"));

    const std::string entry = trashed.filename();
    EXPECT_LE(entry.size() + std::string(".trashinfo").size(), 255u);
    EXPECT_EQ(longName.compare(0, entry.size(), entry), 0);
    EXPECT_NE(static_cast<unsigned char>(entry.back()), 0xC3) << "cut inside a character";
    EXPECT_EQ(TestTree::read(trashed), "long");
    EXPECT_THAT(info(trashed), StartsWith("[Trash Info]\nPath=" + original(encoded) + "\nDeletionDate="));
}

TEST_F(Trash, FailedMoveIsAnErrorNamingTheItemAndLeavesNoInfo)
{
    try {
        trashItem(m_items / "gone");
        FAIL() << "trashing a missing item succeeded";
    } catch (const PosixError &error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_EQ(error.path(), m_items / "gone");
    }
    // An immutable folder refuses to let its entries be renamed away, even for root.
    const fs::path item = m_items.file("locked/kept", "kept");
    const std::string locked = shellQuote((m_items / "locked").string());
    int status = 0;
    runCommand("chattr +i " + locked + " 2>&1", &status);
    if (status != 0)
        GTEST_SKIP() << "chattr +i needs root and a file system that supports it";
    EXPECT_THROW(trashItem(item), PosixError);
    runCommand("chattr -i " + locked);

    EXPECT_EQ(TestTree::read(item), "kept");
    EXPECT_TRUE(fs::is_empty(home() / "info"));
    EXPECT_TRUE(fs::is_empty(home() / "files"));
}

TEST_F(Trash, DesktopRestoresTheItemWhereItWas)
{
    if (::access("/usr/bin/gio", X_OK) != 0 || ::access("/usr/bin/dbus-run-session", X_OK) != 0 ||
        ::access("/usr/libexec/gvfsd-trash", X_OK) != 0)
        GTEST_SKIP() << "gio, dbus-run-session or gvfsd-trash is not installed (packages libglib2.0-bin, "
                        "dbus-daemon, gvfs-daemons)";
    const fs::path item = m_items.file("with space.txt", "x");
    trashItem(item);
    int status = 0;
    const std::string output = runCommand(
        "timeout 60 dbus-run-session -- gio trash --restore 'trash:///with%20space.txt' 2>&1", &status);
    ASSERT_EQ(status, 0) << output;
    EXPECT_EQ(TestTree::read(item), "x");
}

TEST_F(VolumeTrash, WithoutAUsableDotTrashAPrivateTrashIsCreatedAtTheTop)
{
    for (const char *dotTrash : {"none", "not sticky", "link to a sticky folder"}) {
        SCOPED_TRACE(dotTrash);
        remount();
        fs::permissions(m_items.folder("volume/sticky"), static_cast<fs::perms>(01777));
        if (dotTrash == std::string("not sticky"))
            fs::permissions(m_items.folder("volume/.Trash"), fs::perms::all);
        else if (dotTrash != std::string("none"))
            fs::create_directory_symlink("sticky", volume() / ".Trash");

        const fs::path trashed = trashItem(m_items.file("volume/sub/item", "data"));

        EXPECT_EQ(trashed, own() / "files" / "item");
        EXPECT_EQ(TestTree::read(trashed), "data");
        EXPECT_EQ(modeOf(own()), 0700u);
        // Relative to the top, so the entry survives the volume being mounted elsewhere.
        EXPECT_THAT(info(trashed), StartsWith("[Trash Info]\nPath=sub/item\n"));
        EXPECT_TRUE(fs::is_empty(volume() / "sticky"));
    }
}

TEST_F(VolumeTrash, StickyDotTrashGetsAFolderPerUser)
{
    fs::permissions(m_items.folder("volume/.Trash"), static_cast<fs::perms>(01777));
    const fs::path mine = volume() / ".Trash" / std::to_string(::geteuid());

    EXPECT_EQ(trashItem(m_items.file("volume/item")), mine / "files" / "item");
    EXPECT_EQ(modeOf(mine), 0700u);
    EXPECT_TRUE(fs::exists(mine / "info" / "item.trashinfo"));
    EXPECT_FALSE(fs::exists(own()));
}

TEST_F(VolumeTrash, UnsafeOrReadOnlyTrashIsRefusedAndTheItemStays)
{
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"private trash is a link", [&] { fs::create_directory_symlink("decoy", own()); }},
        {"private trash of another user",
         [&] { ASSERT_EQ(::chown(m_items.folder(own()).c_str(), 65534, 65534), 0); }},
        {"read-only", [&] { m_volume->makeReadOnly(); }},
        {"read-only with a trash",
         [&] {
             m_items.folder(own() / "files");
             m_items.folder(own() / "info");
             m_volume->makeReadOnly();
         }},
    };
    for (const auto &[label, prepare] : cases) {
        SCOPED_TRACE(label);
        remount();
        m_items.folder("volume/decoy");
        const fs::path item = m_items.file("volume/item", "stays");
        prepare();

        EXPECT_THROW(trashItem(item), NoTrashError);
        EXPECT_EQ(TestTree::read(item), "stays");
        EXPECT_TRUE(fs::is_empty(volume() / "decoy"));
        EXPECT_FALSE(fs::exists(own() / "info" / "item.trashinfo"));
    }
}

TEST_F(VolumeTrash, MountPointWithSpaceAndLineFeedIsTheTopButIsNotTrashedItself)
{
    const fs::path odd = m_items.folder("volume/odd name\nhere");
    ScopedMount inner("tmpfs", odd, "size=1m");

    EXPECT_EQ(trashItem(m_items.file("volume/odd name\nhere/item")),
              odd / own().filename() / "files" / "item");
    try {
        trashItem(odd);
        FAIL() << "a mount point was trashed";
    } catch (const PosixError &error) {
        EXPECT_EQ(error.code().value(), EBUSY);
    }
    EXPECT_FALSE(fs::exists(own()));
}

TEST_F(VolumeTrash, BindMountOfTheHomeDeviceUsesItsOwnTopWhenRenameCannotCross)
{
    ScopedMount bound = ScopedMount::bind(m_items.folder("source"), m_items.folder("bound"));
    const fs::path trashed = trashItem(m_items.file("bound/item", "via bind"));

    EXPECT_EQ(trashed, bound.path() / own().filename() / "files" / "item");
    EXPECT_EQ(TestTree::read(trashed), "via bind");
    EXPECT_FALSE(fs::exists(home() / "info" / "item.trashinfo"));
}

TEST_F(VolumeTrash, ShareUsesAnExistingTrashButNeverGetsOneCreated)
{
    if (::access("/usr/bin/bindfs", X_OK) != 0)
        GTEST_SKIP() << "bindfs is not installed (package bindfs)";
    // A FUSE mount that reports itself as sshfs.
    const fs::path share = m_items.folder("share");
    ScopedMount mounted = ScopedMount::byCommand(
        "bindfs -o subtype=sshfs " + shellQuote(volume().string()) + " " + shellQuote(share.string()), share);
    const fs::path item = m_items.file("share/item", "remote");

    EXPECT_THROW(trashItem(item), NoTrashError);
    EXPECT_EQ(TestTree::read(item), "remote");
    EXPECT_FALSE(fs::exists(own()));
    EXPECT_FALSE(fs::exists(volume() / ".Trash"));

    fs::permissions(m_items.folder(own()), fs::perms::owner_all);
    EXPECT_EQ(trashItem(item), share / own().filename() / "files" / "item");
    EXPECT_EQ(TestTree::read(own() / "files" / "item"), "remote");
}
