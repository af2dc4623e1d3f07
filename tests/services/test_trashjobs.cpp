// The Trash view's jobs as the queue runs them: restoring never replaces,
// deleting for good leaves nothing behind, and a run again after a crash
// finishes what the first one started.
#include "operations/commandererror.h"
#include "platform/posix/trash.h"
#include "services/queuejob.h"
#include "testtree.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace fs = std::filesystem;
using namespace quillorn;
using quillorn::test::TestTree;
using namespace ::testing;

namespace {

class TrashJobs : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_DATA_HOME", (m_home / "data").c_str(), 1); }

    JobRunner::Result run(Job job, bool rerun = false)
    {
        OperationControl control;
        JobRunner::Earlier earlier;
        return JobRunner().run(job, control, rerun ? &earlier : nullptr);
    }
    // The message a job fails with; empty when it does not.
    std::string failure(Job job, bool rerun = false)
    {
        try {
            run(std::move(job), rerun);
        } catch (const CommanderError &error) {
            return error.what();
        }
        return {};
    }
    std::vector<std::string> infos() const { return TestTree::names(m_home / "data/Trash/info"); }

    TestTree m_home, m_items;
};

} // namespace

TEST_F(TrashJobs, RestoringNeverReplacesAndKeepBothTakesTheFirstFreeName)
{
    const fs::path item = m_items.file("a.txt", "trashed");
    const fs::path trashed = trashItem(item);
    m_items.file("a.txt", "newer");
    m_items.file("a (2).txt", "taken too");

    EXPECT_EQ(failure(RestoreFromTrashJob{{trashed}, false}),
              "An item named \u2018a.txt\u2019 already exists.");
    EXPECT_EQ(TestTree::read(item), "newer");
    EXPECT_TRUE(fs::exists(trashed));

    const JobRunner::Result result = run(RestoreFromTrashJob{{trashed}, true});
    EXPECT_THAT(result.restored, ElementsAre(m_items / "a (3).txt"));
    EXPECT_EQ(TestTree::read(m_items / "a (3).txt"), "trashed");
    EXPECT_EQ(TestTree::read(item), "newer");
    EXPECT_THAT(infos(), IsEmpty());
}

TEST_F(TrashJobs, RestoringMakesTheFolderItCameFromAgain)
{
    const fs::path trashed = trashItem(m_items.file("gone/deeper/x", "x"));
    fs::remove_all(m_items / "gone");
    EXPECT_THAT(run(RestoreFromTrashJob{{trashed}, false}).restored, ElementsAre(m_items / "gone/deeper/x"));
    EXPECT_EQ(TestTree::read(m_items / "gone/deeper/x"), "x");
}

TEST_F(TrashJobs, ARunAgainAfterACrashFinishesWhatTheFirstStarted)
{
    // The crash came after the item went back, before its info went.
    const fs::path back = m_items.file("back.txt", "b");
    const fs::path trashed = trashItem(back);
    fs::rename(trashed, back);
    EXPECT_EQ(failure(RestoreFromTrashJob{{trashed}, false}),
              "\u2018back.txt\u2019 is no longer in the Trash.");
    EXPECT_EQ(failure(RestoreFromTrashJob{{trashed}, false}, true), "");
    EXPECT_THAT(infos(), IsEmpty());

    // Deleting: one item already removed, its info not yet; a folder whole.
    const fs::path first = trashItem(m_items.file("first", "1"));
    const fs::path folder = trashItem(m_items.file("folder/inner/leaf", "l").parent_path().parent_path());
    fs::remove(first);
    run(EraseFromTrashJob{{first, folder}}, true);
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_THAT(infos(), IsEmpty());
    EXPECT_THAT(TestTree::names(m_home / "data/Trash/files"), IsEmpty());
    EXPECT_EQ(TestTree::read(m_home / "data/Trash/directorysizes"), "");
}
