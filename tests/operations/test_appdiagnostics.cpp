#include "operationstesting.h"
#include "testtree.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "platform/posix/posixerror.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <thread>

namespace fs = std::filesystem;
using quillorn::AppDiagnostics;
using quillorn::test::TestTree;

namespace {

const fs::path &dataHome = quillorn::test::temporaryDataHome();

std::string sizedFile(std::size_t bytes)
{
    std::string contents(bytes, 'x');
    contents.back() = '\n';
    return contents;
}

TEST(AppDiagnosticsTest, sharedLogLivesBelowTheDataHome)
{
    AppDiagnostics &log = AppDiagnostics::shared();
    EXPECT_EQ(log.fileURL(), dataHome / "Quillorn" / "Logs" / "Quillorn.log");
    EXPECT_TRUE(fs::is_directory(dataHome / "Quillorn" / "Logs"));
    EXPECT_EQ(&log, &AppDiagnostics::shared());
}

TEST(AppDiagnosticsTest, firstRecordCreatesTheFileWithOneTimestampedLine)
{
    TestTree tree;
    AppDiagnostics log(tree / "Logs");
    log.record("QUEUE START title=Copy 3 \u2192 Photos");
    const std::string contents = TestTree::read(log.fileURL());
    EXPECT_TRUE(std::regex_match(contents, std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ "
                                                      "QUEUE START title=Copy 3 \u2192 Photos\n")))
        << contents;
}

TEST(AppDiagnosticsTest, messagesAreWrittenUnchangedExceptInvalidBytes)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    log.record("first\nsecond \"quoted\"");
    log.record(std::string("bad \xFF\xC3 byte"));
    const std::string contents = TestTree::read(log.fileURL());
    EXPECT_NE(contents.find("Z first\nsecond \"quoted\"\n"), std::string::npos) << contents;
    // The file stays UTF-8: each stray byte becomes U+FFFD.
    EXPECT_NE(contents.find("Z bad \xEF\xBF\xBD\xEF\xBF\xBD byte\n"), std::string::npos) << contents;
}

TEST(AppDiagnosticsTest, logOfExactlyTheLimitIsNotRotated)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    tree.file("Quillorn.log", sizedFile(5'000'000));
    log.record("next");
    EXPECT_FALSE(fs::exists(tree / "Quillorn.previous.log"));
    EXPECT_EQ(fs::file_size(log.fileURL()), 5'000'000u + 26u);
}

TEST(AppDiagnosticsTest, logOneByteOverTheLimitIsRotatedBeforeTheNextLine)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    const std::string old = sizedFile(5'000'001);
    tree.file("Quillorn.log", old);
    tree.file("Quillorn.previous.log", "earlier rotation\n");
    log.record("next");
    EXPECT_EQ(TestTree::read(tree / "Quillorn.previous.log"), old);
    const std::string current = TestTree::read(log.fileURL());
    EXPECT_EQ(current.size(), 26u);
    EXPECT_EQ(current.substr(20), " next\n");
}

TEST(AppDiagnosticsTest, twoThreadsNeverInterleaveWithinALine)
{
    TestTree tree;
    AppDiagnostics log(tree.root());
    const std::string a(3000, 'a'), b(3000, 'b');
    const auto writer = [&](const std::string &text) {
        for (int i = 0; i < 400; ++i)
            log.record(text + std::to_string(i));
    };
    std::thread first(writer, a), second(writer, b);
    first.join();
    second.join();
    std::istringstream in(TestTree::read(log.fileURL()));
    std::set<std::string> seen;
    int count = 0;
    for (std::string line; std::getline(in, line); ++count) {
        const std::string message = line.substr(21);
        ASSERT_TRUE(message.rfind(a, 0) == 0 || message.rfind(b, 0) == 0) << message.substr(0, 80);
        ASSERT_TRUE(message.find_first_not_of("0123456789", 3000) == std::string::npos);
        seen.insert(message);
    }
    EXPECT_EQ(count, 800);
    EXPECT_EQ(seen.size(), 800u);
}

TEST(AppDiagnosticsTest, unwritableLogNeverDisturbsTheCaller)
{
    TestTree tree;
    tree.file("blocked", "a file where the folder should be");
    AppDiagnostics underFile(tree / "blocked" / "Logs");
    EXPECT_NO_THROW(underFile.record("lost"));
    EXPECT_FALSE(fs::exists(underFile.fileURL()));

    // A folder removed after start-up is not created again.
    AppDiagnostics removed(tree / "gone");
    fs::remove(tree / "gone");
    removed.record("lost");
    EXPECT_FALSE(fs::exists(tree / "gone"));

    // The log replaced by a folder: the line is lost, nothing else happens.
    AppDiagnostics replaced(tree / "replaced");
    fs::create_directory(replaced.fileURL());
    EXPECT_NO_THROW(replaced.record("lost"));
    EXPECT_TRUE(fs::is_directory(replaced.fileURL()));
}

TEST(AppDiagnosticsTest, describeGivesDomainCodeDescriptionAndOptionalParts)
{
    EXPECT_EQ(AppDiagnostics::describe(std::system_error(ENOENT, std::generic_category())),
              "POSIX code=2: No such file or directory");
    EXPECT_EQ(AppDiagnostics::describe(quillorn::PosixError(EACCES, "/x/a b")),
              "POSIX code=13: Permission denied path=/x/a b");
    EXPECT_EQ(AppDiagnostics::describe(quillorn::CommanderError("Cannot create /x/y")),
              "Quillorn.CommanderError code=1: Cannot create /x/y");
    EXPECT_EQ(AppDiagnostics::describe(
                  fs::filesystem_error("remove", "/x/y", std::make_error_code(std::errc::io_error))),
              "POSIX code=5: Input/output error path=/x/y");
}

TEST(AppDiagnosticsTest, describeNestsUnderlyingErrorsAfterThePath)
{
    std::exception_ptr chain;
    try {
        try {
            throw quillorn::CommanderError("inner");
        } catch (...) {
            std::throw_with_nested(quillorn::PosixError(EIO, "/x/a"));
        }
    } catch (...) {
        chain = std::current_exception();
    }
    EXPECT_EQ(
        AppDiagnostics::describe(chain),
        "POSIX code=5: Input/output error path=/x/a underlying={Quillorn.CommanderError code=1: inner}");
    const std::string cancelled = AppDiagnostics::describe(quillorn::CancellationError());
    EXPECT_EQ(cancelled, "Quillorn.CancellationError code=1: The operation was cancelled.");
}

} // namespace
