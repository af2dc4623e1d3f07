#include "asnobody.h"
#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/treewalk.h"
#include "scopedmount.h"
#include "services/directorytools.h"
#include "testtree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <thread>

using namespace quillorn;
using test::TestTree;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;
namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

const std::string precomposed = "\xc3\xa9.txt"; // é as one code point
const std::string decomposed = "e\xcc\x81.txt"; // e + combining acute
const std::string invalidA = "odd\xff-alpha";   // not UTF-8
const std::string invalidB = "odd\xfe-alpha";

void makeFifo(const fs::path &path)
{
    ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0);
}

void makeSocket(const fs::path &path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.native().size(), sizeof address.sun_path);
    std::copy(path.native().begin(), path.native().end(), address.sun_path);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ::close(fd);
}

// Locks the folder and opens up the root (0755), so a walk as "nobody" meets only that lock.
void lockForNobody(const fs::path &root, const fs::path &locked)
{
    fs::create_directories(locked);
    fs::permissions(locked, fs::perms::none);
    fs::permissions(root, fs::perms(0755));
}

std::vector<std::string> pathsOf(const SearchReport &report)
{
    std::vector<std::string> paths;
    for (const SearchResult &result : report.items)
        paths.push_back(result.relativePath);
    return paths;
}

template <typename Body> std::string failure(Body &&body)
{
    try {
        body();
    } catch (const CommanderError &error) {
        return error.errorDescription();
    }
    return "(no CommanderError)";
}

std::vector<std::string> compare(const fs::path &left, const fs::path &right)
{
    OperationControl control;
    return DirectoryTools::comparison(left, right, control);
}

} // namespace

// ---------------------------------------------------------------- search

class SearchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const std::string &name : {"Alpha.txt"s, "docs/alphabet.md"s, "docs/notes.txt"s, "caps/ALPHA"s,
                                        " lead.txt"s, ".hidden/alpha-inside"s, ".alpha-dot"s, invalidA})
            tree.file(name);
        tree.symlink("link-alpha", tree / "docs");
        tree.symlink("loop", "loop");
        tree.symlink("to-root", "/");
    }

    SearchReport search(const QString &query, bool hidden, const fs::path &root = {})
    {
        OperationControl control;
        return DirectoryTools::search(root.empty() ? tree.root() : root, query, hidden, control);
    }

    TestTree tree;
};

TEST_F(SearchTest, MatchesNamesIgnoringCaseAndKeepsHiddenItemsOutUnlessAsked)
{
    struct Case {
        QString query;
        bool hidden;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases{
        {"ALPHA", false, {"Alpha.txt", "docs/alphabet.md", "caps/ALPHA", invalidA, "link-alpha"}},
        {"alpha",
         true,
         {"Alpha.txt", "docs/alphabet.md", "caps/ALPHA", invalidA, "link-alpha", ".hidden/alpha-inside",
          ".alpha-dot"}},
        {" lead", false, {" lead.txt"}},                        // the query as typed, leading space and all
        {"docs", false, {"docs"}},                              // names only, never the parent's name
        {QString(QChar(0xFFFD)) + "-ALPHA", false, {invalidA}}, // invalid bytes match as U+FFFD
        {"loop", false, {"loop"}},
        {"to-root", false, {"to-root"}}, // reported, never entered
    };
    for (const Case &c : cases) {
        const SearchReport report = search(c.query, c.hidden);
        EXPECT_THAT(pathsOf(report), UnorderedElementsAreArray(c.expected)) << c.query.toStdString();
        EXPECT_TRUE(report.warnings.isEmpty());
        EXPECT_FALSE(report.truncated);
    }
    // The hit keeps its real bytes.
    const SearchReport odd = search("odd", false);
    ASSERT_EQ(odd.items.size(), 1u);
    EXPECT_EQ(odd.items.front().url, tree / invalidA);
}

TEST_F(SearchTest, BlankQueryReturnsAtOnceWithoutTouchingTheDisk)
{
    for (const QString &blank : {QString(), QStringLiteral("   "), QStringLiteral(" \n\t")}) {
        const SearchReport report = search(blank, true, "/nonexistent/quillorn");
        EXPECT_TRUE(report.items.empty() && report.warnings.isEmpty() && !report.truncated);
    }
}

TEST_F(SearchTest, RootThroughALinkIsSearchedAtItsTarget)
{
    TestTree elsewhere;
    const fs::path link = elsewhere.symlink("via", tree / "docs");
    const SearchReport report = search("notes", false, link / ".");
    ASSERT_EQ(report.items.size(), 1u);
    EXPECT_EQ(report.items.front().url, fs::canonical(tree / "docs/notes.txt"));
    EXPECT_EQ(report.items.front().relativePath, "notes.txt");
}

TEST_F(SearchTest, RootThatIsNoFolderFailsWithItsSentence)
{
    for (const fs::path &root : {tree / "missing", tree / "Alpha.txt"})
        EXPECT_EQ(failure([&] { search("a", false, root); }), "Cannot search this folder.") << root;
}

TEST_F(SearchTest, UnreadableFolderBecomesOneWarningAndTheRestIsSearched)
{
    tree.file("locked/alpha-secret");
    lockForNobody(tree.root(), tree / "locked");
    test::AsNobody nobody;
    if (!nobody.skipReason.empty())
        GTEST_SKIP() << nobody.skipReason;
    const SearchReport report = search("alpha", false);
    EXPECT_EQ(report.warnings, QStringList{"locked: Permission denied"});
    EXPECT_THAT(pathsOf(report),
                UnorderedElementsAre("Alpha.txt", "docs/alphabet.md", "caps/ALPHA", invalidA, "link-alpha"));
}

TEST_F(SearchTest, CancelledControlEndsTheSearchWithoutAReport)
{
    OperationControl control;
    control.cancel();
    EXPECT_THROW(DirectoryTools::search(tree.root(), "alpha", true, control), CancellationError);
}

// ---------------------------------------------------------------- comparison

class ComparisonTest : public ::testing::Test {
protected:
    TestTree tree;
    fs::path left = tree.folder("L");
    fs::path right = tree.folder("R");
};

TEST_F(ComparisonTest, RowsForEachKindOfDifferenceInCodePointOrder)
{
    // Items under the pair: "name=contents" or "name" (a file), "name->target" (a link; "@" makes the
    // target absolute inside the pair), "name|fifo", "name|socket", "name!old" (made read-only, 48 h older).
    const auto build = [](TestTree &t, const std::string &item) {
        if (const auto arrow = item.find("->"); arrow != std::string::npos) {
            const std::string target = item.substr(arrow + 2);
            t.symlink(item.substr(0, arrow),
                      target.starts_with('@') ? t / target.substr(1) : fs::path(target));
        } else if (item.ends_with("|fifo")) {
            makeFifo(t / item.substr(0, item.size() - 5));
        } else if (item.ends_with("|socket")) {
            makeSocket(t / item.substr(0, item.size() - 7));
        } else if (item.ends_with("!old")) {
            const fs::path file = t / item.substr(0, item.size() - 4);
            fs::permissions(file, fs::perms::owner_read);
            fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(48));
        } else if (const auto equals = item.find('='); equals != std::string::npos) {
            t.file(item.substr(0, equals), item.substr(equals + 1));
        } else {
            t.file(item);
        }
    };
    struct Case {
        const char *name;
        std::vector<std::string> items, rows;
    };
    const std::vector<Case> cases{
        {"empty folders", {}, {}},
        {"hidden file on one side", {"R/.secret=x"}, {"RIGHT ONLY  .secret"}},
        {"same size, other bytes", {"L/a=one", "R/a=two"}, {"CONTENT DIFF a"}},
        {"other size", {"L/a=one", "R/a=three"}, {"CONTENT DIFF a"}},
        {"same bytes, other mode and date; empty files",
         {"L/a=same", "R/a=same", "R/a!old", "L/empty", "R/empty"},
         {}},
        {"links compared as text, never entered",
         {"L/target/inside=left", "R/target/inside=left", "L/dangling->nowhere", "R/dangling->nowhere",
          "L/rel->target", "R/rel->@R/target", "L/dir->@L/target", "R/dir->@L/target", "L/loop->loop",
          "R/loop->loop", "L/root->/", "R/root->/"},
         {"LINK DIFF   rel"}},
        {"file against link, folder against file",
         {"L/x=x", "R/x->x", "L/d/a=a", "L/d/b/c=c", "R/d=d"},
         {"TYPE DIFF   d", "LEFT ONLY   d/a", "LEFT ONLY   d/b", "LEFT ONLY   d/b/c", "TYPE DIFF   x"}},
        {"names equal under NFC are one key",
         {"L/" + precomposed + "=same", "R/" + decomposed + "=same", "L/n/" + decomposed + "=left",
          "R/n/" + precomposed + "=right"},
         {"CONTENT DIFF n/" + precomposed}},
        {"names that are not UTF-8 stay apart",
         {"L/" + invalidA + "=x", "R/" + invalidB + "=x", "L/both" + invalidA + "=x",
          "R/both" + invalidA + "=x"},
         {"RIGHT ONLY  " + invalidB, "LEFT ONLY   " + invalidA}}, // bytes order: 0xFE before 0xFF
        {"FIFOs and sockets are never opened",
         {"L/pipe|fifo", "R/pipe|fifo", "L/sock|socket", "R/sock|socket", "L/mixed|fifo", "R/mixed|socket",
          "L/pipe-or-file=x", "R/pipe-or-file|fifo"},
         {"TYPE DIFF   mixed", "TYPE DIFF   pipe-or-file"}},
        {"code-point order, kinds interleaved",
         {"L/b=1", "R/b=22", "L/a-b", "R/a/b", "R/B"},
         {"RIGHT ONLY  B", "RIGHT ONLY  a", "LEFT ONLY   a-b", "RIGHT ONLY  a/b", "CONTENT DIFF b"}},
    };
    for (const Case &c : cases) {
        TestTree pair;
        pair.folder("L");
        pair.folder("R");
        for (const std::string &item : c.items)
            build(pair, item);
        EXPECT_EQ(compare(pair / "L", pair / "R"), c.rows) << c.name;
    }
}

TEST_F(ComparisonTest, AFolderWithItselfOrThroughALinkMatches)
{
    tree.file("L/a/b", "x");
    tree.symlink("L/link", "a");
    const fs::path via = tree.symlink("via", left);
    EXPECT_TRUE(compare(left, left).empty());
    EXPECT_TRUE(compare(via, left).empty());
    EXPECT_TRUE(compare(via / "." / "a" / "..", left).empty());
}

TEST_F(ComparisonTest, MissingRootFailsWithItsPath)
{
    EXPECT_EQ(failure([&] { compare(left, tree / "gone"); }), "Cannot enumerate " + (tree / "gone").string());
}

TEST_F(ComparisonTest, UnreadableFolderEndsTheComparisonWithThePlatformError)
{
    tree.file("L/ok", "x");
    tree.file("R/ok", "y");
    tree.file("R/deep/locked/inside", "x");
    lockForNobody(tree.root(), tree / "R/deep/locked");
    test::AsNobody nobody;
    if (!nobody.skipReason.empty())
        GTEST_SKIP() << nobody.skipReason;
    try {
        compare(left, right);
        FAIL() << "no rows may come back";
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code(), std::errc::permission_denied);
        EXPECT_EQ(error.code().message(), "Permission denied");
    }
}

TEST_F(ComparisonTest, DigestIsSha256OfTheContents)
{
    OperationControl control;
    const auto hex = [](const DirectoryTools::Digest &digest) {
        return QByteArray(reinterpret_cast<const char *>(digest.data()), digest.size()).toHex().toStdString();
    };
    EXPECT_EQ(hex(DirectoryTools::digest(tree.file("abc", "abc"), control)),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hex(DirectoryTools::digest(tree.file("empty"), control)),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_THROW(DirectoryTools::digest(tree / "missing", control), std::system_error);
}

// Two equal sparse files of `size` bytes, compared on a thread of its own.
struct LargePair {
    explicit LargePair(TestTree &tree, std::uintmax_t size)
    {
        for (const char *side : {"L/big", "R/big"}) {
            tree.file(side);
            fs::resize_file(tree / side, size);
        }
        result = std::async(std::launch::async, [this, &tree] {
            return DirectoryTools::comparison(tree / "L", tree / "R", control);
        });
    }
    void waitForBytes(std::int64_t bytes) const
    {
        while (control.progress().completed < bytes)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    OperationControl control;
    std::future<std::vector<std::string>> result;
};

TEST_F(ComparisonTest, CancellingInsideALargeFileStopsWithinOneChunk)
{
    LargePair pair(tree, std::uintmax_t(1) << 30);
    pair.waitForBytes(8 * DirectoryTools::digestChunk);
    pair.control.cancel();
    const std::int64_t atCancel = pair.control.progress().completed;
    EXPECT_THROW(pair.result.get(), CancellationError);
    // Each of the two files being read may finish the chunk it is in.
    EXPECT_LE(pair.control.progress().completed, atCancel + 2 * std::int64_t(DirectoryTools::digestChunk));
}

TEST_F(ComparisonTest, FileTruncatedWhileHashedIsADifferenceNotAFailure)
{
    LargePair pair(tree, std::uintmax_t(256) << 20);
    pair.waitForBytes(2 * DirectoryTools::digestChunk);
    fs::resize_file(tree / "R/big", DirectoryTools::digestChunk / 2);
    EXPECT_THAT(pair.result.get(), ElementsAre("CONTENT DIFF big"));
}

// The search reads parts of the tree on several threads; whatever the shape of
// the tree, its report must be the one a single depth-first walk gives.
namespace {

struct SingleWalk final : TreeWalk::Visitor {
    explicit SingleWalk(std::string query) : query(std::move(query)) {}
    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        if (entry.name.find(query) != std::string_view::npos)
            hits.emplace_back(entry.relativePath);
        return hits.size() == SearchReport::limit ? TreeWalk::Next::stop : TreeWalk::Next::proceed;
    }
    TreeWalk::Next failed(const TreeWalk::Entry &entry, int) override
    {
        warnings << QString::fromStdString(std::string(entry.name)) + ": Permission denied";
        return TreeWalk::Next::proceed;
    }
    std::string query;
    std::vector<std::string> hits;
    QStringList warnings;
};

} // namespace

TEST(SearchOrder, ReportIsThatOfOneWalkAcrossSplitsAndTheLimit)
{
    struct Shape {
        const char *name;
        int folders, depth, hitsPerFolder;
    };
    for (const Shape shape :
         {Shape{"wide, under the limit", 150, 1, 20}, Shape{"deep, under the limit", 3, 5, 30},
          Shape{"wide, over the limit", 60, 2, 170}, Shape{"one folder, over the limit", 1, 1, 10'050},
          Shape{"one hit over the limit", 1, 1, 10'000}, Shape{"one hit under the limit", 1, 1, 9'998}}) {
        TestTree tree;
        for (int folder = 0; folder < shape.folders; ++folder) {
            fs::path dir = tree.root();
            for (int level = 0; level < shape.depth; ++level)
                dir /= "f" + std::to_string(folder) + "-" + std::to_string(level);
            fs::create_directories(dir);
            for (int hit = 0; hit < shape.hitsPerFolder; ++hit)
                std::ofstream(dir / ("hit" + std::to_string(hit)));
            std::ofstream(dir.parent_path() / ("hit-beside-" + std::to_string(folder)));
        }
        lockForNobody(tree.root(), tree / "f1-0/locked");
        test::AsNobody nobody;
        if (!nobody.skipReason.empty())
            GTEST_SKIP() << nobody.skipReason;

        SingleWalk single("hit");
        TreeWalk::walk(tree.root(), true, single);
        OperationControl control;
        const SearchReport report = DirectoryTools::search(tree.root(), "hit", false, control);
        EXPECT_EQ(pathsOf(report), single.hits) << shape.name;
        EXPECT_EQ(report.truncated, single.hits.size() == SearchReport::limit) << shape.name;
        EXPECT_EQ(report.warnings, single.warnings) << shape.name;
    }
}

// ---------------------------------------------------------------- folder sizes

namespace {

// du's apparent size of a folder on its own volume.
std::int64_t du(const fs::path &folder)
{
    return std::stoll(test::runCommand("du -sbx " + test::shellQuote(folder) + " 2>/dev/null"));
}

std::vector<FolderSize> sizes(const std::vector<fs::path> &folders)
{
    OperationControl control;
    return DirectoryTools::folderSizes(folders, control);
}

// Files of several sizes in 40 folders (enough for both workers to share),
// hard links inside and from outside, and links to a file and a folder.
struct SizeTree {
    TestTree tree;
    fs::path root = tree.folder("root");
    SizeTree()
    {
        for (int folder = 0; folder < 40; ++folder)
            for (int file = 0; file < 5; ++file)
                tree.file("root/s" + std::to_string(folder) + "/deep/f" + std::to_string(file),
                          std::string(std::size_t(folder * 37 + file), 'x'));
        const fs::path big = tree.file("root/a/big", std::string(70'000, 'x'));
        fs::create_hard_link(big, root / "a/big-again");
        fs::create_hard_link(big, root / "s3/big-elsewhere");
        fs::create_hard_link(tree.file("outside", std::string(900, 'x')), root / "a/from-outside");
        tree.symlink("root/file-link", "a/big");
        tree.symlink("root/folder-link", "a");
    }
};

} // namespace

TEST(FolderSizes, MatchDuWithHardLinksOnceAndLinksNotFollowed)
{
    SizeTree t;
    std::vector<std::vector<FolderSize>> heard;
    std::map<std::size_t, FolderSize> finishedAt; // what the first report that called a folder finished said
    OperationControl control;
    const std::vector<fs::path> folders{t.root, t.root / "a", t.root / "s3", t.root / "folder-link"};
    const std::vector<FolderSize> counted = DirectoryTools::folderSizes(
        folders, control,
        [&](const std::vector<FolderSize> &totals, const std::vector<bool> &finished) {
            heard.push_back(totals);
            for (std::size_t index = 0; index < finished.size(); ++index)
                if (finished[index])
                    finishedAt.emplace(index, totals[index]);
        },
        std::chrono::milliseconds(0));
    ASSERT_EQ(counted.size(), folders.size());
    for (std::size_t index = 0; index < folders.size(); ++index) {
        // A folder given through a link is counted where it leads.
        EXPECT_EQ(counted[index], (FolderSize{du(fs::canonical(folders[index])), false})) << folders[index];
        for (const std::vector<FolderSize> &totals : heard)
            EXPECT_LE(totals[index].bytes, counted[index].bytes) << "a running total above the final one";
        if (finishedAt.count(index) > 0) {
            EXPECT_EQ(finishedAt[index], counted[index]) << "finished before its total was";
        }
    }
    EXPECT_FALSE(heard.empty());
}

TEST(FolderSizes, MountInsideIsLeftOutAsWithDuX)
{
    if (!test::runningAsRoot())
        GTEST_SKIP() << "mounting a test volume needs root";
    SizeTree t;
    const std::int64_t before = du(t.root);
    test::ScopedMount volume("tmpfs", t.tree.folder("root/a/volume"), "size=1m,mode=0755");
    t.tree.file("root/a/volume/inside", std::string(5000, 'x'));
    const FolderSize counted = sizes({t.root}).front();
    EXPECT_EQ(counted, (FolderSize{du(t.root), false}));
    // Neither what the volume holds nor its mount point counts.
    EXPECT_EQ(counted.bytes, before);
}

TEST(FolderSizes, UnreadableFolderMakesThePartialTotalOfTheRest)
{
    SizeTree t;
    const fs::path locked = t.tree.file("root/s7/locked/hidden", std::string(12'345, 'x')).parent_path();
    struct stat own {};
    ASSERT_EQ(::stat(locked.c_str(), &own), 0);
    // The locked folder itself counts, as du counts it; what it holds cannot.
    const std::int64_t readable = du(t.root) - du(locked) + own.st_size;
    lockForNobody(t.tree.root(), locked);
    test::AsNobody nobody;
    if (!nobody.skipReason.empty())
        GTEST_SKIP() << nobody.skipReason;
    EXPECT_EQ(sizes({t.root, locked}), (std::vector<FolderSize>{{readable, true}, {own.st_size, true}}));
}

TEST(FolderSizes, CancellingStopsTheCountWithCancellationError)
{
    SizeTree t;
    OperationControl control;
    int heard = 0;
    EXPECT_THROW(DirectoryTools::folderSizes(
                     {t.root}, control,
                     [&](const std::vector<FolderSize> &, const std::vector<bool> &) {
                         ++heard;
                         control.cancel();
                     },
                     std::chrono::milliseconds(0)),
                 CancellationError);
    EXPECT_GE(heard, 1);
    OperationControl cancelled;
    cancelled.cancel();
    EXPECT_THROW(DirectoryTools::folderSizes({t.root}, cancelled), CancellationError);
}
