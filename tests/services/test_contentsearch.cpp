#include "asnobody.h"
#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/treewalk.h"
#include "scopedmount.h"
#include "services/detail/contentsearch.h"
#include "services/directorytools.h"
#include "testtree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <map>
#include <sstream>

using namespace quillorn;
using test::TestTree;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

constexpr std::size_t chunk = detail::ContentSearch::chunk;

ContentQuery text(const QString &text, bool matchCase = false, bool regularExpression = false,
                  bool binaryFiles = false)
{
    return ContentQuery{text, matchCase, regularExpression, binaryFiles};
}

SearchReport search(const fs::path &root, const ContentQuery &contents, bool hidden = true,
                    const QString &names = {})
{
    OperationControl control;
    return DirectoryTools::search(root, names, hidden, contents, control);
}

// relative path -> "line number: line"
std::map<std::string, std::string> hitsOf(const SearchReport &report)
{
    std::map<std::string, std::string> hits;
    for (const SearchResult &hit : report.items)
        hits[hit.relativePath] = std::to_string(hit.lineNumber) + ": " + hit.line;
    return hits;
}

std::string failure(const fs::path &root, const ContentQuery &contents)
{
    try {
        search(root, contents);
    } catch (const CommanderError &error) {
        return error.errorDescription();
    }
    return "(no CommanderError)";
}

// grep's first matching line of each file it lists, as "line number: line" by relative path.
std::map<std::string, std::string> grep(const fs::path &root, const std::string &options,
                                        const std::string &pattern)
{
    const std::string output =
        test::runCommand("cd " + test::shellQuote(root) + " && LC_ALL=C grep -rIn -m1 " + options + " -e " +
                         test::shellQuote(pattern) + " .");
    std::map<std::string, std::string> hits;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t path = line.find(':');
        const std::size_t number = line.find(':', path + 1);
        hits[line.substr(2, path - 2)] = line.substr(path + 1, number - path - 1);
    }
    return hits;
}

std::map<std::string, std::string> numbersOnly(std::map<std::string, std::string> hits)
{
    for (auto &[path, line] : hits)
        line = line.substr(0, line.find(':'));
    return hits;
}

} // namespace

TEST(ContentSearch, FindsTheFilesAndLinesGrepFindsInARealTree)
{
    if (!fs::is_directory("/usr/include/linux"))
        GTEST_SKIP() << "no /usr/include/linux to search";
    TestTree tree;
    test::runCommand("cp -r /usr/include/linux " + test::shellQuote(tree / "linux"));
    tree.file("linux/.hidden/x.h", "// an IOCTL in a hidden folder\n");
    tree.file("linux/odd\xff-name.h", "#define ODD_IOCTL 1\n");
    for (const auto &[pattern, options, contents] :
         {std::tuple("ioctl", "-i -F", text("ioctl")), std::tuple("IOCTL", "-F", text("IOCTL", true)),
          std::tuple("struct [a-z_]+_info \\{", "-i -E", text("struct [a-z_]+_info \\{", false, true)),
          std::tuple("^#define [A-Z_]+[[:space:]]+0x[0-9a-f]{4}$", "-E",
                     text("^#define [A-Z_]+\\s+0x[0-9a-f]{4}$", true, true))}) {
        const std::map<std::string, std::string> expected = grep(tree.root(), options, pattern);
        ASSERT_GT(expected.size(), 5u) << pattern;
        const SearchReport report = search(tree.root(), contents);
        EXPECT_EQ(numbersOnly(hitsOf(report)), expected) << pattern;
        EXPECT_FALSE(report.truncated);
        EXPECT_TRUE(report.warnings.isEmpty());
    }
    // Hidden items only when asked, and a file name is matched as the name search does.
    EXPECT_EQ(hitsOf(search(tree.root(), text("IOCTL", true), false)).count("linux/.hidden/x.h"), 0u);
    const SearchReport odd = search(tree.root(), text("odd_ioctl"), true, "ODD");
    EXPECT_THAT(hitsOf(odd), ElementsAre(std::pair("linux/odd\xff-name.h"s, "1: #define ODD_IOCTL 1"s)));
    EXPECT_EQ(odd.items.at(0).url, tree / "linux/odd\xff-name.h");
}

TEST(ContentSearch, BinaryFilesLinksAndSpecialFilesAreNotRead)
{
    TestTree tree;
    tree.file("early-nul", "a\0b needle"s);
    tree.file("late-nul", std::string(8 * 1024, 'x') + '\0' + "needle");
    tree.file("text", "first\n\tneedle here\r\n");
    tree.symlink("link", tree / "text");
    ::mkfifo((tree / "fifo").c_str(), 0644);
    EXPECT_THAT(hitsOf(search(tree.root(), text("NEEDLE"))),
                UnorderedElementsAre(std::pair("late-nul"s, "1: …" + std::string(39, 'x') + '\0' + "needle"),
                                     std::pair("text"s, "2: needle here"s)));
    EXPECT_EQ(hitsOf(search(tree.root(), text("needle", false, false, true))).count("early-nul"), 1u);
}

TEST(ContentSearch, MatchesAcrossChunkBordersWithTheirLineNumbers)
{
    TestTree tree;
    // Line 1 is long, the match straddles the first chunk's end, and a second
    // file's match lies chunks in, after many lines.
    std::string across(chunk - 3, 'a');
    across += "Été-needle\nrest\n";
    tree.file("across", across);
    std::string deep;
    while (deep.size() < 3 * chunk)
        deep += "some line\n";
    const std::string deepLine = std::to_string(std::count(deep.begin(), deep.end(), '\n') + 1);
    deep += "the needle itself\n";
    tree.file("deep", deep);
    tree.file("split", "needle-\nThe-end\n");
    for (const ContentQuery &query :
         {text("été-NEEDLE"), text("Été-needle", true), text("été-ne+dle", false, true)})
        EXPECT_EQ(hitsOf(search(tree.root(), query))["across"], "1: …" + std::string(40, 'a') + "Été-needle")
            << query.text.toStdString();
    EXPECT_EQ(hitsOf(search(tree.root(), text("Needle ITSELF"))),
              (std::map<std::string, std::string>{{"deep", deepLine + ": the needle itself"}}));
    // A match never spans two lines; with case the letters must match as typed.
    EXPECT_TRUE(search(tree.root(), text("needle-\\sThe", false, true)).items.empty());
    EXPECT_TRUE(search(tree.root(), text("the-END", true)).items.empty());
    EXPECT_EQ(failure(tree.root(), text("a(b", false, true)),
              "The regular expression is not valid: missing closing parenthesis (at 3).");
}

TEST(ContentSearch, StopsAtTheLimitWithTheFilesOneWalkMeetsFirst)
{
    TestTree tree;
    for (int folder = 0; folder < 3; ++folder)
        for (int file = 0; file < 3400; ++file)
            tree.file("f" + std::to_string(folder) + "/" + std::to_string(file), "a hit\n");
    std::vector<std::string> walkOrder;
    struct Files final : TreeWalk::Visitor {
        std::vector<std::string> &order;
        explicit Files(std::vector<std::string> &order) : order(order) {}
        TreeWalk::Next entry(const TreeWalk::Entry &entry) override
        {
            if (entry.kind == TreeWalk::Kind::file)
                order.emplace_back(entry.relativePath);
            return TreeWalk::Next::proceed;
        }
        TreeWalk::Next failed(const TreeWalk::Entry &, int) override { return TreeWalk::Next::proceed; }
    } files(walkOrder);
    TreeWalk::walk(tree.root(), false, files);
    walkOrder.resize(SearchReport::limit);

    const SearchReport report = search(tree.root(), text("HIT"));
    EXPECT_TRUE(report.truncated);
    ASSERT_EQ(report.items.size(), SearchReport::limit);
    for (std::size_t i = 0; i < SearchReport::limit; ++i)
        ASSERT_EQ(report.items[i].relativePath, walkOrder[i]) << i;
}

TEST(ContentSearch, UnreadableFolderAndFileAreWarnings)
{
    TestTree tree;
    tree.file("open/hit", "x needle");
    tree.file("locked/hit", "x needle");
    ::chmod(tree.file("secret", "x needle").c_str(), 0);
    fs::permissions(tree / "locked", fs::perms::none);
    fs::permissions(tree.root(), fs::perms(0755));
    test::AsNobody nobody;
    if (!nobody.skipReason.empty())
        GTEST_SKIP() << nobody.skipReason;
    const SearchReport report = search(tree.root(), text("needle"));
    EXPECT_THAT(hitsOf(report), ElementsAre(std::pair("open/hit"s, "1: x needle"s)));
    EXPECT_THAT(report.warnings,
                UnorderedElementsAre("locked: Permission denied", "secret: Permission denied"));
}

TEST(ContentSearch, CancellationStopsTheReadingOfALargeFile)
{
    TestTree tree;
    fs::resize_file(tree.file("large"), std::uintmax_t(4) << 30);
    OperationControl control;
    auto result = std::async(std::launch::async, [&] {
        return DirectoryTools::search(tree.root(), {}, false, text("needle", false, false, true), control);
    });
    while (control.progress().completed < std::int64_t(4 * chunk))
        ASSERT_EQ(result.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
    control.cancel();
    EXPECT_THROW(result.get(), CancellationError);
    EXPECT_LT(control.progress().completed, std::int64_t(1) << 32);
}
