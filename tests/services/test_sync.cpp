// Synchronising two real folders: the plan from both walks and the remembered
// state, and its run through the queue's runner with the real Trash.
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "services/queuejob.h"
#include "services/syncplan.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;
using namespace ::testing;

namespace {

using Direction = SyncOptions::Direction;

class Sync : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::setenv("XDG_DATA_HOME", (m_home / "data").c_str(), 1);
        ::setenv("XDG_STATE_HOME", (m_home / "state").c_str(), 1);
        m_left = m_trees.folder("L");
        m_right = m_trees.folder("R");
    }

    // A file with its modification time `age` seconds in the past.
    fs::path file(const fs::path &relative, std::string_view contents, int age = 100)
    {
        const fs::path made = m_trees.file(relative, contents);
        fs::last_write_time(made, m_now - std::chrono::seconds(age));
        return made;
    }

    SyncPlan plan(Direction direction, bool trashExtras = false,
                  SyncOptions::Comparison comparison = SyncOptions::Comparison::sizeAndTime)
    {
        OperationControl control;
        const auto memory = SyncMemory::load(SyncMemory::defaultFolder(), m_left, m_right);
        return SyncPlan::make(m_left, m_right,
                              {direction,
                               trashExtras ? SyncOptions::OneSideOnly::trash : SyncOptions::OneSideOnly::copy,
                               comparison},
                              memory ? &*memory : nullptr, control);
    }

    JobRunner::Result run(const SyncPlan &plan, FileOperations operations = FileOperations())
    {
        OperationControl control;
        return JobRunner(std::move(operations)).run(Job(plan.job()), control);
    }

    // "kind side key" per action, kinds and sides as the sheet shows them.
    static std::vector<std::string> rows(const SyncPlan &plan)
    {
        static const char *kinds[] = {"copy", "replace", "trash", "folder", "conflict"};
        std::vector<std::string> shown;
        for (const SyncAction &action : plan.actions())
            shown.push_back(std::string(kinds[int(action.kind)]) +
                            (action.kind == SyncAction::Kind::conflict ? ""
                             : action.side == SyncSide::left           ? " L"
                                                                       : " R") +
                            " " + action.key);
        return shown;
    }

    // The names in the Trash, as its info files tell them.
    std::vector<std::string> trashed() const
    {
        const fs::path files = m_home / "data/Trash/files";
        return fs::exists(files) ? TestTree::names(files) : std::vector<std::string>();
    }

    TestTree m_home, m_trees;
    fs::path m_left, m_right;
    const fs::file_time_type m_now = fs::file_time_type::clock::now();
};

} // namespace

TEST_F(Sync, AMirrorCopiesReplacesOlderAndTrashesExtrasWhereTheyCanBeRestored)
{
    file("L/a.txt", "new a", 10);
    file("L/sub/b.txt", "b");
    m_trees.folder("L/empty");
    file("L/same.txt", "same", 50);
    file("R/same.txt", "same", 50);
    file("R/a.txt", "old a", 500);
    file("R/extra.txt", "extra");
    file("R/old/x.txt", "x");

    EXPECT_THAT(rows(plan(Direction::leftToRight)),
                ElementsAre("replace L a.txt", "folder L empty", "folder L sub"));
    const SyncPlan mirror = plan(Direction::leftToRight, true);
    EXPECT_THAT(rows(mirror), ElementsAre("replace L a.txt", "folder L empty", "trash R extra.txt",
                                          "trash R old", "folder L sub"));
    EXPECT_EQ(mirror.bytesToTransfer(), 6);

    EXPECT_THAT(run(mirror).syncSkipped, IsEmpty());
    EXPECT_EQ(TestTree::read(m_right / "a.txt"), "new a");
    EXPECT_EQ(TestTree::read(m_right / "sub/b.txt"), "b");
    EXPECT_TRUE(fs::is_directory(m_right / "empty") && fs::is_empty(m_right / "empty"));
    EXPECT_THAT(TestTree::names(m_right), ElementsAre("a.txt", "empty", "same.txt", "sub"));
    EXPECT_THAT(trashed(), UnorderedElementsAre("a.txt", "extra.txt", "old"));
    EXPECT_EQ(TestTree::read(m_home / "data/Trash/files/old/x.txt"), "x");
    EXPECT_THAT(rows(plan(Direction::leftToRight, true)), IsEmpty());

    // Restored from the Trash by the queue's own job, the extra is back as it was.
    OperationControl control;
    JobRunner().run(Job(RestoreFromTrashJob{{m_home / "data/Trash/files/extra.txt"}, false}), control);
    EXPECT_EQ(TestTree::read(m_right / "extra.txt"), "extra");
}

TEST_F(Sync, BothWaysTellsDeletionsFromCreationsOnlyOnceItRemembers)
{
    for (const char *side : {"L", "R"}) {
        file(fs::path(side) / "keep.txt", "keep", 300);
        file(fs::path(side) / "gone.txt", "gone", 300);
        file(fs::path(side) / "folder/inner/deep.txt", "deep", 300);
        file(fs::path(side) / "edited.txt", "v1", 300);
    }
    file("L/only-left.txt", "l");
    file("R/only-right.txt", "r");
    // Nothing remembered: one-sided items are copied, never taken for deleted.
    const SyncPlan first = plan(Direction::bothWays);
    EXPECT_THAT(rows(first), ElementsAre("copy L only-left.txt", "copy R only-right.txt"));
    EXPECT_THAT(run(first).syncSkipped, IsEmpty());
    EXPECT_THAT(rows(plan(Direction::bothWays)), IsEmpty());

    fs::remove(m_left / "gone.txt");
    fs::remove_all(m_right / "folder");
    file("L/new-left.txt", "nl", 5);
    file("R/new-right/empty-too/.keep", "", 5);
    fs::remove(m_right / "new-right/empty-too/.keep");
    file("L/edited.txt", "v2 from the left", 5);
    const SyncPlan second = plan(Direction::bothWays);
    EXPECT_THAT(rows(second), ElementsAre("replace L edited.txt", "trash L folder", "trash R gone.txt",
                                          "copy L new-left.txt", "folder R new-right"));
    EXPECT_THAT(run(second).syncSkipped, IsEmpty());
    for (const fs::path &root : {m_left, m_right})
        EXPECT_THAT(TestTree::names(root), ElementsAre("edited.txt", "keep.txt", "new-left.txt", "new-right",
                                                       "only-left.txt", "only-right.txt"));
    EXPECT_TRUE(fs::is_directory(m_left / "new-right/empty-too"));
    EXPECT_EQ(TestTree::read(m_right / "edited.txt"), "v2 from the left");
    EXPECT_THAT(trashed(), UnorderedElementsAre("edited.txt", "folder", "gone.txt"));
    EXPECT_THAT(rows(plan(Direction::bothWays)), IsEmpty());

    // A side that is suddenly empty (a volume not mounted) deletes nothing.
    fs::remove_all(m_right);
    fs::create_directory(m_right);
    EXPECT_THAT(rows(plan(Direction::bothWays)),
                ElementsAre("copy L edited.txt", "copy L keep.txt", "copy L new-left.txt",
                            "folder L new-right", "copy L only-left.txt", "copy L only-right.txt"));
}

TEST_F(Sync, AConflictWaitsForTheUserToPickASide)
{
    for (const char *side : {"L", "R"}) {
        file(fs::path(side) / "both.txt", "base", 300);
        file(fs::path(side) / "kept-here.txt", "base", 300);
    }
    run(plan(Direction::bothWays)); // remembers the two trees
    file("L/both.txt", "left edit", 20);
    file("R/both.txt", "right edit!", 10);
    fs::remove(m_left / "kept-here.txt");
    file("R/kept-here.txt", "changed", 10);

    SyncPlan conflicts = plan(Direction::bothWays);
    EXPECT_THAT(rows(conflicts), ElementsAre("conflict both.txt", "conflict kept-here.txt"));
    EXPECT_EQ(conflicts.actions()[1].why, "deleted on one side and changed on the other since the last run");
    conflicts.setChecked(0, true);
    EXPECT_EQ(conflicts.checkedCount(), 0U);
    EXPECT_THAT(conflicts.job().steps, IsEmpty());
    run(conflicts);
    EXPECT_EQ(TestTree::read(m_left / "both.txt"), "left edit");
    EXPECT_EQ(TestTree::read(m_right / "both.txt"), "right edit!");
    EXPECT_THAT(rows(plan(Direction::bothWays)), ElementsAre("conflict both.txt", "conflict kept-here.txt"));

    conflicts.resolve(0, SyncSide::left);
    conflicts.resolve(1, SyncSide::right);
    EXPECT_THAT(rows(conflicts), ElementsAre("replace L both.txt", "copy R kept-here.txt"));
    EXPECT_THAT(run(conflicts).syncSkipped, IsEmpty());
    EXPECT_EQ(TestTree::read(m_right / "both.txt"), "left edit");
    EXPECT_EQ(TestTree::read(m_left / "kept-here.txt"), "changed");
    EXPECT_THAT(trashed(), ElementsAre("both.txt"));

    // One way, a target newer than its source is not overwritten unasked either.
    file("R/both.txt", "newer on the right", 1);
    EXPECT_THAT(rows(plan(Direction::leftToRight)), ElementsAre("conflict both.txt"));
}

TEST_F(Sync, AnItemChangedAfterThePlanIsSkippedReportedAndNeverOverwritten)
{
    file("L/a.txt", std::string(3 * FileOperations::chunkSize, 'n'), 10);
    file("R/a.txt", "old", 500);
    file("L/b.txt", "new b", 10);
    file("R/b.txt", "old b", 500);
    file("R/extra.txt", "extra");
    const SyncPlan mirror = plan(Direction::leftToRight, true);
    ASSERT_THAT(rows(mirror), ElementsAre("replace L a.txt", "replace L b.txt", "trash R extra.txt"));

    // b.txt is edited before the run starts; a.txt while its copy is being made,
    // after the step's first look; extra.txt grows as well.
    std::ofstream(m_right / "b.txt", std::ios::app) << " edited";
    std::ofstream(m_right / "extra.txt", std::ios::app) << " grown";
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    bool edited = false;
    manager.copyChunk = [&, copy = manager.copyChunk](int input, int output, std::size_t limit,
                                                      const fs::path &source, const fs::path &target) {
        if (!edited && source == m_left / "a.txt") {
            edited = true;
            std::ofstream(m_right / "a.txt", std::ios::app) << " edited meanwhile";
        }
        return copy(input, output, limit, source, target);
    };
    const JobRunner::Result result =
        run(mirror, FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                   FileOperations::defaultVolumeIsLocal(), manager));
    EXPECT_TRUE(edited);
    EXPECT_THAT(result.syncSkipped,
                ElementsAre(Pair(m_left / "a.txt", "it changed after the plan was made"),
                            Pair(m_left / "b.txt", "it changed after the plan was made"),
                            Pair(m_right / "extra.txt", "it changed after the plan was made")));
    EXPECT_EQ(TestTree::read(m_right / "a.txt"), "old edited meanwhile");
    EXPECT_EQ(TestTree::read(m_right / "b.txt"), "old b edited");
    EXPECT_EQ(TestTree::read(m_right / "extra.txt"), "extra grown");
    EXPECT_THAT(trashed(), IsEmpty());
    EXPECT_THAT(TestTree::names(m_right), ElementsAre("a.txt", "b.txt", "extra.txt"));
}

TEST_F(Sync, ByContentFindsWhatSizeAndTimeMiss)
{
    file("L/same-size.txt", "abc", 100);
    file("R/same-size.txt", "xyz", 100);
    EXPECT_THAT(rows(plan(Direction::leftToRight)), IsEmpty());
    EXPECT_THAT(rows(plan(Direction::leftToRight, false, SyncOptions::Comparison::content)),
                ElementsAre("replace L same-size.txt"));
}
