#pragma once

#include "operations/detail/folderwalk.h"
#include "operations/fileoperations.h"
#include "platform/posix/metadata.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace quillorn::detail {

class FlushPool;

// Files with several names seen during one transfer, so that their copies get
// several names too instead of becoming separate files (as cp -a does). Each
// first copy is remembered by the top item it belongs to and its path below it;
// a top item keeps its staging name until it is published.
class LinkMemory {
public:
    // Where the first copy of this file is, relative to the destination folder.
    std::optional<std::filesystem::path> find(const struct stat &source) const;
    void remember(const struct stat &source, const std::string &top, const std::filesystem::path &below);
    // The top item was published under a new name, or removed (name empty).
    void renameTop(const std::string &from, const std::string &to);

private:
    std::map<std::pair<dev_t, ino_t>, std::pair<std::string, std::filesystem::path>> m_first;
};

// Copies one selected item (a file, a link or a whole folder) into a new item of
// the destination folder, walking both trees by descriptor: nothing outside the
// selected item is read and nothing outside the new item is written, whatever is
// renamed or swapped for a link meanwhile. Files keep their holes and their hard
// links within the transfer; everything is on stable storage when copy() returns.
class TreeCopy {
public:
    TreeCopy(const FileOperations::FileManager &manager, OperationControl &control, LinkMemory &links);
    ~TreeCopy();

    // Copies source to newName in destination. shown is the path the copy will
    // be known by once published, used in messages instead of the hidden name.
    void copy(const Item &source, const Folder &destination, const std::string &newName,
              const std::filesystem::path &shown);
    // A new file in destination for a copy of the file source that has no name
    // yet: nothing of it can be seen until it is named, and nothing is left
    // should the program die first. Invalid where the volume cannot make one.
    static FileDescriptor createUnnamed(const Item &source, const Folder &destination);
    // Copies the file source into output, made by createUnnamed, and flushes it.
    void copyUnnamed(const Item &source, const Folder &destination, int output,
                     const std::filesystem::path &shown);

private:
    class Visitor;
    void copyFile(const Folder &folder, const Entry &entry, const Folder &target, const std::string &name,
                  const std::filesystem::path &below, const std::filesystem::path &shown);
    // Copies the data of entry into output and checks the source stayed as it was.
    void fillFile(const Folder &folder, const Entry &entry, int output, const std::filesystem::path &shown);
    void copyData(int input, int output, const struct stat &opened, const std::filesystem::path &source,
                  const std::filesystem::path &target);
    bool linkToFirstCopy(const Entry &entry, const Folder &target, const std::string &name);
    // Logs what cannot be carried, naming the items as the user will know them.
    void copyMetadata(int sourceFolder, const std::string &sourceName, const Folder &target,
                      const std::string &targetName, const std::filesystem::path &sourcePath,
                      const std::filesystem::path &targetPath, const struct stat &before);
    static void report(const std::vector<MetadataProblem> &problems, const std::filesystem::path &sourcePath,
                       const std::filesystem::path &targetPath);

    // On a volume where each file is flushed on its own: a file or folder of a
    // folder copy is flushed by the pool, a single file right here.
    void flushOnItsOwn(FileDescriptor descriptor, const std::filesystem::path &shown);
    // Waits for the pool, or for one flush of the whole volume started beside it,
    // whichever is done first.
    void finishRacingVolume(const std::filesystem::path &shown);
    // Flushes what was held back while the volume was busy: the held files and
    // folders on the pool raced by a volume flush, or, when there were more of
    // them than were kept, the volume flush alone.
    void flushHeld(const std::filesystem::path &shown);

    // Enough to keep a FUSE daemon or a file server busy without flooding it.
    static constexpr unsigned flushThreads = 8;
    // On a local journalled volume the flushes in flight at once share one journal
    // commit and one cache flush of the disk: the more, the fewer commits.
    // Measured with bench/flush_alternatives: 256 threads were about three times
    // as fast as 64 on a disk busy with other writers.
    static constexpr unsigned localFlushThreads = 256;
    // Other programs' data waiting to be written beyond which a volume flush
    // costs more than flushing each file: about what a disk writes in half a second.
    static constexpr std::uint64_t busyVolume = 64 * 1024 * 1024;
    // How often the race between the pool and the volume flush is looked at.
    static constexpr std::chrono::milliseconds raceCheck{20};
    // The files and folders of a copy onto a busy volume kept open for their own
    // flushes after the walk; as many as the pool takes at once, so a tree never
    // holds more descriptors than that.
    static constexpr std::size_t heldFlushes = localFlushThreads;

    const FileOperations::FileManager &m_manager;
    OperationControl &m_control;
    LinkMemory &m_links;
    const Folder *m_destination = nullptr;
    std::string m_top;
    bool m_flushEachFile = true;
    // Other programs keep the volume busy: a big file's write-back is left to the
    // kernel and its flush, so it is not starved between theirs.
    bool m_othersWriting = false;
    // The destination, opened for the volume flush that races the pool.
    FileDescriptor m_volume;
    // On a busy volume the flushes wait until the walk is done: flushes made
    // while it writes take journal commits that hold up its own writes, and
    // measured beside a busy writer that made a 20,000-file copy two to three
    // times slower than one volume flush at the end.
    bool m_holding = false;
    bool m_heldTooMany = false;
    std::vector<std::pair<FileDescriptor, std::filesystem::path>> m_held;
    std::unique_ptr<FlushPool> m_pool;
};

} // namespace quillorn::detail
