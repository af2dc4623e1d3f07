#include "operationstesting.h"

using namespace std::string_literals;

namespace {

TEST(FileOperationsNaming, childRefusesAnythingButOneFreeName)
{
    TestTree tree;
    tree.file("taken.txt");
    tree.symlink("dangling", tree / "nowhere");
    for (const std::string &name : {""s, "."s, ".."s, "a/b"s, "a:b"s, "a\0b"s, "taken.txt"s, "dangling"s})
        EXPECT_EQ(failure([&] { FileOperations::child(name, tree.root()); }),
                  name.size() > 4 ? "An item named \u2018" + name + "\u2019 already exists."
                                  : "Enter a single valid file or folder name.")
            << name;
    EXPECT_EQ(FileOperations::child("...", tree.root()), tree / "...");
}

TEST(FileOperationsNaming, availableNameCountsUpBeforeTheLastExtension)
{
    TestTree tree;
    tree.folder("Photos");
    for (const char *taken : {"report.txt", "report (2).txt", "archive.tar.gz", ".profile"})
        tree.file(taken);
    for (const auto &[name, expected] : {std::pair{"free.txt", "free.txt"},
                                         {"report.txt", "report (3).txt"},
                                         {"Photos", "Photos (2)"},
                                         {"archive.tar.gz", "archive.tar (2).gz"},
                                         {".profile", ".profile (2)"}})
        EXPECT_EQ(FileOperations::availableName(name, tree.root()), tree / expected);
}

TEST(TransferPlan, refusalsComeBeforeAnyChange)
{
    TestTree tree;
    tree.file("x/docs/a.txt", "A");
    tree.file("one/a.txt");
    tree.folder("x/doc");
    tree.file("dst/a.txt", "old");
    tree.symlink("alias", tree / "x/docs");
    const auto at = [&](const char *relative) { return tree / relative; };
    const std::string same = "Source and destination are the same item.",
                      itself = "Cannot transfer a folder into itself.",
                      parent = "Select either a folder or its children, not both.";
    const struct {
        std::vector<fs::path> sources;
        fs::path destination;
        ConflictPolicy policy;
        std::string message;
    } rows[] = {
        {{"relative/a.txt"}, at("dst"), stop, "Only mounted filesystem URLs are supported."},
        {{at("x")}, at("x/docs"), stop, itself},
        {{at("x/docs")}, at("x/doc/../docs/./"), stop, itself},
        {{at("x/docs")}, at("alias"), stop, itself},
        {{at("one/a.txt")}, at("dst"), stop, "An item named \u2018a.txt\u2019 already exists."},
        {{at("one/a.txt"), at("x/docs/a.txt")},
         at("x"),
         stop,
         "Selected items have duplicate destination names. Choose Keep both or separate the transfers."},
        {{at("x/docs"), at("x/docs/a.txt")}, at("dst"), skip, parent},
        {{at("x/docs/a.txt"), at("x/docs")}, at("dst"), skip, parent},
        {{at("x/docs/a.txt")}, at("x/docs"), skip, same},
        {{at("x/docs/a.txt")}, at("alias"), replace, same}, // once lost the source
    };
    for (const auto &row : rows)
        for (const bool move : {false, true})
            EXPECT_EQ(failure([&] { transfer(row.sources, row.destination, move, row.policy); }), row.message)
                << row.sources.front() << " into " << row.destination << " move " << move;
    EXPECT_THAT(contents(tree / "x/docs"), ElementsAre(Pair("a.txt", "A")));
    EXPECT_THAT(contents(tree / "dst"), ElementsAre(Pair("a.txt", "old")));
}

TEST(TransferPlan, similarNamesAndTheSameItemUnderKeepBothAreAllowed)
{
    TestTree tree;
    tree.file("x/docs/a.txt", "A");
    transfer({tree.folder("x/doc")}, tree / "x/docs");
    transfer({tree / "x/docs/a.txt"}, tree / "x/docs", false, keepBoth);
    EXPECT_THAT(contents(tree / "x/docs"),
                ElementsAre(Pair("a (2).txt", "A"), Pair("a.txt", "A"), Pair("doc", "/")));
}

TEST(TransferPolicies, decideEachClashInPathOrder)
{
    using Contents = std::map<std::string, std::string>;
    const struct {
        ConflictPolicy policy;
        std::vector<const char *> published;
        Contents after;
    } rows[] = {
        {keepBoth,
         {"a.txt", "a (2).txt", "b (2).txt"},
         {{"a (2).txt", "second!"}, {"a.txt", "first"}, {"b (2).txt", "bee"}, {"b.txt", "old"}}},
        {skip, {"a.txt"}, {{"a.txt", "first"}, {"b.txt", "old"}}},
        {replace, {"a.txt", "a.txt", "b.txt"}, {{"a.txt", "second!"}, {"b.txt", "bee"}}},
    };
    for (const auto &row : rows) {
        TestTree tree;
        const fs::path dst = tree.folder("dst");
        tree.file("dst/b.txt", "old");
        OperationControl control;
        std::vector<fs::path> published;
        for (const char *name : row.published)
            published.push_back(dst / name);
        EXPECT_EQ(FileOperations().transfer({tree.file("two/a.txt", "second!"),
                                             tree.file("one/a.txt", "first"), tree.file("two/b.txt", "bee")},
                                            dst, false, row.policy, control, false),
                  published);
        EXPECT_EQ(contents(dst), row.after) << rawValue(row.policy);
        // Skipped items count as done, so the bar still reaches its end.
        EXPECT_EQ(
            std::tuple(control.progress().expected, control.progress().completed, control.progress().detail),
            std::tuple(15, 15, "Complete"));
    }
    std::vector<std::string> trashed;
    for (const auto &entry : fs::directory_iterator(dataHome / "Trash/files"))
        trashed.push_back(TestTree::read(entry.path()));
    EXPECT_THAT(trashed, IsSupersetOf({"old", "first"}));
}

TEST(TransferPolicies, theSameSourceTwiceIsTransferredOnce)
{
    TestTree tree;
    const fs::path one = tree.file("one/a.txt");
    EXPECT_THAT(transfer({one, tree / "one/./a.txt", one}, tree.folder("dst")),
                ElementsAre(tree / "dst/a.txt"));
    EXPECT_THAT(contents(tree / "dst"), SizeIs(1));
}

TEST(TransferOrder, composedAndDecomposedNamesOrderByTheirComposedForm)
{
    TestTree tree;
    // Decomposed "\u00e9b" sorts before "\u00e9a" by raw bytes (e < 0xC3), after it once composed.
    EXPECT_THAT(transfer({tree.file("src/e\u0301b"), tree.file("src/\u00e9a")}, tree.folder("dst")),
                ElementsAre(tree / "dst/\u00e9a", tree / "dst/e\u0301b"));
}

TEST(TransferLog, linesNameEveryStepExactlyAndEscapeOddNames)
{
    TestTree tree;
    const std::string odd = "l\"i'n\\e\nfe\ted\r\x1b\x7f\xFF";
    const fs::path dst = tree.folder("dst");
    const LogMark mark;
    transfer({tree.file("src/" + odd, "bytes")}, dst, false, keepBoth);
    EXPECT_EQ(TestTree::read(dst / odd), "bytes");
    EXPECT_THAT(
        mark.lines(),
        ElementsAre("TRANSFER BEGIN mode=copy sources=[\"" + (tree / "src").string() +
                        "/l\\\"i\\'n\\\\e\\nfe\\ted\\r\\u{1b}\\u{7f}\uFFFD\"] destination=" + dst.string() +
                        " policy=Keep both",
                    // Only the source list is escaped: a line feed in a target breaks its line.
                    "TRANSFER ITEM COMPLETE phase=copy target=" + dst.string() + "/l\"i'n\\e",
                    "fe\ted\r\x1b\x7f\uFFFD", "TRANSFER COMPLETE items=1 destination=" + dst.string()));
}

} // namespace
