#include "operationstesting.h"

#include "operations/stagingjournal.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Entries = std::vector<std::pair<fs::path, fs::path>>;

const std::string kUuid = "0F4C2A9E-5B7D-4E21-9C3A-7D1E8F2B6A40";

// Makes a staging-like folder: read-only inside, as a half-copied tree may be.
void makeStaging(const fs::path &staging)
{
    fs::create_directories(staging / "sub");
    std::ofstream(staging / "sub/part.bin") << "half";
    fs::permissions(staging / "sub", fs::perms::owner_read | fs::perms::owner_exec);
}

// Another Quillorn: a child process that records entries in a journal kept in
// folder, makes each item, and then stops until killed.
class Owner {
public:
    Owner(const fs::path &folder, const Entries &entries) : m_pid(::fork())
    {
        if (m_pid == 0) {
            try {
                StagingJournal journal(folder); // holds its lock until the process dies
                for (const auto &[staging, target] : entries) {
                    journal.add(staging, target);
                    makeStaging(staging);
                }
                ::raise(SIGSTOP);
            } catch (...) {
            }
            ::_exit(2); // never let the test runner go on in the child
        }
        int status = 0;
        if (::waitpid(m_pid, &status, WUNTRACED) != m_pid || !WIFSTOPPED(status))
            throw std::runtime_error("the owner process did not start");
    }
    ~Owner() { kill(); }
    Owner(const Owner &) = delete;
    Owner &operator=(const Owner &) = delete;

    // Ends it the way a crash does: no destructor, no clean-up.
    void kill()
    {
        if (m_pid > 0)
            ::kill(m_pid, SIGKILL), ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

private:
    pid_t m_pid;
};

class StagingJournalTest : public Test {
protected:
    fs::path staging(const std::string &folder, char last = '0')
    {
        std::string uuid = kUuid;
        uuid.back() = last;
        return m_tree.folder(folder) / (".quillorn-" + uuid);
    }
    std::map<std::string, std::string> journalFiles() const { return contents(m_folder); }

    TestTree m_tree;
    fs::path m_folder = m_tree / "state/Quillorn";
};

TEST_F(StagingJournalTest, killedOwnersStagingItemsGoAtTheNextStartWithOneLineEach)
{
    const fs::path plain = staging("dst"), odd = staging("dst \n\xFF%41 odd", '1');
    Owner owner(m_folder, {{plain, m_tree / "dst/photo.jpg"}, {odd, m_tree / "dst \n\xFF%41 odd/b\nc"}});
    EXPECT_EQ(fs::status(m_folder).permissions(), fs::perms::owner_all);
    owner.kill();
    const auto logged = logMark();
    EXPECT_THAT(StagingJournal(m_folder).recover(), UnorderedElementsAre(plain, odd));
    EXPECT_FALSE(fs::exists(plain));
    EXPECT_FALSE(fs::exists(odd));
    EXPECT_THAT(logged(), Contains("STAGING REMOVED staging=" + plain.string() +
                                   " target=" + (m_tree / "dst/photo.jpg").string()));
    EXPECT_THAT(journalFiles(), IsEmpty());
    EXPECT_THAT(StagingJournal(m_folder).recover(), IsEmpty());
}

TEST_F(StagingJournalTest, aRunningOwnersItemsAreNeverTouched)
{
    const fs::path item = staging("dst");
    Owner owner(m_folder, {{item, m_tree / "dst/a.txt"}});
    StagingJournal journal(m_folder);
    journal.add(staging("mine", '2'), m_tree / "mine/b.txt"); // this process's own entry
    makeStaging(staging("mine", '2'));
    EXPECT_THAT(journal.recover(), IsEmpty());
    EXPECT_THAT(StagingJournal(m_folder).recover(), IsEmpty());
    EXPECT_TRUE(fs::exists(item / "sub/part.bin"));
    EXPECT_TRUE(fs::exists(staging("mine", '2') / "sub/part.bin"));
    owner.kill();
    EXPECT_THAT(StagingJournal(m_folder).recover(), ElementsAre(item));
    EXPECT_TRUE(fs::exists(staging("mine", '2')));
}

TEST_F(StagingJournalTest, onlyAnExistingItemWithAStagingNameIsEverRemoved)
{
    const fs::path notes = m_tree / "dst/notes", gone = staging("dst", '1'),
                   folderGone = staging("gone", '3'),
                   lowerCase = m_tree / "dst/.quillorn-0f4c2a9e-5b7d-4e21-9c3a-7d1e8f2b6a40",
                   roundabout = m_tree / "dst/sub/.." / staging("dst", '2').filename();
    Owner owner(m_folder, {{notes, m_tree / "dst/w"},
                           {gone, m_tree / "dst/x"},
                           {lowerCase, m_tree / "dst/y"},
                           {roundabout, m_tree / "dst/z"},
                           {folderGone, m_tree / "gone/v"}});
    owner.kill();
    fs::remove_all(gone);            // recorded and made, then published before the crash
    fs::remove_all(m_tree / "gone"); // its whole folder deleted on a volume still mounted
    const auto logged = logMark();
    EXPECT_THAT(StagingJournal(m_folder).recover(), IsEmpty());
    for (const fs::path &kept : {notes, lowerCase, staging("dst", '2')})
        EXPECT_TRUE(fs::exists(kept / "sub/part.bin")) << kept;
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_F(StagingJournalTest, finishedEntriesAreForgottenAndALongJournalIsRewrittenInPlace)
{
    const fs::path kept = staging("dst", '9');
    {
        StagingJournal journal(m_folder);
        const fs::path longName = fs::path(std::string(200, 'n')) / std::string(200, 'o') /
                                  std::string(200, 'p') / std::string(200, 'q') / std::string(200, 'r');
        for (int i = 0; i < 100; ++i)
            journal.add(m_tree / "dst" / (".quillorn-" + std::to_string(i)), m_tree / "dst" / longName);
        journal.add(kept, m_tree / "dst/kept.txt");
        for (int i = 0; i < 100; ++i)
            journal.remove(m_tree / "dst" / (".quillorn-" + std::to_string(i)));
        const std::map<std::string, std::string> files = journalFiles();
        ASSERT_EQ(files.size(), 2u);
        for (const auto &[name, text] : files) {
            EXPECT_THAT(name, MatchesRegex("staging-[0-9]+-[0-9a-f]+\\.(lock|journal)"));
            if (name.ends_with(".journal")) {
                EXPECT_LT(text.size(), 64u * 1024) << "never rewritten";
            }
        }
        makeStaging(kept);
    } // gone with an entry still live, as if the process had been killed
    {
        StagingJournal finished(m_folder);
        finished.add(staging("dst", '8'), m_tree / "dst/done.txt");
        finished.remove(staging("dst", '8'));
    } // a clean exit leaves nothing behind
    EXPECT_THAT(StagingJournal(m_folder).recover(), ElementsAre(kept));
    EXPECT_THAT(journalFiles(), IsEmpty());
}

TEST_F(StagingJournalTest, aLinkPlantedAsTheJournalFolderIsRefusedAndReportedOnce)
{
    const fs::path elsewhere = m_tree.folder("elsewhere");
    fs::create_directories(m_folder.parent_path());
    fs::create_directory_symlink(elsewhere, m_folder);
    const auto logged = logMark();
    StagingJournal journal(m_folder);
    for (char last : {'0', '1'})
        EXPECT_NO_THROW(journal.add(staging("dst", last), m_tree / "dst/a.txt"));
    EXPECT_TRUE(fs::is_empty(elsewhere));
    EXPECT_THAT(logged(), ElementsAre(StartsWith("STAGING JOURNAL FAILED path=" + m_folder.string() +
                                                 " error=POSIX code=20: Not a directory")));
}

// A real copy of a folder killed by the kernel in the middle of its data. (A lone
// file is written with no name and leaves nothing: see the transfer's fault tests.)
TEST_F(StagingJournalTest, copyKilledMidwayLeavesAStagingItemThatTheNextStartRemoves)
{
    if (std::system("strace -V >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "strace is not installed";
    m_tree.file("src/box/big.bin", pattern(3 * 1024 * 1024 + 7));
    const fs::path source = m_tree / "src/box", destination = m_tree.folder("dst");
    drive(injectFault + "copy_file_range:signal=KILL:when=2", "copy", destination, source);
    const std::map<std::string, std::string> left = contents(destination);
    ASSERT_EQ(left.size(), 1u) << "the driver was not killed in the middle of the copy";
    const fs::path item = destination / left.begin()->first;
    const auto logged = logMark();
    EXPECT_THAT(StagingJournal::shared().recover(), ElementsAre(item));
    EXPECT_TRUE(fs::is_empty(destination));
    EXPECT_THAT(logged(), ElementsAre("STAGING REMOVED staging=" + item.string() +
                                      " target=" + (destination / "box").string()));
}

// A copy killed on a removable volume that is not plugged in at the next start:
// its staging item waits in the journal until the volume is mounted again.
TEST_F(StagingJournalTest, anItemOnAVolumeAbsentAtTheNextStartIsRemovedOnceItIsBack)
{
    if (std::system("strace -V >/dev/null 2>&1") != 0 || std::system("mkfs.ext4 -V >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "strace or mkfs.ext4 is not installed";
    const fs::path image = m_tree / "volume.img", where = m_tree.folder("mnt");
    ASSERT_EQ(std::system(
                  ("truncate -s 32M " + shellQuote(image) + " && mkfs.ext4 -q " + shellQuote(image)).c_str()),
              0);
    const std::string mountCommand = "mount -o loop " + shellQuote(image) + " " + shellQuote(where);
    MOUNT_OR_SKIP(volume, ScopedMount::byCommand(mountCommand, where));
    m_tree.file("src/box/big.bin", pattern(3 * 1024 * 1024 + 7));
    const fs::path source = m_tree / "src/box";
    drive(injectFault + "copy_file_range:signal=KILL:when=2", "copy", where, source);
    std::map<std::string, std::string> left = contents(where);
    left.erase("lost+found");
    ASSERT_EQ(left.size(), 1u) << "the driver was not killed in the middle of the copy";
    const fs::path item = where / left.begin()->first;
    const auto stagingFiles = [] { return contents(StagingJournal::shared().folder()); };
    ASSERT_THAT(stagingFiles(), Contains(Pair(EndsWith(".journal"), HasSubstr("add "))));

    volume.reset(); // the volume is unplugged; its mount point, an empty folder, stays
    const auto logged = logMark();
    EXPECT_THAT(StagingJournal::shared().recover(), IsEmpty());
    EXPECT_THAT(StagingJournal(StagingJournal::shared().folder()).recover(), IsEmpty()); // a later start
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(stagingFiles(), Contains(Pair(EndsWith(".journal"), HasSubstr(item.filename().string()))));

    volume.emplace(ScopedMount::byCommand(mountCommand, where));
    ASSERT_TRUE(fs::exists(item));
    EXPECT_THAT(StagingJournal::shared().recover(), ElementsAre(item));
    EXPECT_FALSE(fs::exists(item));
    EXPECT_THAT(logged(), ElementsAre("STAGING REMOVED staging=" + item.string() +
                                      " target=" + (where / "box").string()));
    EXPECT_THAT(stagingFiles(), IsEmpty());
    EXPECT_THAT(StagingJournal::shared().recover(), IsEmpty());
}

} // namespace
