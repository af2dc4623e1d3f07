#include "operationstesting.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace fs = std::filesystem;
using quillorn::CommanderError;
using quillorn::ConflictPolicy;
using quillorn::FileOperations;
using quillorn::OperationControl;
using quillorn::test::failure;
using quillorn::test::LogMark;
using quillorn::test::names;
using quillorn::test::TestTree;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const fs::path &dataHome = quillorn::test::temporaryDataHome();

// ---- naming -------------------------------------------------------------------

TEST(FileOperationsNaming, childRefusesAnythingButOneFreeName)
{
    TestTree tree;
    tree.file("taken.txt");
    tree.symlink("dangling", tree / "nowhere");
    for (const std::string &name :
         std::vector<std::string>{"", ".", "..", "a/b", "a:b", std::string("a\0b", 3)})
        EXPECT_EQ(failure([&] { FileOperations::child(name, tree.root()); }),
                  "Enter a single valid file or folder name.")
            << name;
    EXPECT_EQ(failure([&] { FileOperations::child("taken.txt", tree.root()); }),
              "An item named \u2018taken.txt\u2019 already exists.");
    EXPECT_EQ(failure([&] { FileOperations::child("dangling", tree.root()); }),
              "An item named \u2018dangling\u2019 already exists.");
    EXPECT_EQ(FileOperations::child("...", tree.root()), tree / "...");
    EXPECT_EQ(FileOperations::child("new", tree.root()), tree / "new");
    EXPECT_FALSE(fs::exists(tree / "new"));
}

TEST(FileOperationsNaming, availableNameCountsUpBeforeTheLastExtension)
{
    TestTree tree;
    tree.file("report.txt");
    tree.folder("Photos");
    tree.file("archive.tar.gz");
    tree.file(".profile");
    EXPECT_EQ(FileOperations::availableName("free.txt", tree.root()), tree / "free.txt");
    EXPECT_EQ(FileOperations::availableName("report.txt", tree.root()), tree / "report (2).txt");
    tree.file("report (2).txt");
    EXPECT_EQ(FileOperations::availableName("report.txt", tree.root()), tree / "report (3).txt");
    EXPECT_EQ(FileOperations::availableName("Photos", tree.root()), tree / "Photos (2)");
    EXPECT_EQ(FileOperations::availableName("archive.tar.gz", tree.root()), tree / "archive.tar (2).gz");
    EXPECT_EQ(FileOperations::availableName(".profile", tree.root()), tree / ".profile (2)");
}

TEST(FileOperationsNaming, validateRefusesAFolderIntoItselfAlsoThroughALink)
{
    TestTree tree;
    tree.folder("x/docs/inner");
    tree.folder("x/doc");
    tree.symlink("shortcut", tree / "x/docs/inner");
    const std::string message = "Cannot transfer a folder into itself.";
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/docs", tree / "x/docs"); }), message);
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/docs", tree / "x/docs/inner"); }), message);
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/docs", tree / "shortcut"); }), message);
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/docs", tree / "x/doc/../docs/./inner"); }),
              message);
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/doc", tree / "x/docs"); }), "");
    EXPECT_EQ(failure([&] { FileOperations::validate(tree / "x/docs", tree / "x"); }), "");
}

// ---- planning -----------------------------------------------------------------

class TransferPlan : public testing::Test {
protected:
    std::string transferFailure(std::vector<fs::path> sources, const fs::path &destination,
                                ConflictPolicy policy, bool move = false)
    {
        return failure([&] { m_operations.transfer(sources, destination, move, policy, false); });
    }

    TestTree m_tree;
    FileOperations m_operations;
};

TEST_F(TransferPlan, duplicateNamesAreRefusedOnlyUnderStop)
{
    m_tree.file("one/a.txt", "first");
    m_tree.file("two/a.txt", "second");
    m_tree.folder("dst");
    const std::vector<fs::path> both{m_tree / "two/a.txt", m_tree / "one/a.txt"};
    EXPECT_EQ(transferFailure(both, m_tree / "dst", ConflictPolicy::stop),
              "Selected items have duplicate destination names. Choose Keep both or separate the transfers.");
    EXPECT_TRUE(names(m_tree / "dst").empty());
}

TEST_F(TransferPlan, parentAndChildTogetherAreRefusedInEitherOrder)
{
    m_tree.file("x/docs/a.txt");
    m_tree.file("x/doc");
    m_tree.folder("dst");
    const std::string message = "Select either a folder or its children, not both.";
    EXPECT_EQ(
        transferFailure({m_tree / "x/docs", m_tree / "x/docs/a.txt"}, m_tree / "dst", ConflictPolicy::skip),
        message);
    EXPECT_EQ(
        transferFailure({m_tree / "x/docs/a.txt", m_tree / "x/docs"}, m_tree / "dst", ConflictPolicy::skip),
        message);
    EXPECT_EQ(transferFailure({m_tree / "x/doc", m_tree / "x/docs"}, m_tree / "dst", ConflictPolicy::stop),
              "");
    EXPECT_THAT(names(m_tree / "dst"), ElementsAre("doc", "docs"));
}

TEST_F(TransferPlan, sameItemIsRefusedUnlessKeepingBoth)
{
    m_tree.file("a.txt", "A");
    for (ConflictPolicy policy : {ConflictPolicy::stop, ConflictPolicy::skip, ConflictPolicy::replace})
        EXPECT_EQ(transferFailure({m_tree / "a.txt"}, m_tree.root(), policy),
                  "Source and destination are the same item.");
    EXPECT_EQ(transferFailure({m_tree / "a.txt"}, m_tree.root(), ConflictPolicy::keepBoth), "");
    EXPECT_EQ(TestTree::read(m_tree / "a (2).txt"), "A");
    EXPECT_EQ(TestTree::read(m_tree / "a.txt"), "A");
}

TEST_F(TransferPlan, replacingThroughALinkedFolderOntoItselfNeverLosesTheSource)
{
    m_tree.file("data/a.txt", "precious");
    m_tree.symlink("alias", m_tree / "data");
    EXPECT_EQ(transferFailure({m_tree / "data/a.txt"}, m_tree / "alias", ConflictPolicy::replace, true),
              "Source and destination are the same item.");
    EXPECT_EQ(TestTree::read(m_tree / "data/a.txt"), "precious");
}

TEST_F(TransferPlan, checksRunInOrderAndTouchNothing)
{
    m_tree.file("src/a.txt");
    m_tree.file("dst/a.txt", "old");
    EXPECT_EQ(transferFailure({"relative/a.txt"}, m_tree / "dst", ConflictPolicy::stop),
              "Only mounted filesystem URLs are supported.");
    EXPECT_EQ(transferFailure({m_tree / "src"}, m_tree / "src", ConflictPolicy::stop),
              "Cannot transfer a folder into itself.");
    EXPECT_EQ(transferFailure({m_tree / "src/a.txt"}, m_tree / "dst", ConflictPolicy::stop),
              "An item named \u2018a.txt\u2019 already exists.");
    EXPECT_EQ(TestTree::read(m_tree / "dst/a.txt"), "old");
    EXPECT_THAT(names(m_tree / "dst"), ElementsAre("a.txt"));
}

// ---- policies -----------------------------------------------------------------

class TransferPolicies : public testing::Test {
protected:
    void SetUp() override
    {
        m_tree.file("one/a.txt", "first");
        m_tree.file("two/a.txt", "second!");
        m_tree.file("two/b.txt", "bee");
        m_tree.folder("dst");
    }

    std::vector<fs::path> run(ConflictPolicy policy)
    {
        return m_operations.transfer({m_tree / "two/a.txt", m_tree / "one/a.txt", m_tree / "two/b.txt"},
                                     m_tree / "dst", false, policy, m_control, false);
    }

    TestTree m_tree;
    FileOperations m_operations;
    OperationControl m_control;
};

TEST_F(TransferPolicies, keepBothGivesTheSecondDuplicateTheNextFreeName)
{
    EXPECT_THAT(run(ConflictPolicy::keepBoth),
                ElementsAre(m_tree / "dst/a.txt", m_tree / "dst/a (2).txt", m_tree / "dst/b.txt"));
    // Processing follows path order, so one/ comes before two/.
    EXPECT_EQ(TestTree::read(m_tree / "dst/a.txt"), "first");
    EXPECT_EQ(TestTree::read(m_tree / "dst/a (2).txt"), "second!");
}

TEST_F(TransferPolicies, skipLeavesTheExistingItemButCountsItsBytes)
{
    m_tree.file("dst/b.txt", "existing");
    EXPECT_THAT(run(ConflictPolicy::skip), ElementsAre(m_tree / "dst/a.txt"));
    EXPECT_EQ(TestTree::read(m_tree / "dst/a.txt"), "first");
    EXPECT_EQ(TestTree::read(m_tree / "dst/b.txt"), "existing");
    const OperationControl::Progress progress = m_control.progress();
    EXPECT_EQ(progress.expected, 15);
    EXPECT_EQ(progress.completed, 15);
    EXPECT_EQ(progress.detail, "Complete");
}

TEST_F(TransferPolicies, replaceSendsTheOldItemToTheTrash)
{
    m_tree.file("dst/b.txt", "existing");
    EXPECT_THAT(run(ConflictPolicy::replace),
                ElementsAre(m_tree / "dst/a.txt", m_tree / "dst/a.txt", m_tree / "dst/b.txt"));
    EXPECT_EQ(TestTree::read(m_tree / "dst/a.txt"), "second!");
    EXPECT_EQ(TestTree::read(m_tree / "dst/b.txt"), "bee");
    EXPECT_THAT(names(m_tree / "dst"), ElementsAre("a.txt", "b.txt"));
    std::vector<std::string> trashed;
    for (const auto &entry : fs::directory_iterator(dataHome / "Trash/files"))
        trashed.push_back(TestTree::read(entry.path()));
    EXPECT_THAT(trashed, testing::IsSupersetOf({"existing", "first"}));
}

TEST_F(TransferPolicies, theSameSourceTwiceIsTransferredOnce)
{
    const auto result =
        m_operations.transfer({m_tree / "one/a.txt", m_tree / "one/./a.txt", m_tree / "one/a.txt"},
                              m_tree / "dst", false, ConflictPolicy::stop, false);
    EXPECT_THAT(result, ElementsAre(m_tree / "dst/a.txt"));
    EXPECT_THAT(names(m_tree / "dst"), ElementsAre("a.txt"));
}

TEST(TransferOrder, composedAndDecomposedNamesOrderByTheirComposedForm)
{
    TestTree tree;
    // "\u00e9b" written decomposed sorts before "\u00e9a" by raw bytes (e < 0xC3)
    // but after it once both are composed.
    const fs::path decomposed = tree.file("src/e\u0301b", "2");
    const fs::path composed = tree.file("src/\u00e9a", "1");
    tree.folder("dst");
    FileOperations operations;
    const auto result =
        operations.transfer({decomposed, composed}, tree / "dst", false, ConflictPolicy::stop, false);
    EXPECT_THAT(result, ElementsAre(tree / "dst/\u00e9a", tree / "dst/e\u0301b"));
}

// ---- log lines ------------------------------------------------------------------

TEST(TransferLog, linesNameEveryStepExactly)
{
    TestTree tree;
    tree.file("src/a.txt", "A");
    tree.folder("dst");
    const LogMark mark;
    FileOperations().transfer({tree / "src/a.txt"}, tree / "dst", false, ConflictPolicy::keepBoth, false);
    const std::string dst = (tree / "dst").string();
    EXPECT_THAT(mark.lines(),
                ElementsAre("TRANSFER BEGIN mode=copy sources=[\"" + (tree / "src/a.txt").string() +
                                "\"] destination=" + dst + " policy=Keep both",
                            "TRANSFER ITEM COMPLETE phase=copy target=" + dst + "/a.txt",
                            "TRANSFER COMPLETE items=1 destination=" + dst));
}

TEST(TransferLog, beginEscapesQuotesControlsAndInvalidBytes)
{
    TestTree tree;
    const std::string odd = std::string("l\"i'n\\e\nfe\ted\r\x1b\x7f") + "\xFF";
    tree.file("src/" + odd, "bytes");
    tree.folder("dst");
    const LogMark mark;
    FileOperations().transfer({tree / "src" / odd}, tree / "dst", false, ConflictPolicy::stop, false);
    EXPECT_EQ(TestTree::read(tree / "dst" / odd), "bytes");
    const std::vector<std::string> lines = mark.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "TRANSFER BEGIN mode=copy sources=[\"" + (tree / "src").string() +
                                 "/l\\\"i\\'n\\\\e\\nfe\\ted\\r\\u{1b}\\u{7f}\xEF\xBF\xBD\"] destination=" +
                                 (tree / "dst").string() + " policy=Stop");
}

} // namespace
