#include "operationstesting.h"

#include "platform/posix/trash.h"

using namespace std::string_literals;

namespace {

// Stand-in services: the Trash always fails (after onTrash), removal unless removeWorks
// (the rows that must not remove let it work, so a wrong removal shows).
struct Services {
    bool local = true, removeWorks = false;
    std::function<void(const fs::path &)> onTrash = [](const fs::path &) {}, onLocality = onTrash;

    FileOperations operations()
    {
        return FileOperations([this](const fs::path &item) { onTrash(item), throw NoTrashError(); },
                              [this](const fs::path &item) {
                                  if (!removeWorks)
                                      throwPosixError(item, EACCES);
                                  fs::remove_all(item);
                              },
                              [this](const fs::path &item) { return onLocality(item), local; });
    }
};

TEST(Discard, removesForGoodOnlyOnAShareWithPermission)
{
    const std::string noTrash = "Could not move \u2018a.txt\u2019 to Trash. ",
                      noRemoval = "Could not permanently remove \u2018a.txt\u2019 from the network share. ";
    for (const auto &[local, permission, removeWorks, outcome] : {std::tuple{true, true, true, noTrash},
                                                                  {false, false, true, noTrash},
                                                                  {false, true, true, ""s},
                                                                  {false, true, false, noRemoval}}) {
        TestTree tree;
        const fs::path item = tree.file("a.txt", "A");
        Services services{.local = local, .removeWorks = removeWorks};
        const auto logged = logMark();
        std::vector<std::string> lines{"TRASH FAILED path=" + item.string() +
                                       " error=Quillorn.NoTrashError code=1: no Trash on this volume"};
        if (!removeWorks)
            lines.push_back("REMOVE FAILED path=" + item.string() +
                            " error=POSIX code=13: Permission denied path=" + item.string());
        EXPECT_EQ(failure([&] { services.operations().discard(item, permission); }),
                  outcome.empty() ? ""
                                  : outcome + "The item still exists at " + item.string() + ". " +
                                        (removeWorks ? "no Trash on this volume" : "Permission denied"));
        EXPECT_EQ(fs::exists(item), !outcome.empty()) << outcome;
        EXPECT_EQ(logged(), lines) << outcome;
    }
}

TEST(Discard, aMissingItemFailsAVanishingOneIsDiscardedALocalityErrorPassesThrough)
{
    TestTree tree;
    Services services{.local = false};
    services.onTrash = [](const fs::path &) { ADD_FAILURE() << "a missing item is not trashed"; };
    EXPECT_EQ(failure([&] { services.operations().discard(tree / "missing", true); }),
              "The item no longer exists: " + (tree / "missing").string());

    services.onTrash = [](const fs::path &item) { fs::remove(item); };
    services.onLocality = [](const fs::path &) { ADD_FAILURE() << "a vanished item needs no locality"; };
    EXPECT_NO_THROW(services.operations().discard(tree.file("a.txt"), false));

    services.onTrash = [](const fs::path &) {};
    services.onLocality = [](const fs::path &item) { throwPosixError(item, ENOENT); };
    EXPECT_THROW(services.operations().discard(tree.file("a.txt"), true), PosixError);
}

TEST(DiscardToTrash, aLinkGoesToTheTrashNotItsTarget)
{
    TestTree tree;
    FileOperations().discard(tree.symlink("dangling", tree / "nowhere"), false);
    FileOperations().discard(tree.symlink("pointer", tree.file("kept.txt", "kept")), false);
    EXPECT_THAT(contents(tree.root()), ElementsAre(Pair("kept.txt", "kept")));
    for (const char *name : {"dangling", "pointer"})
        EXPECT_TRUE(fs::is_symlink(dataHome / "Trash/files" / name)) << name;
}

} // namespace
