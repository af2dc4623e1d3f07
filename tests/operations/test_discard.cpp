#include "operationstesting.h"
#include "testtree.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/trash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using quillorn::CommanderError;
using quillorn::FileOperations;
using quillorn::test::failure;
using quillorn::test::LogMark;
using quillorn::test::TestTree;
using testing::ElementsAre;

namespace {

const fs::path &dataHome = quillorn::test::temporaryDataHome();

// Services that count their calls; trash and remove fail unless told otherwise.
struct Services {
    int trashCalls = 0, removeCalls = 0, localityCalls = 0;
    bool volumeIsLocal = true;
    bool removeWorks = false;
    std::function<void(const fs::path &)> beforeTrashFails = [](const fs::path &) {};
    std::function<void(const fs::path &)> beforeRemoveFails = [](const fs::path &) {};

    FileOperations operations()
    {
        return FileOperations(
            [this](const fs::path &item) {
                ++trashCalls;
                beforeTrashFails(item);
                throw quillorn::NoTrashError();
            },
            [this](const fs::path &item) {
                ++removeCalls;
                if (removeWorks)
                    return fs::remove_all(item), void();
                beforeRemoveFails(item);
                quillorn::throwPosixError(item, EACCES);
            },
            [this](const fs::path &) {
                ++localityCalls;
                return volumeIsLocal;
            });
    }
};

class Discard : public testing::Test {
protected:
    std::string couldNotMove() const
    {
        return "Could not move \u2018a.txt\u2019 to Trash. The item still exists at " + m_item.string() +
               ". no Trash on this volume";
    }
    std::string trashFailedLine() const
    {
        return "TRASH FAILED path=" + m_item.string() +
               " error=Quillorn.NoTrashError code=1: no Trash on this volume";
    }

    TestTree m_tree;
    fs::path m_item = m_tree.file("a.txt", "A");
    Services m_services;
};

TEST_F(Discard, aMissingItemFailsBeforeAnyTrashAttempt)
{
    fs::remove(m_item);
    EXPECT_EQ(failure([&] { m_services.operations().discard(m_item, true); }),
              "The item no longer exists: " + m_item.string());
    EXPECT_EQ(m_services.trashCalls, 0);
}

TEST_F(Discard, aLocalVolumeIsNeverRemovedPermanentlyEvenWithPermission)
{
    const LogMark mark;
    EXPECT_EQ(failure([&] { m_services.operations().discard(m_item, true); }), couldNotMove());
    EXPECT_EQ(m_services.removeCalls, 0);
    EXPECT_TRUE(fs::exists(m_item));
    EXPECT_THAT(mark.lines(), ElementsAre(trashFailedLine()));
}

TEST_F(Discard, aShareWithoutPermissionKeepsTheItem)
{
    m_services.volumeIsLocal = false;
    EXPECT_EQ(failure([&] { m_services.operations().discard(m_item, false); }), couldNotMove());
    EXPECT_EQ(m_services.removeCalls, 0);
    EXPECT_TRUE(fs::exists(m_item));
}

TEST_F(Discard, aShareWithPermissionRemovesTheItemForGood)
{
    m_services.volumeIsLocal = false;
    m_services.removeWorks = true;
    const LogMark mark;
    m_services.operations().discard(m_item, true);
    EXPECT_FALSE(fs::exists(m_item));
    EXPECT_EQ(m_services.removeCalls, 1);
    EXPECT_THAT(mark.lines(), ElementsAre(trashFailedLine()));
}

TEST_F(Discard, aFailedRemovalNamesTheShareAndTheReason)
{
    m_services.volumeIsLocal = false;
    const LogMark mark;
    EXPECT_EQ(
        failure([&] { m_services.operations().discard(m_item, true); }),
        "Could not permanently remove \u2018a.txt\u2019 from the network share. The item still exists at " +
            m_item.string() + ". Permission denied");
    EXPECT_THAT(mark.lines(),
                ElementsAre(trashFailedLine(),
                            "REMOVE FAILED path=" + m_item.string() +
                                " error=POSIX code=13: Permission denied path=" + m_item.string()));
}

TEST_F(Discard, anItemThatVanishedDuringAFailureCountsAsDiscarded)
{
    m_services.beforeTrashFails = [](const fs::path &item) { fs::remove(item); };
    EXPECT_NO_THROW(m_services.operations().discard(m_item, false));
    EXPECT_EQ(m_services.localityCalls, 0);

    m_item = m_tree.file("a.txt", "again");
    m_services.beforeTrashFails = [](const fs::path &) {};
    m_services.beforeRemoveFails = [](const fs::path &item) { fs::remove(item); };
    m_services.volumeIsLocal = false;
    EXPECT_NO_THROW(m_services.operations().discard(m_item, true));
}

TEST_F(Discard, aLocalityErrorIsTheResultUnchanged)
{
    const FileOperations operations(
        [](const fs::path &) { throw quillorn::NoTrashError(); },
        [](const fs::path &) { FAIL() << "never removed"; },
        [](const fs::path &item) -> bool { quillorn::throwPosixError(item, ENOENT); });
    try {
        operations.discard(m_item, true);
        ADD_FAILURE() << "discard succeeded";
    } catch (const quillorn::PosixError &error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

TEST(DiscardToTrash, aDanglingLinkGoesToTheTrashNotItsTarget)
{
    TestTree tree;
    const fs::path link = tree.symlink("dangling", tree / "nowhere");
    const fs::path linkToFile = tree.symlink("pointer", tree.file("kept.txt", "kept"));
    const FileOperations operations;
    operations.discard(link, false);
    operations.discard(linkToFile, false);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
    EXPECT_EQ(TestTree::read(tree / "kept.txt"), "kept");
    int links = 0;
    for (const auto &entry : fs::directory_iterator(dataHome / "Trash/files"))
        links += entry.is_symlink();
    EXPECT_EQ(links, 2);
}

} // namespace
