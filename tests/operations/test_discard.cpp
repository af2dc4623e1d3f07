#include "operationstesting.h"

#include "platform/posix/trash.h"

#include <optional>
#include <unistd.h>

using namespace std::string_literals;

namespace {

// Stand-in services: the Trash always fails (after onTrash), removal unless removeWorks
// (the rows that must not remove let it work, so a wrong removal shows).
struct Services {
    bool local = true, removeWorks = false;
    std::function<void(const fs::path &)> onTrash = [](const fs::path &) {}, onLocality = onTrash;

    FileOperations operations()
    {
        return FileOperations(
            [this](const fs::path &item) -> fs::path { onTrash(item), throw NoTrashError(); },
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

// A shared .Trash that fails its checks is reported, so that an administrator's
// mistake or an attack does not go unseen.
TEST(DiscardToTrash, aSharedTrashThatIsNotStickyIsPassedOverAndLogged)
{
    TestTree tree;
    MOUNT_OR_SKIP(volume, "tmpfs", tree.folder("volume"), "size=1m");
    fs::permissions(tree.folder("volume/.Trash"), fs::perms::all);
    const auto logged = logMark();
    FileOperations().discard(tree.file("volume/a.txt", "A"), false);
    EXPECT_EQ(logged(),
              std::vector<std::string>{"TRASH SKIPPED path=" + (volume->path() / ".Trash").string() +
                                       " reason=not sticky"});
    EXPECT_EQ(TestTree::read(volume->path() / (".Trash-" + std::to_string(::geteuid())) / "files/a.txt"),
              "A");
    EXPECT_TRUE(fs::is_empty(volume->path() / ".Trash"));
}

// F8 on the mount point of a share: the Trash refuses it, and the permanent
// removal that followed emptied the share before failing on the mount point.
TEST(DiscardMounts, mountPointIsRefusedBeforeTheTrashAndItsVolumeKeepsEverything)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting needs root";
    for (const std::string kind : {"share", "tmpfs", "bind"}) {
        SCOPED_TRACE(kind);
        if (kind == "share" && ::access("/usr/bin/bindfs", X_OK) != 0) {
            ADD_FAILURE() << "bindfs is not installed (package bindfs)";
            continue;
        }
        TestTree tree;
        const fs::path where = tree.folder(kind);
        tree.file("backing/precious.txt", "P");
        tree.file("backing/sub/deep.txt", "D");
        std::optional<ScopedMount> mount;
        if (kind == "share")
            mount.emplace(ScopedMount::byCommand(
                "bindfs -o subtype=sshfs " + shellQuote(tree / "backing") + " " + shellQuote(where), where));
        else if (kind == "bind")
            mount.emplace(ScopedMount::bind(tree / "backing", where));
        else {
            mount.emplace("tmpfs", where, "size=1m");
            fs::copy(tree / "backing", where, fs::copy_options::recursive);
        }
        const auto logged = logMark();
        EXPECT_EQ(failure([&] { FileOperations().discard(where, true); }),
                  "\u2018" + kind +
                      "\u2019 is the mount point of another volume. Quillorn does not remove mount points; "
                      "unmount it first.");
        EXPECT_THAT(contents(where), ElementsAre(Pair("precious.txt", "P"), Pair("sub", "/")));
        EXPECT_EQ(TestTree::read(where / "sub/deep.txt"), "D");
        EXPECT_THAT(logged(), IsEmpty());
    }
}

// A folder on a share with a volume mounted somewhere inside it: the permanent
// removal takes the rest, leaves the mounted volume whole and says what stayed.
TEST(DiscardMounts, removalForGoodNeverEntersAVolumeMountedInside)
{
    if (!runningAsRoot())
        GTEST_SKIP() << "mounting needs root";
    for (const std::string kind : {"tmpfs", "bind"}) {
        SCOPED_TRACE(kind);
        TestTree tree;
        const fs::path item = tree.folder("gone"), inner = tree.folder("gone/sub/" + kind);
        tree.file("gone/a.txt");
        tree.file("gone/sub/b.txt");
        tree.file("gone/sub/z/c.txt");
        tree.file("elsewhere/kept.txt", "K");
        std::optional<ScopedMount> mount;
        if (kind == "bind") {
            mount.emplace(ScopedMount::bind(tree / "elsewhere", inner));
        } else {
            mount.emplace("tmpfs", inner, "size=1m");
            tree.file("gone/sub/tmpfs/kept.txt", "K");
        }
        const FileOperations operations([](const fs::path &) -> fs::path { throw NoTrashError(); },
                                        FileOperations::defaultRemove(),
                                        [](const fs::path &) { return false; });
        const auto logged = logMark();
        const std::string left = "\u2018" + inner.string() + "\u2019 is the mount point of another volume";
        EXPECT_EQ(failure([&] { operations.discard(item, true); }),
                  "Could not permanently remove \u2018gone\u2019 from the network share. The item still "
                  "exists at " +
                      item.string() + ". " + left + " and was left in place.");
        EXPECT_THAT(contents(item), ElementsAre(Pair("sub", "/")));
        EXPECT_THAT(contents(item / "sub"), ElementsAre(Pair(kind, "/")));
        EXPECT_THAT(contents(inner), ElementsAre(Pair("kept.txt", "K")));
        EXPECT_THAT(logged(), ElementsAre(StartsWith("TRASH FAILED path=" + item.string()),
                                          "REMOVE FAILED path=" + item.string() +
                                              " error=Quillorn.RemovalError code=1: " + left +
                                              " and was left in place."));
    }
}

} // namespace
