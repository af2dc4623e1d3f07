#include "scopedmount.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "platform/posix/archivelibrary.h"
#include "services/archivecatalog.h"
#include "services/archivepacking.h"
#include "services/archiveunpacking.h"
#include "services/detail/journaltext.h"

#include <gmock/gmock.h>

#include <clocale>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;
using namespace testing;
namespace fs = std::filesystem;

namespace {

// The staging journal of these tests stays in a folder of their own.
TestTree stateTree;
const bool stateHome = ::setenv("XDG_STATE_HOME", stateTree.root().c_str(), 1) == 0;

// Runs a python3 script with OUT set to the archive's path.
fs::path python(const fs::path &out, const std::string &script)
{
    const fs::path file = out.parent_path() / "make.py";
    std::ofstream(file) << "import tarfile, zipfile, io, os, sys\nOUT = "
                        << "'" << out.string() << "'\n"
                        << script;
    int status = 0;
    const std::string output = runCommand("python3 " + shellQuote(file.string()) + " 2>&1", &status);
    fs::remove(file);
    if (status != 0)
        throw std::runtime_error("python3 failed: " + output);
    return out;
}

// A tar.gz of TarInfo members made by the lines of `adds` (each uses `t`).
fs::path tarOf(const fs::path &out, const std::string &adds)
{
    return python(out, "t = tarfile.open(OUT, 'w:gz', format=tarfile.GNU_FORMAT, encoding='utf-8', "
                       "errors='surrogateescape')\n"
                       "def add(name, data=b'', **kw):\n"
                       "    i = tarfile.TarInfo(name); i.size = len(data); i.mtime = 1000000000\n"
                       "    for k, v in kw.items(): setattr(i, k, v)\n"
                       "    t.addfile(i, io.BytesIO(data) if data else None)\n" +
                           adds + "t.close()\n");
}

std::string failure(const std::function<void()> &body)
{
    try {
        body();
    } catch (const CommanderError &error) {
        return error.what();
    } catch (const std::exception &error) {
        return std::string("other: ") + error.what();
    }
    return "(none)";
}

// Every path below a folder, relative, sorted, with what each is.
std::vector<std::string> contents(const fs::path &folder)
{
    std::vector<std::string> found;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const char kind = entry.is_symlink()        ? 'l'
                          : entry.is_directory()    ? 'd'
                          : entry.is_regular_file() ? 'f'
                                                    : '?';
        found.push_back(kind + (" " + entry.path().lexically_relative(folder).string()));
    }
    std::sort(found.begin(), found.end());
    return found;
}

class Unpacking : public Test {
protected:
    TestTree tree;
    fs::path destination = tree.folder("dest");
    fs::path outside = tree.folder("outside");
    OperationControl control;

    fs::path unpack(const fs::path &archive, std::vector<std::string> members = {})
    {
        return ArchiveUnpackJob{archive, destination, std::move(members)}(control);
    }
};

TEST_F(Unpacking, hostileMembersAreLeftOutAndNothingIsWrittenOutsideTheFolder)
{
    const std::string escape = (outside / "escaped").string();
    struct Case {
        const char *what;
        std::string adds;
        std::vector<std::string> expected;
    } cases[] = {
        {"dot-dot", "add('../x', b'bad')\nadd('ok.txt', b'ok')\n", {"f ok.txt"}},
        {"absolute", "add('" + escape + "', b'bad')\nadd('ok.txt', b'ok')\n", {"f ok.txt"}},
        {"inner dot-dot", "add('a/../../x', b'bad')\nadd('a/ok', b'ok')\n", {"d a", "f a/ok"}},
        {"through a link",
         "add('l', type=tarfile.SYMTYPE, linkname='" + outside.string() + "')\nadd('l/evil', b'bad')\n",
         {"l l"}},
        {"through a relative link",
         "add('up', type=tarfile.SYMTYPE, linkname='..')\nadd('up/evil', b'bad')\n",
         {"l up"}},
        {"hard link outside",
         "add('h', type=tarfile.LNKTYPE, linkname='../outside/x')\n"
         "add('p', type=tarfile.LNKTYPE, linkname='/etc/passwd')\n",
         {}},
        {"devices",
         "add('fifo', type=tarfile.FIFOTYPE)\nadd('null', type=tarfile.CHRTYPE, devmajor=1, devminor=3)\n",
         {}},
    };
    for (const Case &item : cases) {
        const fs::path archive = tarOf(tree / "hostile.tar.gz", item.adds);
        const std::string message = failure([&] { unpack(archive); });
        EXPECT_THAT(message, StartsWith("Extracted into \u2018hostile\u2019 without")) << item.what;
        EXPECT_EQ(contents(destination / "hostile"), item.expected) << item.what;
        EXPECT_THAT(TestTree::names(outside), IsEmpty()) << item.what;
        EXPECT_FALSE(fs::exists(tree / "x")) << item.what;
        EXPECT_EQ(TestTree::names(destination), std::vector<std::string>{"hostile"}) << item.what;
        fs::remove_all(destination / "hostile");
    }
}

TEST_F(Unpacking, keepsBytesLinksAndModesWithoutPrivilegeAndNeverReplaces)
{
    const std::string odd = "caf\xe9";
    const fs::path archive =
        tarOf(tree / "photos.tar.gz", "add('caf\\udce9', b'latin')\n"
                                      "add('dir', type=tarfile.DIRTYPE, mode=0o750)\n"
                                      "add('dir/su', b'#!', mode=0o4755)\n"
                                      "add('dir/hard', type=tarfile.LNKTYPE, linkname='dir/su')\n"
                                      "add('link', type=tarfile.SYMTYPE, linkname='/etc/passwd')\n");
    tree.file("dest/photos/mine.txt", "mine");
    const fs::path made = unpack(archive);
    EXPECT_EQ(made, destination / "photos (2)");
    EXPECT_EQ(TestTree::read(destination / "photos/mine.txt"), "mine");
    EXPECT_EQ(TestTree::read(made / odd), "latin");
    struct stat su {
    }, hard{}, folder{};
    ASSERT_EQ(::stat((made / "dir/su").c_str(), &su), 0);
    ASSERT_EQ(::stat((made / "dir/hard").c_str(), &hard), 0);
    ASSERT_EQ(::stat((made / "dir").c_str(), &folder), 0);
    EXPECT_EQ(su.st_mode & 07777, 0755u);
    EXPECT_EQ(su.st_ino, hard.st_ino);
    EXPECT_EQ(su.st_mtime, 1000000000);
    EXPECT_EQ(folder.st_mode & 0777, 0750u);
    EXPECT_EQ(fs::read_symlink(made / "link"), "/etc/passwd");
    // The new folder is made as mkdir makes one, not left private as its staging was.
    const mode_t mask = ::umask(022);
    ::umask(mask);
    ASSERT_EQ(::stat(made.c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0777u & ~mask);
    // Only the folders published: no hidden staging item stays behind.
    EXPECT_EQ(TestTree::names(destination), (std::vector<std::string>{"photos", "photos (2)"}));
    // Taken out one by one, a hard link gives the data it names and a symbolic
    // link its text; listed, the hard link has that data's size.
    EXPECT_EQ(ArchiveCatalog::member("dir/hard", archive), QByteArray("#!"));
    EXPECT_EQ(ArchiveCatalog::member("link", archive), QByteArray("/etc/passwd"));
    const std::vector<ZipEntry> listed = ArchiveCatalog::list(archive);
    const auto sizeOf = [&](const char *name) {
        const auto found =
            std::find_if(listed.begin(), listed.end(), [&](const ZipEntry &e) { return e.name == name; });
        return found == listed.end() ? std::int64_t(-2) : found->size;
    };
    EXPECT_EQ(sizeOf("dir/hard"), 2);
    EXPECT_EQ(sizeOf("link"), -1);
}

TEST_F(Unpacking, damagedOrForeignFilesFailWithOneMessageAndLeaveNothing)
{
    const fs::path whole =
        tarOf(tree / "big.tar.gz", "import random\nrandom.seed(1)\n"
                                   "add('a', bytes(random.getrandbits(8) for _ in range(200000)))\n");
    std::string bytes = TestTree::read(whole);
    const fs::path cut = tree.file("cut.tar.gz", bytes.substr(0, bytes.size() / 2));
    const fs::path text = tree.file("notes.txt", "just some words, not an archive\n");
    EXPECT_EQ(failure([&] { unpack(cut); }), ArchiveCatalog::unreadable);
    EXPECT_EQ(failure([&] { unpack(text); }), ArchiveCatalog::unreadable);
    EXPECT_EQ(failure([&] { ArchiveCatalog::list(text); }), ArchiveCatalog::unreadable);
    EXPECT_EQ(ArchiveCatalog::kind(text), ArchiveCatalog::Kind::none);
    EXPECT_THAT(TestTree::names(destination), IsEmpty());
    // Recognised by content, whatever the name.
    fs::rename(whole, tree / "backup.bin");
    EXPECT_EQ(ArchiveCatalog::kind(tree / "backup.bin"), ArchiveCatalog::Kind::other);
}

TEST_F(Unpacking, seventyThousandMembersListAndUnpackAndSelectedMembersAlone)
{
    const fs::path archive =
        tarOf(tree / "many.tar.gz", "for n in range(70000):\n"
                                    "    add('d%d/m%05d' % (n % 7, n), b'x' if n in (8, 12) else b'')\n");
    const std::vector<ZipEntry> entries = ArchiveCatalog::list(archive);
    ASSERT_EQ(entries.size(), 70000u);
    EXPECT_EQ(entries[8].name, "d1/m00008");
    EXPECT_EQ(entries[8].size, 1);
    EXPECT_EQ(entries[8].modified, 1000000000);
    const fs::path all = unpack(archive);
    EXPECT_EQ(TestTree::names(all / "d3").size(), 10000u);
    const fs::path some = unpack(archive, {"d2/m00002", "d5/m00012"});
    EXPECT_EQ(TestTree::names(some), (std::vector<std::string>{"d2", "d5"}));
    EXPECT_EQ(TestTree::names(some / "d2"), std::vector<std::string>{"m00002"});
    EXPECT_EQ(TestTree::names(some / "d5"), std::vector<std::string>{"m00012"});
    EXPECT_EQ(ArchiveCatalog::member("d5/m00012", archive), QByteArray("x"));
}

TEST_F(Unpacking, aCancelledUnpackingLeavesNoStagingItem)
{
    const fs::path archive = tarOf(tree / "c.tar.gz", "add('a', b'1')\n");
    control.cancel();
    EXPECT_THROW(unpack(archive), CancellationError);
    EXPECT_THAT(TestTree::names(destination), IsEmpty());
}

TEST(ArchiveJobs, roundTripThroughTheJournal)
{
    const std::vector<detail::JournalEntry> entries = {
        {QUuid::createUuid(), "Extract a.tar", ArchiveUnpackJob{"/a/\xff.tar", "/b", {"x/", "y"}, true}, {}},
        {QUuid::createUuid(), "Compress b.zip", ArchivePackJob{{"/a/1", "/a/\xfe"}, "/c", "b.zip"}, {}},
    };
    const auto parsed = detail::parseJournal(detail::journalText(entries));
    ASSERT_TRUE(parsed);
    const auto &unpack = std::get<ArchiveUnpackJob>(parsed->at(0).job);
    EXPECT_EQ(unpack.archive, "/a/\xff.tar");
    EXPECT_EQ(unpack.members, (std::vector<std::string>{"x/", "y"}));
    EXPECT_TRUE(unpack.allowLarge);
    const auto &pack = std::get<ArchivePackJob>(parsed->at(1).job);
    EXPECT_EQ(pack.items, (std::vector<fs::path>{"/a/1", "/a/\xfe"}));
    EXPECT_EQ(pack.name, "b.zip");
    EXPECT_EQ(ArchiveCatalog::folderName("photos.tar.gz"), "photos");
    EXPECT_EQ(ArchiveCatalog::folderName("Photos.TGZ"), "Photos");
    EXPECT_EQ(ArchiveCatalog::folderName("data.bin"), "data");
}

TEST(ArchiveJobs, createdArchivesRoundTripThroughBsdtarAndUnzip)
{
    TestTree tree;
    const std::string odd = "n\xe9w";
    tree.file("photos/a.txt", "alpha");
    tree.file("photos/sub/" + odd, std::string(300000, 'z'));
    tree.symlink("photos/link", "/etc/passwd");
    ::chmod((tree / "photos/a.txt").c_str(), 0640);
    ASSERT_EQ(::link((tree / "photos/a.txt").c_str(), (tree / "photos/sub/twin").c_str()), 0);
    const struct timespec times[2] = {{0, UTIME_OMIT}, {1200000000, 0}};
    ::utimensat(AT_FDCWD, (tree / "photos/a.txt").c_str(), times, 0);
    const fs::path out = tree.folder("out");
    for (const std::string &extension : ArchivePackJob::extensions) {
        // 7z keeps names as UTF-16: one that is not UTF-8 is refused there (tested below).
        if (extension == ".7z")
            fs::rename(tree / "photos/sub" / odd, tree / "photos/sub/new");
        const std::string name = ArchivePackJob::suggestedName({tree / "photos"}, extension);
        EXPECT_EQ(name, "photos" + extension);
        OperationControl control;
        const fs::path made = ArchivePackJob{{tree / "photos"}, out, name}(control);
        EXPECT_EQ(made, out / name);
        // Progress ends at the total the queue counted, a hard link's bytes included.
        OperationControl counting;
        EXPECT_EQ(control.progress().completed, FileOperations::byteCount(tree / "photos", counting))
            << extension;
        int status = 0;
        const std::string listing = runCommand("bsdtar -tvf " + shellQuote(made.string()) + " 2>&1", &status);
        EXPECT_EQ(status, 0) << extension << listing;
        EXPECT_THAT(listing, HasSubstr("photos/a.txt")) << extension;
        if (extension != ".zip" && extension != ".7z") {
            EXPECT_THAT(listing, HasSubstr("-rw-r-----")) << extension << listing;
            EXPECT_THAT(listing, HasSubstr("photos/link -> /etc/passwd")) << extension;
        }
        if (extension == ".zip") {
            runCommand("unzip -t " + shellQuote(made.string()) + " 2>&1", &status);
            EXPECT_EQ(status, 0);
        }
        const fs::path back = tree.folder("back" + extension);
        runCommand("cd " + shellQuote(back.string()) + " && bsdtar -xf " + shellQuote(made.string()) +
                       " 2>&1",
                   &status);
        EXPECT_EQ(status, 0) << extension;
        EXPECT_EQ(TestTree::read(back / "photos/a.txt"), "alpha") << extension;
        EXPECT_TRUE(TestTree::read(back / "photos/sub" / (extension == ".7z" ? "new" : odd)) ==
                    std::string(300000, 'z'))
            << extension;
        EXPECT_EQ(fs::read_symlink(back / "photos/link"), "/etc/passwd") << extension;
        // tar keeps a second name as a link; ZIP and 7z, which cannot, hold a second copy.
        struct stat info {
        }, twin{};
        ::lstat((back / "photos/a.txt").c_str(), &info);
        ::lstat((back / "photos/sub/twin").c_str(), &twin);
        EXPECT_EQ(TestTree::read(back / "photos/sub/twin"), "alpha") << extension;
        EXPECT_EQ(info.st_ino == twin.st_ino, extension != ".zip" && extension != ".7z") << extension;
        EXPECT_EQ(info.st_mode & 0777, 0640u) << extension;
        EXPECT_EQ(info.st_mtime, 1200000000) << extension;
        // And its own browser lists what it made.
        EXPECT_EQ(ArchiveCatalog::kind(made),
                  extension == ".zip" ? ArchiveCatalog::Kind::zip : ArchiveCatalog::Kind::other);
    }
    OperationControl control;
    EXPECT_THAT(failure([&] {
                    ArchivePackJob{{tree / "photos"}, out, "photos.zip"}(control);
                }),
                HasSubstr("already exists"));
    EXPECT_EQ(TestTree::names(out).size(), ArchivePackJob::extensions.size());
}

// Past a few write-back windows the archive is still whole, and a volume that
// fills up fails the job with the disk's reason and keeps nothing.
TEST(ArchiveJobs, largeArchivesAreWholeAndAFullVolumeKeepsNothing)
{
    TestTree tree;
    const fs::path big = tree.file("big/random.bin", "");
    int status = 0;
    runCommand("head -c 50331648 /dev/urandom > " + shellQuote(big.string()), &status);
    ASSERT_EQ(status, 0);
    tree.file("big/after.txt", "the last member");
    const fs::path out = tree.folder("out");
    OperationControl control;
    const fs::path made = ArchivePackJob{{tree / "big"}, out, "big.tar.zst"}(control);
    const fs::path back = tree.folder("back");
    runCommand("cd " + shellQuote(back.string()) + " && bsdtar -xf " + shellQuote(made.string()), &status);
    ASSERT_EQ(status, 0);
    EXPECT_TRUE(TestTree::read(back / "big/random.bin") == TestTree::read(big));
    EXPECT_EQ(TestTree::read(back / "big/after.txt"), "the last member");
    EXPECT_EQ(control.progress().completed, std::int64_t(50331648 + 15));

    if (!runningAsRoot())
        GTEST_SKIP() << "mounting a small volume needs root";
    const ScopedMount volume("tmpfs", tree.folder("small"), "size=32m");
    OperationControl again;
    EXPECT_THAT(failure([&] {
                    ArchivePackJob{{tree / "big"}, volume.path(), "big.tar.zst"}(again);
                }),
                AllOf(HasSubstr("big.tar.zst"), HasSubstr("No space left on device")));
    EXPECT_TRUE(TestTree::names(volume.path()).empty());
}

// The program runs in the user's locale, which the archive library converts and
// marks names by: in none of them may a name change or a member go missing.
TEST(ArchiveJobs, namesKeepTheirBytesWhateverTheLocale)
{
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    for (const char *locale : {"C.UTF-8", "C"}) {
        ASSERT_TRUE(std::setlocale(LC_ALL, locale)) << locale;
        TestTree tree;
        const std::string accented = "\xc3\xa9t\xc3\xa9", raw = "n\xe9w";
        tree.file("p/" + accented + "/in", "utf-8");
        tree.file("p/" + raw, "raw");
        tree.symlink("p/link", raw);
        const fs::path out = tree.folder("out");
        for (const std::string name : {"p.zip", "p.tar.gz"}) {
            OperationControl control;
            const fs::path made = ArchivePackJob{{tree / "p"}, out, name}(control);
            int status = 0;
            // A name marked UTF-8 that is not would make both refuse the archive.
            const std::string listed =
                runCommand("LC_ALL=C.UTF-8 bsdtar -tf " + shellQuote(made.string()) + " 2>&1", &status);
            EXPECT_EQ(status, 0) << locale << name << listed;
            runCommand("python3 -c 'import sys, zipfile; zipfile.ZipFile(sys.argv[1]).namelist()' " +
                           shellQuote(made.string()) + " 2>&1",
                       &status);
            EXPECT_EQ(status, name == "p.zip" ? 0 : 1) << locale << name;
            const fs::path back = ArchiveUnpackJob{made, tree.folder("back-" + name), {}}(control);
            EXPECT_EQ(contents(back), (std::vector<std::string>{"d p", "d p/" + accented, "f p/" + raw,
                                                                "f p/" + accented + "/in", "l p/link"}))
                << locale << name;
            EXPECT_EQ(fs::read_symlink(back / "p/link"), raw) << locale << name;
        }
        // A 7z holds UTF-16 names only: the one that is not UTF-8 is refused, not changed.
        OperationControl control;
        EXPECT_THAT(failure([&] {
                        ArchivePackJob{{tree / "p"}, out, "p.7z"}(control);
                    }),
                    HasSubstr("cannot be stored in a 7z archive"));
        fs::remove(tree / "p" / raw);
        fs::remove(tree / "p/link");
        const fs::path seven = ArchivePackJob{{tree / "p"}, out, "p.7z"}(control);
        const fs::path back = ArchiveUnpackJob{seven, tree.folder("back-7z"), {}}(control);
        EXPECT_EQ(TestTree::read(back / "p" / accented / "in"), "utf-8") << locale;
        EXPECT_EQ(TestTree::names(out).size(), 3u) << locale;
    }
    std::setlocale(LC_ALL, previous.c_str());
}

} // namespace
