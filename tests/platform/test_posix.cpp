// ctest-labels: root
// The POSIX side of the platform layer: trash, metadata and volumes, on real mounts.
#include "platform/posix/detail/fusetypes.h"
#include "platform/posix/detail/mounttable.h"
#include "platform/posix/metadata.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/trash.h"
#include "platform/posix/userfolders.h"
#include "platform/posix/volume.h"

#include "asnobody.h"
#include "scopedmount.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::AsNobody;
using quillorn::test::runCommand;
using quillorn::test::ScopedMount;
using quillorn::test::shellQuote;
using quillorn::test::TestTree;
using namespace ::testing;
using Problems = std::vector<std::string>;

namespace {

constexpr uid_t kNobody = AsNobody::user;

class Posix : public ::testing::Test {
protected:
    // Every test points the home trash at its own folder; the variable is read on each call.
    void SetUp() override { ::setenv("XDG_DATA_HOME", m_data.root().c_str(), 1); }
    static bool root() { return quillorn::test::runningAsRoot(); }
    static struct stat lstatOf(const fs::path &path)
    {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
        return info;
    }
    static unsigned modeOf(const fs::path &path) { return lstatOf(path).st_mode & 07777; }
    static long long nanoseconds(const timespec &t) { return t.tv_sec * 1'000'000'000LL + t.tv_nsec; }
    static bool haveBindfs() { return ::access("/usr/bin/bindfs", X_OK) == 0; }
    // A FUSE mount that reports itself as sshfs.
    static ScopedMount shareOf(const fs::path &backing, const fs::path &where)
    {
        return ScopedMount::byCommand(
            "bindfs -o subtype=sshfs " + shellQuote(backing) + " " + shellQuote(where), where);
    }
    // body's result when run with the access checks of the user nobody.
    template <typename Body> static int asNobody(Body &&body)
    {
        const AsNobody nobody;
        return nobody.skipReason.empty() ? body() : 100;
    }
    fs::path home() const { return m_data / "Trash"; }
    std::string original(const std::string &name) const { return fs::canonical(m_items.root()) / name; }
    static std::string info(const fs::path &trashed)
    {
        return TestTree::read(trashed.parent_path().parent_path() / "info" /
                              (trashed.filename() += ".trashinfo"));
    }

    TestTree m_data, m_items;
};

// Each test gets a small tmpfs of its own, apart from the home trash.
class Mounted : public Posix {
protected:
    void SetUp() override
    {
        Posix::SetUp();
        if (!root())
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

class CopyMetadata : public Posix {
protected:
    static void setTimes(const fs::path &path, long long access, long long modification)
    {
        const timespec times[2] = {{access / 1'000'000'000, access % 1'000'000'000},
                                   {modification / 1'000'000'000, modification % 1'000'000'000}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
    }
    static std::optional<std::string> attribute(const fs::path &path, const char *name)
    {
        char value[4096];
        const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
        return size < 0 ? std::nullopt : std::optional<std::string>(std::in_place, value, size);
    }
    static void setfacl(const std::string &arguments, const fs::path &path)
    {
        ASSERT_EQ(std::system(("setfacl " + arguments + " " + shellQuote(path)).c_str()), 0) << arguments;
    }
    static std::string problem(const std::string &step, int error)
    {
        return step + ": " + std::strerror(error);
    }
    // copyMetadata's problems as "step: reason", a category other than errno's flagged.
    static Problems copied(const fs::path &source, const fs::path &target,
                           std::optional<struct stat> before = {})
    {
        Problems problems;
        for (const MetadataProblem &each : copyMetadata(source, target, before ? *before : lstatOf(source)))
            problems.push_back(problem(each.step, each.error.value()) +
                               (each.error.category() == std::generic_category() ? "" : " (not errno)"));
        return problems;
    }
};

} // namespace

TEST_F(Posix, TrashedItemMovesIntoPrivateFilesWithAnEncodedPathAndTheTimeBeside)
{
    const std::string name = "two\nlines \xFF\xFE% caf\xC3\xA9";
    const std::time_t before = std::time(nullptr);
    const fs::path trashed = trashItem(m_items.file(name, "contents"));
    EXPECT_EQ(trashed, home() / "files" / name);
    EXPECT_EQ(TestTree::read(trashed), "contents");
    for (const char *folder : {"", "files", "info"})
        EXPECT_EQ(modeOf(home() / folder), 0700u) << folder;
    const std::string text = info(trashed);
    EXPECT_THAT(text, StartsWith("[Trash Info]\nPath=" + original("two%0Alines%20%FF%FE%25%20caf%C3%A9") +
                                 "\nDeletionDate="));
    std::tm deleted{};
    ::strptime(text.substr(text.find("DeletionDate=") + 13).c_str(), "%Y-%m-%dT%H:%M:%S", &deleted);
    deleted.tm_isdst = -1;
    EXPECT_LE(std::abs(std::mktime(&deleted) - before), 2) << text;
    m_items.file("tree/inner/leaf", "leaf");
    EXPECT_EQ(TestTree::read(trashItem(m_items / "tree") / "inner" / "leaf"), "leaf");
    EXPECT_EQ(fs::read_symlink(trashItem(m_items.symlink("dangling", "nowhere"))), "nowhere");
}

TEST_F(Posix, TrashNamesNeverReplaceOrReuseAnEntryAndTheLongestIsShortenedButRecordedInFull)
{
    m_data.file("Trash/files/notes", "orphan"); // from a program that crashed before writing its info
    const fs::path first = trashItem(m_items.file("one/notes", "first"));
    const fs::path second = trashItem(m_items.file("two/notes", "second"));
    EXPECT_EQ(first, home() / "files" / "notes.2");
    EXPECT_NE(second, first);
    EXPECT_EQ(TestTree::read(second), "second");
    EXPECT_EQ(TestTree::read(home() / "files" / "notes"), "orphan");
    EXPECT_THAT(info(second), StartsWith("[Trash Info]\nPath=" + original("two/notes") + "\n"));

    std::string longName(200, 'a'), encoded = longName; // ends in two-byte characters
    for (int i = 0; i < 27; ++i) {
        longName += "\xC3\xA9";
        encoded += "%C3%A9";
    }
    const std::string entry = trashItem(m_items.file(longName)).filename();
    EXPECT_LE(entry.size() + std::string(".trashinfo").size(), 255u);
    EXPECT_EQ(longName.compare(0, entry.size(), entry), 0);
    EXPECT_NE(static_cast<unsigned char>(entry.back()), 0xC3) << "cut inside a character";
    EXPECT_THAT(info(home() / "files" / entry), StartsWith("[Trash Info]\nPath=" + original(encoded) + "\n"));
}

TEST_F(Posix, FailedTrashIsAnErrorNamingTheItemAndLeavesNoInfo)
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
    const std::string locked = shellQuote(m_items / "locked");
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

TEST_F(Posix, TrashedItemGoesBackByItsInfoButNeverOverWhatTookItsPlace)
{
    const std::string name = "caf\xE9 100%\n.txt"; // not UTF-8, and escaped in the info
    const fs::path item = m_items.file(name, "contents");
    const fs::path trashed = trashItem(item);
    EXPECT_EQ(trashedItemOrigin(trashed), original(name));
    m_items.file(name, "newer");
    try {
        restoreTrashedItem(trashed);
        FAIL() << "restored over an item";
    } catch (const PosixError &error) {
        EXPECT_EQ(error.code().value(), EEXIST);
        EXPECT_EQ(error.path(), original(name));
    }
    EXPECT_EQ(TestTree::read(item), "newer");
    fs::remove(item);
    EXPECT_EQ(restoreTrashedItem(trashed), original(name));
    EXPECT_EQ(TestTree::read(item), "contents");
    EXPECT_TRUE(fs::is_empty(home() / "info"));
    EXPECT_TRUE(fs::is_empty(home() / "files"));

    // The folder it came from is not made again.
    const fs::path lost = trashItem(m_items.file("gone/lost.txt"));
    fs::remove(m_items / "gone");
    EXPECT_THROW(restoreTrashedItem(lost), PosixError);
    EXPECT_TRUE(fs::exists(lost));
    // Another program's info: other lines first, escapes in lower case; a relative
    // path that climbs out of the trash's top is refused.
    m_data.file("Trash/files/other", "x");
    m_data.file("Trash/info/other.trashinfo",
                "[Trash Info]\nDeletionDate=2020-01-01T00:00:00\nPath=" + original("h%c3%a9") + "\n");
    EXPECT_EQ(trashedItemOrigin(home() / "files/other"), original("h\xC3\xA9"));
    m_data.file("Trash/info/other.trashinfo", "[Trash Info]\nPath=../../etc/passwd\n");
    EXPECT_THROW(trashedItemOrigin(home() / "files/other"), TrashInfoError);
}

TEST_F(Posix, DesktopRestoresTrashedItemWhereItWas)
{
    if (::access("/usr/bin/gio", X_OK) != 0 || ::access("/usr/bin/dbus-run-session", X_OK) != 0 ||
        ::access("/usr/libexec/gvfsd-trash", X_OK) != 0)
        GTEST_SKIP()
            << "needs gio, dbus-run-session, gvfsd-trash (libglib2.0-bin, dbus-daemon, gvfs-daemons)";
    const fs::path item = m_items.file("with space.txt", "x");
    trashItem(item);
    int status = 0;
    const std::string output = runCommand(
        "timeout 60 dbus-run-session -- gio trash --restore 'trash:///with%20space.txt' 2>&1", &status);
    ASSERT_EQ(status, 0) << output;
    EXPECT_EQ(TestTree::read(item), "x");
}

TEST_F(Mounted, OnlyARealStickyDotTrashIsUsedElseAPrivateTrashIsCreatedAtTheTop)
{
    const std::string mine = std::to_string(::geteuid());
    for (const char *dotTrash : {"missing", "not sticky", "a link to a sticky folder", "sticky"}) {
        SCOPED_TRACE(dotTrash);
        remount();
        fs::permissions(m_items.folder("volume/elsewhere"), static_cast<fs::perms>(01777));
        const std::string kind = dotTrash;
        if (kind == "a link to a sticky folder")
            fs::create_directory_symlink("elsewhere", volume() / ".Trash");
        else if (kind != "missing")
            fs::permissions(m_items.folder("volume/.Trash"),
                            kind == "sticky" ? fs::perms(01777) : fs::perms::all);
        const fs::path expected = kind == "sticky" ? volume() / ".Trash" / mine : own();
        const fs::path trashed = trashItem(m_items.file("volume/sub/item", "data"));
        EXPECT_EQ(trashed, expected / "files" / "item");
        EXPECT_EQ(TestTree::read(trashed), "data");
        EXPECT_EQ(modeOf(expected), 0700u);
        // Relative to the top, so the entry survives the volume being mounted elsewhere.
        EXPECT_THAT(info(trashed), StartsWith("[Trash Info]\nPath=sub/item\n"));
        EXPECT_TRUE(fs::is_empty(volume() / "elsewhere"));
        EXPECT_EQ(fs::exists(own()), kind != "sticky");
    }
}

TEST_F(Mounted, AnItemOfAVolumesTrashGoesBackRelativeToWhereTheVolumeIsNow)
{
    for (const bool shared : {false, true}) {
        SCOPED_TRACE(shared ? "$topdir/.Trash/$uid" : "$topdir/.Trash-$uid");
        remount();
        if (shared)
            fs::permissions(m_items.folder("volume/.Trash"), fs::perms(01777));
        const fs::path trashed = trashItem(m_items.file("volume/sub/item", "data"));
        // Seen elsewhere too: only the path below the top is recorded.
        const fs::path elsewhere = m_items.folder("elsewhere");
        ScopedMount moved = ScopedMount::bind(volume(), elsewhere);
        const fs::path there = elsewhere / fs::relative(trashed, volume());
        EXPECT_EQ(restoreTrashedItem(there), elsewhere / "sub/item");
        EXPECT_EQ(TestTree::read(elsewhere / "sub/item"), "data");
        EXPECT_TRUE(fs::is_empty(there.parent_path().parent_path() / "info"));
    }
}

TEST_F(Mounted, ASharedTrashThatFailsItsChecksIsReportedOnEachUseAndAMissingOneIsNot)
{
    for (const std::string kind : {"not sticky", "symbolic link", "not a folder", "sticky", "missing"}) {
        SCOPED_TRACE(kind);
        remount();
        fs::permissions(m_items.folder("volume/elsewhere"), static_cast<fs::perms>(01777));
        if (kind == "symbolic link")
            fs::create_directory_symlink("elsewhere", volume() / ".Trash");
        else if (kind == "not a folder")
            m_items.file("volume/.Trash");
        else if (kind != "missing")
            fs::permissions(m_items.folder("volume/.Trash"),
                            kind == "sticky" ? fs::perms(01777) : fs::perms::all);
        std::vector<std::string> reports;
        const TrashReport report = [&](const std::string &line) { reports.push_back(line); };
        trashItem(m_items.file("volume/one"), report);
        trashItem(m_items.file("volume/two"), report);
        const std::string line = "TRASH SKIPPED path=" + (volume() / ".Trash").string() + " reason=" + kind;
        if (kind == "sticky" || kind == "missing")
            EXPECT_THAT(reports, IsEmpty());
        else
            EXPECT_THAT(reports, ElementsAre(line, line));
    }
}

TEST_F(Mounted, UnsafeOrReadOnlyTrashIsRefusedAndTheItemStays)
{
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"private trash is a link", [&] { fs::create_directory_symlink("decoy", own()); }},
        {"private trash of another user",
         [&] { ASSERT_EQ(::chown(m_items.folder(own()).c_str(), kNobody, kNobody), 0); }},
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

TEST_F(Mounted, MountPointWithSpaceAndLineFeedIsTheTopButIsNotTrashedItself)
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

TEST_F(Mounted, BindMountOfTheHomeDeviceUsesItsOwnTopWhenRenameCannotCross)
{
    ScopedMount bound = ScopedMount::bind(m_items.folder("source"), m_items.folder("bound"));
    const fs::path trashed = trashItem(m_items.file("bound/item", "via bind"));
    EXPECT_EQ(trashed, bound.path() / own().filename() / "files" / "item");
    EXPECT_EQ(TestTree::read(trashed), "via bind");
    EXPECT_FALSE(fs::exists(home() / "info" / "item.trashinfo"));
}

TEST_F(Mounted, ShareUsesAnExistingTrashButNeverGetsOneCreated)
{
    if (!haveBindfs())
        GTEST_SKIP() << "bindfs is not installed (package bindfs)";
    ScopedMount share = shareOf(volume(), m_items.folder("share"));
    const fs::path item = m_items.file("share/item", "remote");
    EXPECT_THROW(trashItem(item), NoTrashError);
    EXPECT_EQ(TestTree::read(item), "remote");
    EXPECT_FALSE(fs::exists(own()));
    EXPECT_FALSE(fs::exists(volume() / ".Trash"));
    fs::permissions(m_items.folder(own()), fs::perms::owner_all);
    EXPECT_EQ(trashItem(item), share.path() / own().filename() / "files" / "item");
    EXPECT_EQ(TestTree::read(own() / "files" / "item"), "remote");
}

TEST_F(Mounted, VolumesAreToldApartSharesAreNotLocalAndTheListLeavesOutPlumbing)
{
    if (!haveBindfs())
        GTEST_SKIP() << "bindfs is not installed (package bindfs)";
    // On a name with a space and a line feed, which the mount table escapes.
    ScopedMount share = shareOf(m_items.folder("backing"), m_items.folder("share with space\nand line"));
    const fs::path here = m_items.file("here"), there = m_items.file("volume/there");
    m_items.symlink("backing/dangling", "nowhere");
    ASSERT_TRUE(volumeIdentifier(here).has_value());
    EXPECT_NE(volumeIdentifier(here), volumeIdentifier(there));
    EXPECT_EQ(volumeIdentifier(m_items.symlink("link-to-there", there)), volumeIdentifier(here));
    EXPECT_EQ(volumeIdentifier(m_items / "missing"), std::nullopt);
    EXPECT_TRUE(volumeIsLocal(here));
    EXPECT_TRUE(volumeIsLocal(there));
    EXPECT_TRUE(volumeIsLocal(m_items / "backing/dangling"));
    EXPECT_FALSE(volumeIsLocal(share.path()));
    EXPECT_FALSE(volumeIsLocal(share.path() / "dangling"));
    EXPECT_THROW(volumeIsLocal(m_items / "missing"), std::system_error);
    std::vector<fs::path> volumes;
    for (const MountedVolume &volume : mountedVolumes())
        volumes.push_back(volume.path);
    EXPECT_THAT(volumes, Contains(fs::path("/")));
    EXPECT_THAT(volumes, Contains(share.path()));
    for (const fs::path &plumbing : {volume(), fs::path("/proc"), fs::path("/sys"), fs::path("/dev/pts")})
        EXPECT_THAT(volumes, Not(Contains(plumbing)));
    EXPECT_TRUE(std::is_sorted(volumes.begin(), volumes.end()));
}

namespace {

// A FAT image on a loop device, served by fusefat; with blkdev the kernel types
// the mount fuseblk, as it does for ntfs-3g and exfat-fuse on a USB disk.
struct FatVolume {
    FatVolume(const fs::path &image, const fs::path &where, bool blockDevice)
        : device(runCommand("truncate -s 16M " + shellQuote(image) + " && mkfs.vfat " + shellQuote(image) +
                            " >/dev/null && losetup -f --show " + shellQuote(image)))
    {
        if (device.empty())
            throw std::runtime_error("mkfs.vfat (package dosfstools) or losetup failed");
        device.pop_back(); // the line feed
        const std::string options = blockDevice ? "rw+,blkdev,fsname=" + device : "rw+";
        mount.emplace(ScopedMount::byCommand(
            "fusefat -o " + options + " " + device + " " + shellQuote(where) + " >/dev/null", where));
    }
    ~FatVolume() { mount.reset(), runCommand("losetup -d " + device); }
    std::string device;
    std::optional<ScopedMount> mount;
};

} // namespace

TEST_F(Mounted, FuseVolumesAreLocalWhenTheirDataIsAndALocalOneGetsATrashAtItsTop)
{
    if (!haveBindfs() || ::access("/usr/bin/fusefat", X_OK) != 0)
        GTEST_SKIP() << "needs bindfs and fusefat (packages bindfs, fusefat, dosfstools)";
    ScopedMount share = shareOf(m_items.folder("backing"), m_items.folder("share"));
    ScopedMount plain = ScopedMount::byCommand(
        "bindfs " + shellQuote(volume()) + " " + shellQuote(m_items.folder("plain")), m_items / "plain");
    FatVolume disk(m_items / "disk.img", m_items.folder("disk"), true);
    FatVolume image(m_items / "image.img", m_items.folder("image"), false);
    const std::string mountTable = TestTree::read("/proc/self/mountinfo");
    ASSERT_THAT(mountTable,
                HasSubstr(" " + (m_items / "disk").string() + " rw,nosuid,nodev,relatime - fuseblk "));
    for (const auto &[where, local] : {std::pair{share.path(), false},
                                       {plain.path(), true},
                                       {m_items / "disk", true},
                                       {m_items / "image", true}}) {
        EXPECT_EQ(volumeIsLocal(where), local) << where;
        EXPECT_EQ(volumeIsLocal(m_items.file(where / "sub/item.txt", "x")), local) << where;
    }
    // A USB disk through ntfs-3g or exfat-fuse keeps the Trash instead of losing items for good.
    const fs::path trashed = trashItem(m_items / "disk/sub/item.txt");
    EXPECT_EQ(trashed, m_items / "disk" / own().filename() / "files/item.txt");
    EXPECT_THAT(info(trashed), StartsWith("[Trash Info]\nPath=sub/item.txt\n"));
}

TEST(MountTable, FuseTypesAndSourcesDecideWhereTheDataLives)
{
    using detail::FuseData;
    const std::pair<FuseData, std::vector<std::string>> cases[] = {
        {FuseData::local, {"fuseblk /dev/sdb1", "fuse.ntfs-3g /dev/sdb1", "fuse.mergerfs disk1:disk2"}},
        {FuseData::network,
         {"fuse.sshfs me@host:/home", "fuse.rclone drive:", "fuse.s3fs s3fs", "fuse.gvfsd-fuse gvfsd-fuse",
          "fuse.curlftpfs ftp://host/", "fuse.davfs https://host/dav", "fuse.smbnetfs smbnetfs"}},
        {FuseData::unknown, {"fuse /srv/folder", "fuse.somethingnew label"}}};
    for (const auto &[data, typesAndSources] : cases)
        for (const std::string &typeAndSource : typesAndSources) {
            const std::string line =
                "61 27 0:52 / /mnt/odd\\040name rw,nosuid shared:7 - " + typeAndSource + " rw,user_id=0";
            const std::optional<detail::MountEntry> entry = detail::parseMountInfoLine(line);
            ASSERT_TRUE(entry.has_value()) << line;
            EXPECT_EQ(detail::fuseData(entry->fsType), data) << line;
            EXPECT_EQ(entry->mountId, 61u);
            EXPECT_EQ(entry->device, makedev(0, 52));
            EXPECT_EQ(entry->mountPoint, "/mnt/odd name");
        }
}

TEST_F(Mounted, MountPointsAreRecognisedAndNeverRemovedThemselves)
{
    if (!haveBindfs())
        GTEST_SKIP() << "bindfs is not installed (package bindfs)";
    ScopedMount bound = ScopedMount::bind(m_items.folder("source"), m_items.folder("bound")); // same device
    ScopedMount share = shareOf(m_items.folder("backing"), m_items.folder("share"));
    for (const fs::path &mount : {volume(), bound.path(), share.path()}) {
        SCOPED_TRACE(mount);
        m_items.file(mount / "inside/kept.txt", "kept");
        EXPECT_TRUE(isMountPoint(mount));
        try {
            removeTree(mount);
            ADD_FAILURE() << "a mount point was removed";
        } catch (const RemovalError &error) {
            EXPECT_EQ(error.path(), mount);
            EXPECT_EQ(error.what(), "\u2018" + mount.string() +
                                        "\u2019 is the mount point of another volume; nothing was removed.");
        }
        EXPECT_EQ(TestTree::read(mount / "inside/kept.txt"), "kept");
    }
    for (const fs::path &other : {m_items.folder("plain"), m_items.symlink("link-to-volume", volume()),
                                  volume() / "inside", m_items / "missing"})
        EXPECT_FALSE(isMountPoint(other)) << other;
}

TEST_F(Mounted, PermanentRemovalTakesAllButWhatIsMountedInsideAndFollowsNoLink)
{
    const fs::path tree = m_items.folder("tree"), outside = m_items.folder("outside");
    m_items.file("outside/keep.txt", "outside");
    m_items.file("tree/a/one.txt");
    m_items.file("tree/a/deeper/two.txt");
    m_items.symlink("tree/a/link-out", outside);
    m_items.symlink("tree/dangling", "nowhere");
    // A file bind-mounted onto a file, the rarest mount, at the bottom of the tree.
    ScopedMount file = ScopedMount::bind(outside / "keep.txt", m_items.file("tree/a/deeper/mounted-file"));
    try {
        removeTree(tree);
        ADD_FAILURE() << "nothing was reported";
    } catch (const RemovalError &error) {
        EXPECT_EQ(error.path(), file.path());
        EXPECT_EQ(error.what(), "\u2018" + file.path().string() +
                                    "\u2019 is the mount point of another volume and was left in place.");
    }
    std::vector<fs::path> left;
    for (const auto &entry : fs::recursive_directory_iterator(tree))
        left.push_back(entry.path().lexically_relative(tree));
    EXPECT_THAT(left, UnorderedElementsAre("a", "a/deeper", "a/deeper/mounted-file"));
    EXPECT_EQ(TestTree::read(outside / "keep.txt"), "outside");
    EXPECT_NO_THROW(removeTree(m_items / "missing"));
}

TEST_F(Posix, ReadOnlyStagingTreeGoesOnlyWhenMadeWritableAndNothingOutsideChanges)
{
    if (!root())
        GTEST_SKIP() << "needs root to act as nobody (root may write anywhere)";
    const fs::path staging = m_items.folder(".quillorn-staging"), outside = m_items.folder("outside");
    m_items.file(".quillorn-staging/sub/locked/file.txt");
    m_items.file(".quillorn-staging/sub/plain.txt");
    m_items.file("outside/keep.txt", "outside");
    m_items.symlink(".quillorn-staging/sub/out", outside);
    runCommand("chown -hR nobody: " + shellQuote(m_items.root()));
    for (const auto &[folder, mode] :
         {std::pair{staging / "sub/locked", 0}, {staging / "sub", 0500}, {staging, 0300}, {outside, 0500}})
        ASSERT_EQ(::chmod(folder.c_str(), mode), 0) << folder;
    const auto removeAsNobody = [&](bool makeWritable) {
        return asNobody([&] {
            try {
                removeTree(staging, makeWritable);
                return 0;
            } catch (const PosixError &error) {
                return error.code().value() == EACCES ? 1 : 2;
            } catch (const RemovalError &error) {
                return error.path() == staging / "sub" ? 3 : 4;
            }
        });
    };
    EXPECT_EQ(removeAsNobody(false), 1) << "the unreadable staging folder itself is what stays";
    EXPECT_EQ(removeAsNobody(true), 0);
    EXPECT_FALSE(fs::exists(staging));
    EXPECT_EQ(modeOf(outside), 0500u);
    EXPECT_EQ(TestTree::read(outside / "keep.txt"), "outside");
}

TEST_F(CopyMetadata, OwnerModeAndNanosecondTimesComeFromTheStatTakenBefore)
{
    const fs::path source = m_items.file("source", "data"), target = m_items.file("target", "data");
    // The owner must be given before the mode, or chown would clear set-user-ID.
    ASSERT_TRUE(!root() || ::chown(source.c_str(), kNobody, kNobody) == 0);
    ASSERT_EQ(::chmod(source.c_str(), 06751), 0);
    setTimes(source, 1'500'000'000'123'456'789, 1'400'000'000'987'654'321);
    const struct stat before = lstatOf(source);
    setTimes(source, 1'300'000'000'000'000'000, 1'300'000'000'000'000'000); // changed while the copy ran
    EXPECT_EQ(copied(source, target, before), Problems{});
    const struct stat after = lstatOf(target);
    EXPECT_EQ(after.st_mode & 07777, 06751u);
    EXPECT_EQ(nanoseconds(after.st_atim), 1'500'000'000'123'456'789);
    EXPECT_EQ(nanoseconds(after.st_mtim), 1'400'000'000'987'654'321);
    EXPECT_EQ(after.st_uid, root() ? kNobody : ::getuid());
}

TEST_F(CopyMetadata, AttributesAndAclsTravelByteForByteAndInheritedAclsAreDropped)
{
    const fs::path source = m_items.folder("source");
    const std::pair<const char *, std::string> attributes[] = {
        {"user.plain", "value"}, {"user.binary", std::string("a\0b\xFF", 4)}, {"user.empty", ""}};
    for (const auto &[name, value] : attributes)
        ASSERT_EQ(::lsetxattr(source.c_str(), name, value.data(), value.size(), 0), 0) << name;
    setfacl("-m u:nobody:rx", source);
    setfacl("-d -m g:nogroup:rwx", source);
    // Whatever the destination folder's default ACL hands down must give way to the source's.
    setfacl("-d -m u:nobody:rwx", m_items.folder("destination"));
    const fs::path target = m_items.folder("destination/target");
    const fs::path plain = m_items.file("plain"), plainTarget = m_items.file("destination/plain");
    ASSERT_EQ(::chmod(plain.c_str(), 0600), 0);
    ASSERT_TRUE(attribute(plainTarget, "system.posix_acl_access").has_value()) << "no ACL was inherited";
    EXPECT_EQ(copied(source, target), Problems{});
    EXPECT_EQ(copied(plain, plainTarget), Problems{});
    for (const auto &[name, value] : attributes)
        EXPECT_EQ(attribute(target, name), value) << name;
    for (const char *acl : {"system.posix_acl_access", "system.posix_acl_default"}) {
        EXPECT_TRUE(attribute(target, acl).has_value()) << acl;
        EXPECT_EQ(attribute(target, acl), attribute(source, acl)) << acl;
    }
    EXPECT_EQ(modeOf(target), modeOf(source));
    EXPECT_FALSE(attribute(plainTarget, "system.posix_acl_access").has_value());
    EXPECT_EQ(modeOf(plainTarget), 0600u);
}

TEST_F(CopyMetadata, SymbolicLinkGetsItsOwnTimesAndOwnerWithoutFollowing)
{
    const fs::path pointedAt = m_items.file("pointed-at");
    const fs::path source = m_items.symlink("source", "pointed-at"),
                   target = m_items.symlink("target", "pointed-at");
    setTimes(source, 1'100'000'000'000'000'111, 1'100'000'000'000'000'222);
    ASSERT_TRUE(!root() || ::lchown(source.c_str(), kNobody, kNobody) == 0);
    const struct stat pointedBefore = lstatOf(pointedAt);
    EXPECT_EQ(copied(source, target), Problems{});
    EXPECT_EQ(nanoseconds(lstatOf(target).st_mtim), 1'100'000'000'000'000'222);
    EXPECT_EQ(lstatOf(target).st_uid, root() ? kNobody : ::getuid());
    EXPECT_EQ(nanoseconds(lstatOf(pointedAt).st_mtim), nanoseconds(pointedBefore.st_mtim)) << "link followed";
    EXPECT_EQ(lstatOf(pointedAt).st_uid, ::getuid());
}

TEST_F(CopyMetadata, MissingTargetIsReportedStepByStepNeverThrown)
{
    EXPECT_EQ(copied(m_items.file("source"), m_items / "missing"),
              (Problems{problem("copyfile", ENOENT), problem("permissions", ENOENT),
                        problem("modificationDate", ENOENT)}));
}

TEST_F(CopyMetadata, UserWhoCannotGiveAFileAwayKeepsItSilentlyButGetsModeAndTimes)
{
    if (!root())
        GTEST_SKIP() << "needs root to act as nobody";
    fs::permissions(m_items.root(), static_cast<fs::perms>(0755));
    const fs::path source = m_items.file("source-of-root", "x"), target = m_items.file("target", "x");
    ASSERT_EQ(::chmod(source.c_str(), 0640), 0);
    ASSERT_EQ(::chown(target.c_str(), kNobody, kNobody), 0);
    const struct stat before = lstatOf(source);
    EXPECT_EQ(asNobody([&] { return copied(source, target, before).empty() ? 0 : 1; }), 0)
        << "1: a problem was reported, 100: could not switch to nobody";
    EXPECT_EQ(lstatOf(target).st_uid, kNobody);
    EXPECT_EQ(modeOf(target), 0640u);
    EXPECT_EQ(nanoseconds(lstatOf(target).st_mtim), nanoseconds(before.st_mtim));
}

TEST_F(CopyMetadata, VolumeWithoutExtendedAttributesIsAProblemAndTheRestIsCopied)
{
    if (!root())
        GTEST_SKIP() << "mounting needs root";
    const fs::path source = m_items.file("source", "payload");
    ASSERT_EQ(::setxattr(source.c_str(), "user.tag", "v", 1, 0), 0);
    ASSERT_EQ(::chmod(source.c_str(), 0604), 0);
    // ramfs has no handler for user.* attributes and refuses them.
    ScopedMount ramfs("ramfs", m_items.folder("ramfs"));
    const fs::path target = m_items.file("ramfs/target", "payload");
    EXPECT_EQ(copied(source, target), Problems{problem("copyfile", EOPNOTSUPP)});
    EXPECT_EQ(TestTree::read(target), "payload");
    EXPECT_EQ(modeOf(target), 0604u);
    EXPECT_EQ(nanoseconds(lstatOf(target).st_mtim), nanoseconds(lstatOf(source).st_mtim));
}

// user-dirs.dirs as xdg-user-dirs writes it, and the lines its own lookup passes over.
TEST(UserFolders, DesktopFoldersAreReadAsXdgUserDirsRecordsThem)
{
    TestTree config;
    ::setenv("XDG_CONFIG_HOME", config.root().c_str(), 1);
    const fs::path home = "/home/user";
    const std::vector<std::pair<std::string, std::optional<fs::path>>> cases{
        {"XDG_DOWNLOAD_DIR=\"$HOME/Загрузки\"\n", home / "Загрузки"},
        {"  XDG_DOWNLOAD_DIR = \"/srv/down loads/\"", fs::path("/srv/down loads")},
        {"XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\" \\$c\\\\d\"\n", home / "a \"b\" $c\\d"},
        {"XDG_DOWNLOAD_DIR=\"$HOME/caf\xe9\"\n", home / "caf\xe9"}, // not UTF-8: the bytes stay
        {"XDG_DOWNLOAD_DIR=\"$HOME/\"\n", home},                    // turned off: home itself
        {"XDG_DOWNLOAD_DIR=\"$HOME/old\"\nXDG_DOWNLOAD_DIR=\"$HOME/new\"\n", home / "new"},
        {"# XDG_DOWNLOAD_DIR=\"$HOME/no\"\nXDG_DOWNLOADS_DIR=\"$HOME/no\"\nXDG_MUSIC_DIR=\"$HOME/no\"\n",
         std::nullopt},
        {"XDG_DOWNLOAD_DIR=$HOME/unquoted\nXDG_DOWNLOAD_DIR=\"relative\"\nXDG_DOWNLOAD_DIR=\"~/x\"\n",
         std::nullopt},
    };
    for (const auto &[contents, expected] : cases) {
        config.file("user-dirs.dirs", contents);
        EXPECT_EQ(desktopUserFolder("DOWNLOAD", home), expected) << contents;
    }
    fs::remove(config / "user-dirs.dirs");
    EXPECT_EQ(desktopUserFolder("DOWNLOAD", home), std::nullopt);
    ::unsetenv("XDG_CONFIG_HOME");
}
