#include "scopedmount.h"
#include "testtree.h"
#include "zipfixture.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/filecontents.h"
#include "platform/posix/posixerror.h"
#include "services/archiveextraction.h"
#include "services/archivetools.h"
#include "services/detail/listingparser.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <sys/wait.h>

using namespace quillorn;
using namespace quillorn::test;
using namespace testing;
namespace fs = std::filesystem;

namespace {

const std::string tooLarge = "Archive output exceeds the supported size limit.";
const std::string unreadable = "Cannot read this ZIP. It may be encrypted, damaged, or unsupported.";
const std::string unsafeName = "This member name cannot be streamed safely.";

template <typename Body> std::string failure(Body &&body)
{
    try {
        body();
    } catch (const CommanderError &error) {
        return error.errorDescription();
    } catch (const PosixError &error) {
        return "errno " + std::to_string(error.code().value());
    }
    return "(no CommanderError)";
}

// Every child this process started has been reaped: none is left, running or not.
bool noChildLeft()
{
    return ::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

QStringList names(const std::vector<ZipEntry> &entries)
{
    QStringList result;
    for (const ZipEntry &entry : entries)
        result << entry.name + (entry.directory() ? "[dir]" : "");
    return result;
}

QByteArray sh(const std::string &script, std::int64_t limit)
{
    return ArchiveTools::command("/bin/sh", {"-c", script}, limit);
}

} // namespace

TEST(ArchiveCommand, takesExactlyTheLimitRefusesOneByteMoreAndAlwaysReapsTheChild)
{
    for (const std::int64_t limit : {ArchiveTools::listingLimit, ArchiveTools::memberLimit}) {
        const std::string count = std::to_string(limit);
        EXPECT_EQ(sh("head -c " + count + " /dev/zero", limit).size(), limit);
        EXPECT_EQ(failure([&] { sh("head -c " + count + "1 /dev/zero", limit); }), tooLarge);
        EXPECT_TRUE(noChildLeft());
    }
    // A child that would write for ever is killed and reaped, not waited for.
    EXPECT_EQ(failure([] { sh("yes", 1000); }), tooLarge);
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(failure([] { sh("echo partial; exit 3", 1000); }), unreadable);
    EXPECT_TRUE(noChildLeft());
    OperationControl cancelled;
    cancelled.cancel();
    EXPECT_THROW(ArchiveTools::command("/bin/sh", {"-c", "sleep 30"}, 10, cancelled), CancellationError);
    EXPECT_TRUE(noChildLeft());
}

TEST(ArchiveCommand, discardsStandardErrorPassesArgumentsAsTheyAreAndReportsTheLaunchError)
{
    EXPECT_EQ(sh("echo out; echo err >&2", 100), "out\n");
    EXPECT_EQ(ArchiveTools::command("/bin/echo", {"$(id)", "a b;c"}, 100), "$(id) a b;c\n");
    // No terminal to ask on: a program reading from it gets nothing and fails.
    EXPECT_EQ(failure([] { sh("read answer </dev/tty", 100); }), unreadable);
    EXPECT_EQ(failure([] { ArchiveTools::command("/nonexistent/unzip", {}, 100); }), "errno 2");
}

TEST(ArchiveListing, keepsTheArchiveOrderAndEveryNameAsListed)
{
    TestTree tree;
    const fs::path zip = makeZip(tree / "a.zip", {{"data", "dir/", ""},
                                                  {"data", "dir/sub/c.txt", "c"},
                                                  {"data", "B.txt", "b"},
                                                  {"data", "b.txt", "b"}, // letter case makes another name
                                                  {"data", "caf\xc3\xa9 ../x", "e"},
                                                  {"data", "/abs/y", "y"}});
    EXPECT_EQ(names(ArchiveTools::list(zip)), (QStringList{"dir/[dir]", "dir/sub/c.txt", "B.txt", "b.txt",
                                                           QString::fromUtf8("caf\xc3\xa9 ../x"), "/abs/y"}));
    // unzip shows control characters in names as ^M and ^J, so only a name that
    // itself ends in CR can meet the next line's LF; the pair does not split.
    EXPECT_EQ(names(ArchiveTools::entries("a\r\nb\n\nc\n")), (QStringList{"a\r\nb", "c"}));
    EXPECT_TRUE(ArchiveTools::entries("").empty());
}

TEST(ArchiveListing, givesTheSameNamesAndFailuresWhereverUnzipsOutputIsCut)
{
    // The names are taken while unzip still writes, one pipe read at a time:
    // a CR LF pair, a two-byte letter or a line may be cut anywhere.
    const auto parse = [](QByteArrayView listing, qsizetype cut) -> std::pair<QStringList, std::string> {
        detail::ListingParser parser;
        parser.feed(listing.first(cut));
        parser.feed(listing.sliced(cut));
        try {
            return {names(parser.finish()), ""};
        } catch (const CommanderError &error) {
            return {{}, error.errorDescription()};
        }
    };
    const QString cafe = QString::fromUtf8("caf\xc3\xa9");
    const std::pair<QByteArrayView, std::pair<QStringList, std::string>> cases[] = {
        {"a\r\nb\ncaf\xc3\xa9/\n\nz", {{"a\r\nb", cafe + "/[dir]", "z"}, ""}},
        // A bad line before good ones still fails the whole listing.
        {"caf\xe9\nok\n", {{}, "ZIP names must use UTF-8."}},
        {"caf\xc3\nok\n", {{}, "ZIP names must use UTF-8."}},
        {"caf\xc3\xa9\ncafe\xcc\x81\n", {{}, "ZIP contains duplicate names and cannot be browsed safely."}},
    };
    for (const auto &[listing, expected] : cases) {
        for (qsizetype cut = 0; cut <= listing.size(); ++cut)
            EXPECT_EQ(parse(listing, cut), expected)
                << listing.toByteArray().toStdString() << " cut at " << cut;
    }
    // Names seen long before, while the set of names has grown several times.
    QByteArray many;
    for (int i = 0; i < 5000; ++i)
        many += "folder/member-" + QByteArray::number(i) + "\n";
    EXPECT_EQ(ArchiveTools::entries(many).size(), 5000u);
    EXPECT_EQ(failure([&] { ArchiveTools::entries(many + "folder/member-0\n"); }),
              "ZIP contains duplicate names and cannot be browsed safely.");
    EXPECT_EQ(failure([&] { ArchiveTools::entries(many + "folder/member-4999"); }),
              "ZIP contains duplicate names and cannot be browsed safely.");
}

TEST(ArchiveListing, refusesWhatCannotBeBrowsedSafely)
{
    TestTree tree;
    const std::pair<std::string, fs::path> cases[] = {
        {"ZIP contains duplicate names and cannot be browsed safely.",
         makeZip(tree / "nfc.zip", {{"data", "caf\xc3\xa9", "1"}, {"data", "cafe\xcc\x81", "2"}})},
        {"ZIP names must use UTF-8.",
         makeZip(tree / "latin1.zip", {{"data", "ok", ""}, {"data", "caf\xe9", ""}})},
        {unreadable, tree.file("plain.zip", "this is not an archive")},
        {tooLarge, makeZip(tree / "huge.zip", {{"many", "", "33000,255"}})}, // 33,000 lines of 256 bytes
        // unzip ends an empty archive's listing with status 1, like any other failure.
        {unreadable, makeZip(tree / "empty.zip", {})},
    };
    for (const auto &[message, zip] : cases)
        EXPECT_EQ(failure([&] { ArchiveTools::list(zip); }), message) << zip;
    EXPECT_TRUE(noChildLeft());
}

TEST(ArchiveMember, streamsOneMemberAsNamedUpToSixteenMebibytes)
{
    TestTree tree;
    const fs::path zip =
        makeZip(tree / "m.zip", {{"data", "dir/sub/c.txt", "hello"},
                                 {"data", "x;$(touch pwned) y", "literal"},
                                 {"data", "../up.txt", "up"},
                                 {"link", "link", "/etc/passwd"},
                                 {"zeros", "limit.bin", std::to_string(ArchiveTools::memberLimit)},
                                 {"zeros", "bomb.bin", std::to_string(ArchiveTools::memberLimit + 1)}});
    EXPECT_EQ(ArchiveTools::member("dir/sub/c.txt", zip), "hello");
    EXPECT_EQ(ArchiveTools::member("x;$(touch pwned) y", zip), "literal");
    EXPECT_FALSE(fs::exists("pwned"));
    EXPECT_EQ(ArchiveTools::member("../up.txt", zip), "up");
    EXPECT_EQ(ArchiveTools::member("link", zip), "/etc/passwd"); // the link's text, never its target
    EXPECT_EQ(ArchiveTools::member("limit.bin", zip).size(), ArchiveTools::memberLimit);
    EXPECT_EQ(failure([&] { ArchiveTools::member("bomb.bin", zip); }), tooLarge);
    EXPECT_EQ(failure([&] { ArchiveTools::member("absent.txt", zip); }), unreadable);
    const fs::path locked = makeZip(tree / "locked.zip", {{"data", "secret.txt", "secret"}}, true);
    EXPECT_EQ(names(ArchiveTools::list(locked)), QStringList{"secret.txt"});
    EXPECT_EQ(failure([&] { ArchiveTools::member("secret.txt", locked); }), unreadable);
    EXPECT_TRUE(noChildLeft());
}

TEST(ArchiveMember, refusesNamesUnzipWouldReadAsOptionsOrPatternsBeforeStartingIt)
{
    // The archive does not exist: had unzip run, the message would be another.
    for (const char *name :
         {"dir/", "-x", "-", "a\nb", "a\rb", "a\r\n", "*", "a?.txt", "a[1].txt", "dir\\..\\x", "a\\b"})
        EXPECT_EQ(failure([&] { ArchiveTools::member(name, "/nonexistent.zip"); }), unsafeName) << name;
    EXPECT_EQ(failure([&] { ArchiveTools::member("ok.txt", "/nonexistent.zip"); }), unreadable);
}

TEST(ArchiveExtraction, writesTheFileNameAloneAndNeverReplaces)
{
    TestTree tree;
    const fs::path zip = makeZip(tree / "e.zip", {{"data", "a/b/c.txt", "new"},
                                                  {"data", "ok/../../y", "y"},
                                                  {"data", "../../up", "up"},
                                                  {"data", "a/..", "dots"},
                                                  {"data", "taken.txt", "new"}});
    const fs::path out = tree.folder("out");
    tree.file("out/taken.txt", "old");
    OperationControl control;
    const auto extract = [&](const char *member) {
        return failure([&] { ArchiveExtraction{zip, member, out, nullptr}(control); });
    };
    for (const char *member : {"a/b/c.txt", "ok/../../y", "../../up"})
        EXPECT_EQ(extract(member), "(no CommanderError)") << member;
    EXPECT_EQ(extract("a/.."), "Enter a single valid file or folder name.");
    EXPECT_EQ(extract("taken.txt"), "An item named \u2018taken.txt\u2019 already exists.");
    EXPECT_EQ(TestTree::read(out / "c.txt") + TestTree::read(out / "y") + TestTree::read(out / "up") +
                  TestTree::read(out / "taken.txt"),
              "newyupold");
    EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 4);
    EXPECT_EQ(std::distance(fs::directory_iterator(tree.root()), fs::directory_iterator()), 2); // e.zip, out
    EXPECT_EQ((ArchiveExtraction{zip, "a/b/c.txt", out, nullptr}.title()), "Extract c.txt");
}

TEST(ArchiveExtraction, aNameTakenAfterTheCheckMakesTheWriteFailNotReplace)
{
    TestTree tree;
    const fs::path target = tree.file("out/x.txt", "appeared meanwhile");
    EXPECT_EQ(failure([&] { createFile(target, "extracted"); }), "errno 17");
    EXPECT_EQ(TestTree::read(target), "appeared meanwhile");
    EXPECT_EQ(std::distance(fs::directory_iterator(target.parent_path()), fs::directory_iterator()), 1);
}

TEST(ArchiveExtraction, tellsTheJournalOfItsHiddenFileBeforeMakingItAndOnceItIsGone)
{
    TestTree tree;
    tree.folder("out");
    std::vector<std::string> told;
    const StagingWatch watch{
        [&](const fs::path &staging, const fs::path &target) {
            told.push_back("adding " + target.filename().string() +
                           (fs::exists(fs::symlink_status(staging)) ? " made" : " not made"));
            EXPECT_EQ(staging.parent_path(), tree / "out");
            EXPECT_THAT(staging.filename().string(), StartsWith(".quillorn-"));
        },
        [&](const fs::path &staging) {
            told.push_back(fs::exists(fs::symlink_status(staging)) ? "done, still there" : "done, gone");
        }};
    createFile(tree / "out/new.txt", "extracted", watch);
    EXPECT_EQ(failure([&] { createFile(tree / "out/new.txt", "again", watch); }), "errno 17");
    EXPECT_EQ(told, (std::vector<std::string>{"adding new.txt not made", "done, gone",
                                              "adding new.txt not made", "done, gone"}));
    EXPECT_EQ(TestTree::read(tree / "out/new.txt"), "extracted");
}
