#include "operationstesting.h"

#include "operations/detail/logtext.h"

#include <sys/stat.h>

#include <regex>

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
    using Row = std::tuple<std::vector<fs::path>, fs::path, ConflictPolicy, std::string>;
    const Row rows[] = {
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
        {{at("x/docs/a.txt")}, at("alias"), replace, same}, // once lost the source
    };
    for (const auto &[sources, destination, policy, message] : rows)
        for (const bool move : {false, true})
            EXPECT_EQ(failure([&] { transfer(sources, destination, move, policy); }), message)
                << sources.front() << " into " << destination << " move " << move;
    transfer({at("x/doc")}, at("x/docs")); // a name that merely starts like the source's
    transfer({at("x/docs/a.txt")}, at("x/docs"), true, keepBoth);
    EXPECT_THAT(contents(tree / "x/docs"), ElementsAre(Pair("a (2).txt", "A"), Pair("doc", "/")));
    EXPECT_THAT(contents(tree / "dst"), ElementsAre(Pair("a.txt", "old")));
}

TEST(TransferPolicies, decideEachClashInPathOrder)
{
    using Row = std::tuple<ConflictPolicy, std::vector<std::string>, std::map<std::string, std::string>>;
    const Row rows[] = {
        {keepBoth,
         {"a.txt", "a (2).txt", "b.tar (2).gz"},
         {{"a (2).txt", "second!"}, {"a.txt", "first"}, {"b.tar (2).gz", "bee"}, {"b.tar.gz", "old"}}},
        {skip, {"a.txt"}, {{"a.txt", "first"}, {"b.tar.gz", "old"}}},
        {replace, {"a.txt", "a.txt", "b.tar.gz"}, {{"a.txt", "second!"}, {"b.tar.gz", "bee"}}},
    };
    for (const auto &[policy, expected, after] : rows) {
        TestTree tree;
        const fs::path dst = tree.folder("dst");
        tree.file("dst/b.tar.gz", "old");
        OperationControl control;
        std::vector<std::string> published;
        // The same source twice goes once.
        for (const fs::path &item :
             FileOperations().transfer({tree.file("two/a.txt", "second!"), tree.file("one/a.txt", "first"),
                                        tree.file("two/b.tar.gz", "bee"), tree / "one/./a.txt"},
                                       dst, false, policy, control, false))
            published.push_back(item.lexically_relative(dst));
        EXPECT_EQ(published, expected);
        EXPECT_EQ(contents(dst), after) << rawValue(policy);
        // Skipped items count as done, so the bar still reaches its end.
        EXPECT_EQ(
            std::tuple(control.progress().expected, control.progress().completed, control.progress().detail),
            std::tuple(15, 15, "Complete"));
    }
    EXPECT_THAT(contents(dataHome / "Trash/files"), IsSupersetOf({Pair(_, "old"), Pair(_, "first")}));
}

TEST(TransferLog, linesNameEveryStepExactlyAndEscapeOddNames)
{
    TestTree tree;
    const std::string odd = "l\"i'n\\e\nfe\ted\r\x1b\x7f\xFF";
    const fs::path dst = tree.folder("dst");
    const auto logged = logMark();
    transfer({tree.file("src/" + odd, "bytes")}, dst, false, keepBoth);
    EXPECT_EQ(TestTree::read(dst / odd), "bytes");
    EXPECT_THAT(logged(), ElementsAre("TRANSFER BEGIN mode=copy sources=[\"" + (tree / "src").string() +
                                          "/l\\\"i\\'n\\\\e\\nfe\\ted\\r\\u{1b}\\u{7f}\\xFF\"] destination=" +
                                          dst.string() + " policy=Keep both",
                                      "TRANSFER ITEM COMPLETE phase=copy target=" + dst.string() +
                                          "/l\"i'n\\\\e\\nfe\\ted\\r\\x1B\\x7F\\xFF",
                                      "TRANSFER COMPLETE items=1 destination=" + dst.string()));
}

// A name with a line feed cannot forge a line of its own, and a name that is not
// UTF-8 is written so that the exact item can be found again, in the error too.
TEST(TransferLog, aFailureNamesTheExactItemsOnOneLineAndTheLogStaysUtf8)
{
    TestTree tree;
    const std::string lossy = "caf\xC3\xA9 \xFF\xFE", forging = "zip\nTRANSFER COMPLETE items=9";
    const fs::path small = tree.file("src/" + lossy, "small"), box = tree.folder("src/" + forging);
    ASSERT_EQ(::mkfifo((box / "pipe\xFF").c_str(), 0644), 0); // a copy refuses it midway
    const fs::path dst = tree.folder("dst");
    const std::string source = (tree / "src").string(), forgingShown = "zip\\nTRANSFER COMPLETE items=9";
    const auto logged = logMark();
    EXPECT_NE(failure([&] { transfer({small, box}, dst); }), "");
    const std::vector<std::string> lines = logged();
    ASSERT_EQ(lines.size(), 3u) << PrintToString(lines);
    EXPECT_EQ(lines[1],
              "TRANSFER ITEM COMPLETE phase=copy target=" + dst.string() + "/caf\xC3\xA9 \\xFF\\xFE");
    EXPECT_EQ(
        std::regex_replace(lines[2], std::regex("quillorn-[0-9A-F-]{36}"), "quillorn-UUID"),
        "TRANSFER FAILED phase=Copying \u2018" + forgingShown + "\u2019 source=" + source + "/" +
            forgingShown + " destination=" + dst.string() + "/" + forgingShown + " staging=" + dst.string() +
            "/.quillorn-UUID error=Quillorn.CommanderError code=1: Unsupported special file: " + source +
            "/" + forgingShown + "/pipe\\xFF");
    const std::string whole = TestTree::read(AppDiagnostics::shared().fileURL());
    EXPECT_EQ(detail::validUtf8(whole), whole);
}

} // namespace
