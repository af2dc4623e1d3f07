#include "operationstesting.h"

#include <regex>
#include <thread>

namespace {

TEST(AppDiagnosticsTest, linesAreTimestampedAndInvalidBytesBecomeReplacementCharacters)
{
    TestTree tree;
    AppDiagnostics log(tree / "Logs");
    log.record("QUEUE START title=Copy 3 \u2192 \xFF\xC3");
    const std::string written = TestTree::read(log.fileURL());
    EXPECT_TRUE(std::regex_match(written, std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ "
                                                     "QUEUE START title=Copy 3 \u2192 \uFFFD\uFFFD\n")))
        << written;
}

TEST(AppDiagnosticsTest, logIsRotatedOnlyWhenOverTheLimit)
{
    for (const std::size_t size : {5'000'000u, 5'000'001u}) {
        TestTree tree;
        AppDiagnostics log(tree.root());
        tree.file("Quillorn.log", std::string(size - 1, 'x') + "\n");
        tree.file("Quillorn.previous.log", "earlier\n");
        log.record("next");
        const bool rotated = size > 5'000'000;
        EXPECT_EQ(fs::file_size(tree / "Quillorn.previous.log"), rotated ? size : 8u) << size;
        EXPECT_EQ(fs::file_size(log.fileURL()), (rotated ? 0 : size) + 26) << size;
    }
}

TEST(AppDiagnosticsTest, twoThreadsNeverInterleaveWithinALine)
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
    int count = 0;
    for (std::string line; std::getline(in, line); ++count)
        ASSERT_EQ(line.find_first_not_of(line[21], 21), 3021u) << line.substr(0, 80);
    EXPECT_EQ(count, 800);
}

TEST(AppDiagnosticsTest, unwritableLogNeverDisturbsTheCaller)
{
    TestTree tree;
    tree.file("blocked", "a file where the folder should be");
    AppDiagnostics underFile(tree / "blocked/Logs"), removed(tree / "gone"), replaced(tree / "replaced");
    fs::remove(tree / "gone");
    fs::create_directory(replaced.fileURL());
    for (AppDiagnostics *log : {&underFile, &removed, &replaced})
        EXPECT_NO_THROW(log->record("lost"));
    EXPECT_FALSE(fs::exists(tree / "gone")); // a folder removed after start-up is not made again
    EXPECT_TRUE(fs::is_directory(replaced.fileURL()));
}

} // namespace
