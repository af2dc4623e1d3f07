// When a copied folder is made durable: every file and folder of it on stable
// storage before the publishing rename, by one volume flush while the volume is
// quiet, file by file while other programs keep it busy.
#include "operationstesting.h"

#include <mutex>
#include <set>

namespace {

// The default services, recording what is flushed up to each publishing rename;
// pendingWriteBack stands in for other programs' unwritten data.
struct Recorder {
    std::mutex lock;
    std::multiset<fs::path> flushed, flushedAtPublish;
    int volumeFlushes = 0, volumeFlushesAtPublish = -1;
    std::function<void(const fs::path &)> beforeFlush = [](const fs::path &) {};

    FileOperations operations(std::uint64_t pendingWriteBack)
    {
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        manager.pendingWriteBack = [pendingWriteBack](int) { return pendingWriteBack; };
        manager.flush = [this, flush = manager.flush](int descriptor, const fs::path &item) {
            beforeFlush(item);
            flush(descriptor, item);
            std::lock_guard guard(lock);
            flushed.insert(item);
        };
        manager.flushVolume = [this, flush = manager.flushVolume](int descriptor, const fs::path &item) {
            flush(descriptor, item);
            std::lock_guard guard(lock);
            ++volumeFlushes;
        };
        manager.rename = [this, rename = manager.rename](const Folder &from, const std::string &fromName,
                                                         const Folder &to, const std::string &toName) {
            if (fromName.starts_with(".quillorn-")) {
                std::lock_guard guard(lock);
                flushedAtPublish = flushed;
                volumeFlushesAtPublish = volumeFlushes;
            }
            rename(from, fromName, to, toName);
        };
        return FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                              FileOperations::defaultVolumeIsLocal(), manager);
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

TEST(TransferDurability, onABusyVolumeEveryFileAndFolderIsFlushedItselfBeforeThePublish)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    Recorder recorder;
    transfer({box}, dst, false, stop, recorder.operations(othersWriting));
    const fs::path copy = dst / "box";
    EXPECT_THAT(recorder.flushedAtPublish,
                UnorderedElementsAre(copy, copy / "a.txt", copy / "sub", copy / "sub/b.txt",
                                     copy / "sub/deeper", copy / "sub/deeper/c.txt", copy / "empty"));
    EXPECT_EQ(recorder.volumeFlushesAtPublish, 0) << "a volume flush waits for the other programs' data";
    EXPECT_EQ(TestTree::read(copy / "sub/b.txt"), pattern(3 * 1024 * 1024 + 1));
}

TEST(TransferDurability, onAQuietVolumeOneVolumeFlushBeforeThePublishCoversTheFolder)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    Recorder recorder;
    transfer({box}, dst, false, stop, recorder.operations(0));
    EXPECT_EQ(recorder.volumeFlushesAtPublish, 1);
    EXPECT_THAT(recorder.flushedAtPublish, IsEmpty());
    EXPECT_EQ(TestTree::read(dst / "box/sub/deeper/c.txt"), "c");
}

TEST(TransferDurability, onABusyVolumeOneFailingFlushPublishesNothingAndLeavesNoStaging)
{
    TestTree tree;
    const fs::path box = makeBox(tree), dst = tree.folder("dst");
    for (const char *failing : {"sub/deeper/c.txt", "sub/deeper", ""}) {
        Recorder recorder;
        const fs::path broken = failing[0] ? dst / "box" / failing : dst / "box";
        recorder.beforeFlush = [&](const fs::path &item) {
            if (item == broken)
                throw PosixError(EIO, item);
        };
        EXPECT_EQ(failure([&] { transfer({box}, dst, false, stop, recorder.operations(othersWriting)); }),
                  wrapped("Copying \u2018box\u2019", broken.string() + ": Input/output error", "POSIX 5"))
            << failing;
        EXPECT_TRUE(fs::is_empty(dst)) << failing;
        EXPECT_EQ(recorder.volumeFlushes, 0) << failing;
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
    Recorder recorder;
    transfer({big}, tree.folder("dst"), false, stop, recorder.operations(othersWriting));
    EXPECT_EQ(TestTree::read(tree / "dst/big.bin"), TestTree::read(big));
    EXPECT_THAT(recorder.flushedAtPublish, ElementsAre(tree / "dst/big.bin"));
}

} // namespace
