#include "operationstesting.h"

#include "operations/detail/logtext.h"

#include <algorithm>
#include <regex>
#include <thread>

namespace {

TEST(AppDiagnosticsTest, logIsRotatedOnlyOnceOverTheLimit)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    tree.file("Quillorn.log", std::string(4'999'999, 'x') + "\n");
    log.record("next"); // exactly at the limit: kept
    EXPECT_FALSE(fs::exists(tree / "Quillorn.previous.log"));
    log.record("again"); // over it: moved aside first
    EXPECT_EQ(fs::file_size(tree / "Quillorn.previous.log"), 5'000'026u);
    EXPECT_EQ(fs::file_size(log.fileURL()), 27u);
}

TEST(AppDiagnosticsTest, linesAreTimestampedAndTwoThreadsNeverInterleaveWithinOne)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    const auto writer = [&](char letter) {
        for (int i = 0; i < 400; ++i)
            log.record(std::string(3000, letter) + std::to_string(i));
    };
    std::thread first(writer, 'a'), second(writer, 'b');
    first.join();
    second.join();
    std::istringstream in(TestTree::read(log.fileURL()));
    const std::regex stamp("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ ");
    int count = 0;
    for (std::string line; std::getline(in, line); ++count) {
        ASSERT_TRUE(std::regex_match(line.substr(0, 21), stamp)) << line.substr(0, 80);
        ASSERT_EQ(line.find_first_not_of(line[21], 21), 3021u) << line.substr(0, 80);
    }
    EXPECT_EQ(count, 800);
}

TEST(AppDiagnosticsTest, unwritableLogNeverDisturbsTheCaller)
{
    TestTree tree;
    AppDiagnostics log(tree.folder("gone"));
    fs::remove(tree / "gone");
    EXPECT_NO_THROW(log.record("lost"));
    EXPECT_FALSE(fs::exists(tree / "gone")); // a folder removed after start-up is not made again
}

// Someone who can write beside the log plants links where the log and the
// rotated log go, to have the lines appended to, or a file created at, the target.
TEST(AppDiagnosticsTest, plantedLinksAreNeverFollowedAndTheLogFolderIsPrivate)
{
    TestTree tree;
    AppDiagnostics log(tree / "made/Logs");
    for (const char *folder : {"made", "made/Logs"})
        EXPECT_EQ(fs::status(tree / folder).permissions(), fs::perms::owner_all) << folder;
    const fs::path victim = tree.file("victim.txt", "victim"),
                   previous = tree / "made/Logs/Quillorn.previous.log";
    for (const fs::path &target : {victim, tree / "created-elsewhere"}) {
        fs::create_symlink(target, log.fileURL());
        log.record("lost");
        EXPECT_TRUE(fs::is_symlink(log.fileURL()));
        fs::remove(log.fileURL());
    }
    EXPECT_EQ(TestTree::read(victim), "victim");
    EXPECT_FALSE(fs::exists(tree / "created-elsewhere"));

    tree.file(log.fileURL().lexically_relative(tree.root()), std::string(5'000'001, 'x'));
    fs::create_symlink(victim, previous);
    log.record("after rotation");
    EXPECT_EQ(TestTree::read(victim), "victim");
    EXPECT_FALSE(fs::is_symlink(previous));
    EXPECT_EQ(fs::file_size(previous), 5'000'001u);
    EXPECT_THAT(TestTree::read(log.fileURL()), EndsWith("Z after rotation\n"));
}

// An error names its item by the item's bytes, on the one line of its record,
// whatever script the name is in and whatever bytes it holds.
TEST(AppDiagnosticsTest, describeEscapesThePathAndADescriptionThatQuotesOne)
{
    const std::string name = "/tmp/\xE5\x86\x99\xE7\x9C\x9F \\x\xFF\n\t\r\x01\xC2\x85\xE2\x80";
    const std::string escaped = "/tmp/\xE5\x86\x99\xE7\x9C\x9F \\\\x\\xFF\\n\\t\\r\\x01\\xC2\\x85\\xE2\\x80";
    EXPECT_EQ(AppDiagnostics::describe(PosixError(ENOENT, name)),
              "POSIX code=2: No such file or directory path=" + escaped);
    EXPECT_EQ(AppDiagnostics::describe(CommanderError("The item no longer exists: " + name)),
              "Quillorn.CommanderError code=1: The item no longer exists: " + escaped);
    EXPECT_EQ(AppDiagnostics::describe(std::system_error(EIO, std::generic_category())),
              "POSIX code=5: Input/output error");
    TestTree tree;
    AppDiagnostics log(tree.root());
    log.record("REMOVE FAILED path=" + detail::logPath(name));
    const std::string text = TestTree::read(log.fileURL());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_THAT(text, EndsWith(" REMOVE FAILED path=" + escaped + "\n"));
}

} // namespace
