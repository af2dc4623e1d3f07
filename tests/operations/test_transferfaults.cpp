// ctest-labels: root
#include "operationstesting.h"

#include <csignal>
#include <optional>

namespace {

const auto trashCount = [] { return contents(dataHome / "Trash/files").size(); };

// Whether other programs seem to keep the volume busy, so a copied folder is flushed
// by one volume flush (quiet) or file by file (busy), whatever the machine does now.
const std::string quietVolume = "QUILLORN_DRIVER_PENDING_WRITEBACK=0 ",
                  busyVolume = "QUILLORN_DRIVER_PENDING_WRITEBACK=4294967296 ";

TEST(CrossVolume, moveCopiesTrashesTheSourceAndWarnsOfAttributesTheVolumeLacks)
{
    TestTree tree;
    MOUNT_OR_SKIP(volume, "ramfs", tree.folder("volume")); // no user extended attributes
    // One device on both sides, yet rename(2) across the two mounts fails with EXDEV.
    MOUNT_OR_SKIP(bound, ScopedMount::bind(tree.folder("real"), tree.folder("bound")));
    const auto logged = logMark();
    for (const fs::path &destination : {volume->path(), bound->path()}) {
        const fs::path data = tree.file("src/box/data.bin", pattern(3 * 1024 * 1024 + 1));
        runCommand("setfattr -n user.colour -v blue " + shellQuote(data));
        const std::size_t trashedBefore = trashCount();
        transfer({tree / "src/box"}, destination, true);
        EXPECT_FALSE(fs::exists(tree / "src/box"));
        EXPECT_EQ(trashCount(), trashedBefore + 1);
        EXPECT_EQ(TestTree::read(destination / "box/data.bin"), pattern(3 * 1024 * 1024 + 1));
        EXPECT_THAT(logged(),
                    Contains("TRANSFER ITEM COMPLETE phase=copy target=" + (destination / "box").string()));
    }
    EXPECT_THAT(logged(),
                Contains(ContainsRegex(
                    "^METADATA WARNING copyfile source=" + (tree / "src/box/data.bin").string() +
                    " destination=" + volume->path().string() + "/box/data.bin error=POSIX code=95: ")));
}

TEST(DiskFull, keepsEarlierItemsAndTheReplacedItemInPlaceAndOutOfTheTrash)
{
    TestTree tree;
    MOUNT_OR_SKIP(volume, "tmpfs", tree.folder("volume"), "size=2m");
    tree.file("volume/big.bin", "old bytes");
    const std::size_t trashedBefore = trashCount();
    EXPECT_EQ(failure([&] {
                  transfer(
                      {tree.file("src/big.bin", pattern(6 * 1024 * 1024)), tree.file("src/a.txt", "small")},
                      volume->path(), false, replace);
              }),
              wrapped("Copying \u2018big.bin\u2019",
                      (volume->path() / "big.bin").string() + ": No space left on device", "POSIX 28"));
    EXPECT_THAT(contents(volume->path()), ElementsAre(Pair("a.txt", "small"), Pair("big.bin", "old bytes")));
    EXPECT_EQ(trashCount(), trashedBefore);
}

// The transfer driver run under strace (failing or killing it at one system call) or as another user.
class InjectedFault : public Test {
protected:
    void SetUp() override
    {
        if (std::system("strace -V >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "strace is not installed";
    }
    TestTree m_tree;
    fs::path m_source = m_tree.file("src/a.txt", pattern(3 * 1024 * 1024 + 7)), m_dst = m_tree.folder("dst");
};

TEST_F(InjectedFault, anInputOutputErrorAtTheFlushOrThePublishingLinkPublishesNothing)
{
    for (const std::string phase :
         {"Copying \u2018a.txt\u2019", "Publishing \u2018a.txt\u2019 at the destination"}) {
        const auto logged = logMark();
        const std::string target = (m_dst / "a.txt").string();
        EXPECT_EQ(drive(injectFault + (phase.starts_with("Copying") ? "fsync" : "linkat") + ":error=EIO",
                        "copy", m_dst, m_source),
                  std::pair(1, wrapped(phase, target + ": Input/output error", "POSIX 5") + "\n"));
        EXPECT_TRUE(fs::is_empty(m_dst)) << phase;
        EXPECT_THAT(logged().back(),
                    MatchesRegex("TRANSFER FAILED phase=" + phase + " source=" + m_source.string() +
                                 " destination=" + (m_dst / "a.txt").string() +
                                 " staging=unnamed error=POSIX code=5: Input/output error path=" + target));
    }
}

TEST_F(InjectedFault, aVolumeThatRefusesALinksDatesGetsTheLinkAndAWarning)
{
    const fs::path link = m_tree.symlink("src/link", "a.txt");
    const auto logged = logMark();
    EXPECT_EQ(drive(injectFault + "utimensat:error=EPERM", "copy", m_dst, link), std::pair(0, std::string()));
    EXPECT_EQ(fs::read_symlink(m_dst / "link"), "a.txt");
    const std::string target = (m_dst / "link").string();
    EXPECT_THAT(logged(), Contains("METADATA WARNING attribute=modificationDate destination=" + target +
                                   " error=POSIX code=1: Operation not permitted path=" + target));
}

TEST_F(InjectedFault, killedAnywhereLeavesNoShortFileAndTheOldBytes)
{
    for (const auto &[call, old] : {std::pair{"copy_file_range:signal=KILL:when=2", ""},
                                    {"copy_file_range:signal=KILL:when=2", "old bytes"},
                                    {"fsync:signal=KILL", ""},
                                    {"linkat:signal=KILL", ""}}) {
        fs::remove_all(m_dst);
        fs::create_directory(m_dst);
        if (*old)
            m_tree.file("dst/a.txt", old);
        EXPECT_EQ(
            drive(injectFault + call, "copy", m_dst, m_source, *old ? "Replace (old item to Trash)" : "Stop")
                .first,
            128 + SIGKILL)
            << call;
        // The final name holds the old bytes or nothing, and the copy, never named, left nothing.
        const std::map<std::string, std::string> left = contents(m_dst);
        EXPECT_EQ(left.contains("a.txt") ? left.at("a.txt") : "", old) << call;
        EXPECT_EQ(left.size(), *old ? 1u : 0u) << call;
    }
}

TEST_F(InjectedFault, asAnOrdinaryUserRefusalsAndFailuresLeaveNothingBehind)
{
    m_tree.file("src/box/sub/inner.txt", "inner");
    for (const fs::path &item : {m_tree.root(), m_source.parent_path(), m_dst})
        fs::permissions(item, fs::perms(0755));
    fs::permissions(m_source, fs::perms(0644));
    const auto [status, errors] = drive(asNobody, "copy", m_dst, m_source);
    if (errors.starts_with("setpriv:"))
        GTEST_SKIP() << "cannot switch to the user nobody: " << errors;
    EXPECT_EQ(status, 1);
    EXPECT_EQ(errors, wrapped("Copying \u2018a.txt\u2019",
                              "Cannot create " + (m_dst / "a.txt").string() + ": Permission denied",
                              "Quillorn.CommanderError 1") +
                          "\n");
    EXPECT_TRUE(fs::is_empty(m_dst));

    // Read-only staging folders go too (root could empty them without their write bit).
    fs::permissions(m_dst, fs::perms::all);
    for (const char *folder : {"src/box/sub", "src/box"})
        fs::permissions(m_tree / folder, fs::perms(0555));
    EXPECT_EQ(
        drive(quietVolume + injectFault + "syncfs:error=EIO " + asNobody, "copy", m_dst, m_tree / "src/box"),
        std::pair(1, wrapped("Copying \u2018box\u2019", (m_dst / "box").string() + ": Input/output error",
                             "POSIX 5") +
                         "\n"));
    EXPECT_TRUE(fs::is_empty(m_dst));
}

TEST_F(InjectedFault, onABusyVolumeFailingFileFlushesPublishNothing)
{
    m_tree.file("src/box/sub/inner.txt", "inner");
    m_tree.file("src/box/outer.txt", "outer");
    // Every fsync(2) fails; the staging journal's own failures cost it nothing but its record.
    const auto [status, errors] =
        drive(busyVolume + injectFault + "fsync:error=EIO", "copy", m_dst, m_tree / "src/box");
    EXPECT_EQ(status, 1);
    EXPECT_THAT(errors, AllOf(StartsWith("Copying \u2018box\u2019 failed: " + (m_dst / "box").string()),
                              HasSubstr(": Input/output error (POSIX 5)")));
    EXPECT_TRUE(fs::is_empty(m_dst));
}

TEST_F(InjectedFault, aWriteBackErrorFoundWhileABigFileIsCopiedPublishesNothing)
{
    const fs::path big = m_tree.file("src/big.bin", pattern(40 * 1024 * 1024));
    // On a quiet volume, whatever else the machine writes: only then is write-back started while copying.
    EXPECT_EQ(drive(quietVolume + injectFault + "sync_file_range:error=EIO:when=2", "copy", m_dst, big),
              std::pair(1, wrapped("Copying \u2018big.bin\u2019",
                                   (m_dst / "big.bin").string() + ": Input/output error", "POSIX 5") +
                               "\n"));
    EXPECT_TRUE(fs::is_empty(m_dst));
}

} // namespace
