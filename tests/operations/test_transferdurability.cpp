// When a copied folder is made durable: every file and folder of it on stable
// storage before the publishing rename, by one volume flush while the volume is
// quiet; while other programs keep it busy, file by file or by a volume flush,
// whichever is done first.
#include "operationstesting.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>

namespace {

// The default services, recording what is flushed up to each publishing rename;
// pendingWriteBack stands in for other programs' unwritten data. Shared with the
// services, since a losing volume flush may end after the transfer returned.
struct Recorder : std::enable_shared_from_this<Recorder> {
    std::mutex lock;
    std::condition_variable changed;
    std::multiset<fs::path> flushed, flushedAtPublish;
    int volumeFlushes = 0, volumeFlushesAtPublish = -1;
    bool published = false;
    std::function<void(const fs::path &)> beforeFlush = [](const fs::path &) {};
    std::function<void()> beforeVolumeFlush = [] {};

    static std::shared_ptr<Recorder> make() { return std::make_shared<Recorder>(); }

    FileOperations operations(std::uint64_t pendingWriteBack)
    {
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        manager.pendingWriteBack = [pendingWriteBack](int) { return pendingWriteBack; };
        manager.flush = [self = shared_from_this(), flush = manager.flush](int descriptor,
                                                                           const fs::path &item) {
            self->beforeFlush(item);
            flush(descriptor, item);
            std::lock_guard guard(self->lock);
            self->flushed.insert(item);
        };
        manager.flushVolume = [self = shared_from_this(), flush = manager.flushVolume](int descriptor,
                                                                                       const fs::path &item) {
            self->beforeVolumeFlush();
            flush(descriptor, item);
            std::lock_guard guard(self->lock);
            ++self->volumeFlushes;
            self->changed.notify_all();
        };
        manager.rename = [self = shared_from_this(),
                          rename = manager.rename](const Folder &from, const std::string &fromName,
                                                   const Folder &to, const std::string &toName) {
            if (fromName.starts_with(".quillorn-")) {
                std::lock_guard guard(self->lock);
                self->flushedAtPublish = self->flushed;
                self->volumeFlushesAtPublish = self->volumeFlushes;
                self->published = true;
                self->changed.notify_all();
            }
            rename(from, fromName, to, toName);
        };
        manager.name = [self = shared_from_this(), name = manager.name](int descriptor, const Folder &to,
                                                                        const std::string &toName) {
            {
                std::lock_guard guard(self->lock);
                self->flushedAtPublish = self->flushed;
                self->volumeFlushesAtPublish = self->volumeFlushes;
                self->published = true;
                self->changed.notify_all();
            }
            name(descriptor, to, toName);
        };
        return FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                              FileOperations::defaultVolumeIsLocal(), manager);
    }

    // Hold the caller until the copy is published, or until a volume flush is
    // done; a minute at most, so a copy that waits for the caller fails, not hangs.
    void awaitPublish()
    {
        std::unique_lock guard(lock);
        changed.wait_for(guard, std::chrono::minutes(1), [this] { return published; });
    }
    void awaitVolumeFlush()
    {
        std::unique_lock guard(lock);
        changed.wait_for(guard, std::chrono::minutes(1), [this] { return volumeFlushes > 0; });
    }
};

// A folder with files at two depths and an empty folder.
fs::path makeBox(TestTree &tree)
{
    tree.file("src/box/a.txt", "a");
    tree.file("src/box/sub/b.txt", pattern(3 * 1024 * 1024 + 1));
    tree.file("src/box/sub/deeper/c.txt", "c");
    tree.folder("src/box/empty");
    return tree / "src/box";
}

constexpr std::uint64_t othersWriting = 4ull << 30;

TEST(TransferDurability, onABusyVolumeEveryFileAndFolderIsFlushedItselfUnlessTheVolumeFlushIsFirst)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    const fs::path copy = dst / "box";
    {
        // The volume flush held until the copy is out: the files' own flushes publish it.
        auto recorder = Recorder::make();
        recorder->beforeVolumeFlush = [weak = std::weak_ptr(recorder)] {
            if (auto self = weak.lock())
                self->awaitPublish();
        };
        transfer({box}, dst, false, stop, recorder->operations(othersWriting));
        EXPECT_THAT(recorder->flushedAtPublish,
                    UnorderedElementsAre(copy, copy / "a.txt", copy / "sub", copy / "sub/b.txt",
                                         copy / "sub/deeper", copy / "sub/deeper/c.txt", copy / "empty"));
        EXPECT_EQ(recorder->volumeFlushesAtPublish, 0);
        EXPECT_EQ(TestTree::read(copy / "sub/b.txt"), pattern(3 * 1024 * 1024 + 1));
    }
    fs::remove_all(copy);
    {
        // A file's flush held until a volume flush is done: one was started beside it.
        auto recorder = Recorder::make();
        recorder->beforeFlush = [weak = std::weak_ptr(recorder),
                                 held = copy / "sub/b.txt"](const fs::path &item) {
            if (auto self = weak.lock(); self && item == held)
                self->awaitVolumeFlush();
        };
        transfer({box}, dst, false, stop, recorder->operations(othersWriting));
        EXPECT_EQ(recorder->volumeFlushesAtPublish, 1);
        EXPECT_EQ(TestTree::read(copy / "sub/b.txt"), pattern(3 * 1024 * 1024 + 1));
    }
}

TEST(TransferDurability, onABusyVolumeATreeOfMoreFilesThanAreHeldOpenIsCoveredByOneVolumeFlush)
{
    TestTree tree;
    for (int i = 0; i < 300; ++i)
        tree.file("src/many/f" + std::to_string(i), std::to_string(i));
    const fs::path dst = tree.folder("dst");
    auto recorder = Recorder::make();
    transfer({tree / "src/many"}, dst, false, stop, recorder->operations(othersWriting));
    EXPECT_EQ(recorder->volumeFlushesAtPublish, 1);
    EXPECT_THAT(recorder->flushedAtPublish, IsEmpty());
    EXPECT_EQ(TestTree::read(dst / "many/f299"), "299");
}

TEST(TransferDurability, onAQuietVolumeOneVolumeFlushBeforeThePublishCoversTheFolder)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    auto recorder = Recorder::make();
    transfer({box}, dst, false, stop, recorder->operations(0));
    EXPECT_EQ(recorder->volumeFlushesAtPublish, 1);
    EXPECT_THAT(recorder->flushedAtPublish, IsEmpty());
    EXPECT_EQ(TestTree::read(dst / "box/sub/deeper/c.txt"), "c");
}

TEST(TransferDurability, onABusyVolumeOneFailingFlushPublishesNothingAndLeavesNoStaging)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    for (const char *failing : {"sub/deeper/c.txt", "sub/deeper", ""}) {
        auto recorder = Recorder::make();
        const fs::path broken = failing[0] ? dst / "box" / failing : dst / "box";
        recorder->beforeFlush = [broken](const fs::path &item) {
            if (item == broken)
                throw PosixError(EIO, item);
        };
        // The disk's error reaches a volume flush as well.
        recorder->beforeVolumeFlush = [] { throw PosixError(EIO, "volume"); };
        EXPECT_EQ(failure([&] { transfer({box}, dst, false, stop, recorder->operations(othersWriting)); }),
                  wrapped("Copying \u2018box\u2019", broken.string() + ": Input/output error", "POSIX 5"))
            << failing;
        EXPECT_TRUE(fs::is_empty(dst)) << failing;
    }
}

TEST(TransferDurability, aBigFileWrittenBackWhileCopiedArrivesWhole)
{
    TestTree tree;
    // Several write-back windows, a hole between two of them and a tail shorter than one.
    const std::string head = pattern(37 * 1024 * 1024 + 3), tail = pattern(5 * 1024 * 1024 + 11);
    const fs::path big = tree.file("src/big.bin", head);
    {
        std::fstream out(big, std::ios::in | std::ios::out | std::ios::binary);
        out.seekp(80 * 1024 * 1024);
        out << tail;
    }
    // Quiet, its write-back goes in windows while it is copied; beside other
    // writers, it is left to the kernel and the flush.
    for (const std::uint64_t pending : {std::uint64_t(0), othersWriting}) {
        fs::remove_all(tree / "dst");
        auto recorder = Recorder::make();
        transfer({big}, tree.folder("dst"), false, stop, recorder->operations(pending));
        EXPECT_EQ(TestTree::read(tree / "dst/big.bin"), TestTree::read(big));
        EXPECT_THAT(recorder->flushedAtPublish, ElementsAre(tree / "dst/big.bin"));
    }
}

} // namespace
