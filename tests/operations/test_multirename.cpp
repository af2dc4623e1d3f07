#include "operationstesting.h"

#include "asnobody.h"
#include "operations/multirename.h"

#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;

namespace {

using Changes = std::vector<NameChange>;
using Contents = std::map<std::string, std::string>;

// Files whose contents are their names, so that each item can be followed.
fs::path filesNamed(TestTree &tree, const std::vector<std::string> &names)
{
    const fs::path folder = tree.folder("items");
    for (const std::string &name : names)
        tree.file(fs::path("items") / name, name);
    return folder;
}

Contents contentsOf(const fs::path &folder)
{
    Contents contents;
    for (const auto &item : fs::directory_iterator(folder))
        contents[item.path().filename().native()] = TestTree::read(item.path());
    return contents;
}

// What the folder should hold after the changes: each item under its new name.
Contents renamed(Contents contents, const Changes &changes)
{
    Contents after = contents;
    for (const auto &[from, to] : changes)
        after.erase(from);
    for (const auto &[from, to] : changes)
        after[to] = contents.at(from);
    return after;
}

void renameIn(const fs::path &folder, const Changes &changes,
              const std::vector<PublishIntent> *earlier = nullptr,
              NoReplaceRename rename = FileOperations::FileManager::posix().rename)
{
    OperationControl control;
    renameAll(folder, changes, rename, control, earlier);
    EXPECT_EQ(control.progress().itemsDone, std::int64_t(changes.size()));
}

const Changes swap{{"a", "b"}, {"b", "a"}};
const Changes threeCycle{{"a", "b"}, {"b", "c"}, {"c", "a"}};
const Changes mixed{{"x", "y"}, {"y", "x"}, {"p", "q"}, {"q", "r"}, {"a", "b"}, {"b", "c"}, {"c", "a"}};

} // namespace

TEST(MultiRename, chainsAndCyclesEndWithEveryItemUnderItsNewName)
{
    for (const Changes &changes : {swap, threeCycle, mixed}) {
        TestTree tree;
        const fs::path folder = filesNamed(tree, {"a", "b", "c", "x", "y", "p", "q", "other"});
        const Contents before = contentsOf(folder);
        renameIn(folder, changes);
        EXPECT_EQ(contentsOf(folder), renamed(before, changes)); // and no hidden name left behind
    }
}

TEST(MultiRename, conflictsAreFoundInThePlan)
{
    const std::string longest(nameMax, 'n');
    const VolumeNaming posix{}, windows{true, true};
    const RenameFolder folder{{"a", "b", "keep", "Photo.JPG"}, posix, {}};
    RenameFolder fat = folder;
    fat.naming = windows;
    using enum NameConflict;
    const std::vector<std::tuple<Changes, const RenameFolder *, std::vector<NameConflict>>> rows = {
        {{{"a", "x"}, {"b", "x"}}, &folder, {duplicate, duplicate}},
        {{{"a", "keep"}}, &folder, {taken}},
        {{{"a", "b"}, {"b", "z"}}, &folder, {none, none}},  // b is freed by the plan
        {{{"a", "a"}, {"b", "a"}}, &folder, {none, taken}}, // a keeps its name
        {{{"a", ""}, {"b", "."}, {"keep", ".."}}, &folder, {invalid, invalid, invalid}},
        {{{"a", "x/y"}, {"b", std::string("x\0y", 3)}}, &folder, {invalid, invalid}},
        {{{"a", longest + "n"}, {"b", longest}}, &folder, {tooLong, none}},
        {{{"a", "x:y"}, {"b", "dot."}, {"keep", "tab\t"}},
         &fat,
         {refusedByVolume, refusedByVolume, refusedByVolume}},
        {{{"a", "x:y"}, {"b", "dot."}}, &folder, {none, none}},
        {{{"a", "KEEP"}, {"Photo.JPG", "photo.jpg"}}, &fat, {taken, none}},
        {{{"a", "KEEP"}, {"b", "B"}}, &folder, {none, none}},
    };
    for (const auto &[changes, in, expected] : rows)
        EXPECT_EQ(nameConflicts(changes, *in), expected) << changes.front().second;

    // The job checks again before it starts, and then changes nothing.
    TestTree tree;
    const fs::path items = filesNamed(tree, {"a", "b", "keep"});
    const Contents before = contentsOf(items);
    EXPECT_EQ(failure([&] {
                  renameIn(items, {{"b", "c"}, {"a", "keep"}});
              }),
              "An item named \u2018keep\u2019 already exists.");
    EXPECT_EQ(failure([&] {
                  renameIn(items, {{"a", "c"}, {"b", "c"}});
              }),
              "More than one item would be named \u2018c\u2019.");
    EXPECT_EQ(failure([&] { renameIn(items, {{"a", "../a"}}); }), "\u2018../a\u2019 is not a valid name.");
    EXPECT_EQ(contentsOf(items), before);
}

TEST(MultiRename, namesThatAreNotUtf8KeepTheirBytes)
{
    TestTree tree;
    const std::string odd = "\xff\xfe photo.JPG", latin = "caf\xe9";
    const fs::path folder = filesNamed(tree, {odd, latin});
    const Changes changes{{odd, "\xff\xfe photo.jpg"}, {latin, "1 caf\xe9"}};
    const Contents before = contentsOf(folder);
    renameIn(folder, changes);
    EXPECT_EQ(contentsOf(folder), renamed(before, changes));
}

TEST(MultiRename, aFailureInTheMiddlePutsEveryNameBack)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "needs root to own items as two users";
    // In a sticky folder only an item's owner may rename it: "locked" stays root's.
    TestTree tree;
    const fs::path folder = filesNamed(tree, {"x", "y", "a", "locked", "c"});
    ASSERT_EQ(::chmod(tree.root().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(folder.c_str(), 01777), 0);
    for (const char *name : {"x", "y", "a", "c"})
        ASSERT_EQ(::chown((folder / name).c_str(), AsNobody::user, AsNobody::group), 0);
    const Contents before = contentsOf(folder);
    std::string message;
    {
        AsNobody nobody;
        if (!nobody.skipReason.empty())
            GTEST_SKIP() << nobody.skipReason;
        message = failure([&] {
            renameIn(folder, {{"x", "y"}, {"y", "x"}, {"a", "a2"}, {"locked", "l2"}, {"c", "c2"}});
        });
    }
    EXPECT_EQ(message, "Could not rename \u2018locked\u2019 to \u2018l2\u2019: Operation not permitted. "
                       "The names already changed were put back.");
    EXPECT_EQ(contentsOf(folder), before);
}

TEST(MultiRename, aRunAfterACrashFinishesFromWhereverItStopped)
{
    // The mixed plan takes 3 + 2 + 4 renames, with a hidden name in each cycle. A
    // child process dies before its rename number `crash` (at 10 it finishes,
    // as when a crash comes before the job's end is recorded); the next run
    // takes the intents the child made durable.
    for (int crash = 1; crash <= 10; ++crash) {
        TestTree tree;
        const fs::path folder = filesNamed(tree, {"a", "b", "c", "x", "y", "p", "q", "other"});
        const Contents before = contentsOf(folder);
        const fs::path record = tree / "intents";
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            auto count = std::make_shared<int>(0);
            const NoReplaceRename posix = FileOperations::FileManager::posix().rename;
            OperationControl control;
            control.onPublishing([&](const std::vector<PublishIntent> &intents) {
                for (const PublishIntent &intent : intents)
                    std::ofstream(record, std::ios::app)
                        << intent.source.native() << '\t' << intent.staging.native() << '\t'
                        << intent.target.native() << '\t' << intent.copySeal << '\n';
            });
            try {
                renameAll(
                    folder, mixed,
                    [&](const Folder &from, const std::string &a, const Folder &to, const std::string &b) {
                        if (++*count == crash)
                            ::_exit(0);
                        posix(from, a, to, b);
                    },
                    control);
            } catch (...) {
                ::_exit(1);
            }
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << crash;
        std::vector<PublishIntent> earlier;
        std::ifstream lines(record);
        for (std::string source, staging, target, seal;
             std::getline(lines, source, '\t') && std::getline(lines, staging, '\t') &&
             std::getline(lines, target, '\t') && std::getline(lines, seal);)
            earlier.push_back({source, staging, target, {}, seal});
        renameIn(folder, mixed, &earlier);
        EXPECT_EQ(contentsOf(folder), renamed(before, mixed)) << "crash before rename " << crash;
    }
}
