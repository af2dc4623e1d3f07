#pragma once

#include "services/foldersize.h"

#include <QObject>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillorn {

class OperationControl;
class ReceiverGuard;

// How folders are counted: DirectoryTools::folderSizes unless a test holds the
// count with a stand-in. Called on a worker thread with the folders, the
// count's control and where to send running totals.
using FolderSizeCount = std::function<std::vector<FolderSize>(
    const std::vector<std::filesystem::path> &, OperationControl &, const FolderSizeProgress &)>;

// The sizes of folders of one pane's listing that the user had counted, and
// the counts under way. Each request is one count on a thread of its own (a
// large tree takes a while and a network mount may hang, so it takes no pooled
// thread); the count works on a copy of the folders and sends back running
// totals a few times a second and then the final ones, as queued calls that are
// applied only while the request is still wanted. Lives on the interface thread.
class FolderSizes : public QObject {
    Q_OBJECT
public:
    struct Size {
        std::int64_t bytes = 0;
        bool partial = false;  // something below could not be read: bytes is a lower bound
        bool counting = false; // bytes is a running total
        friend bool operator==(const Size &, const Size &) = default;
    };

    explicit FolderSizes(FolderSizeCount count = {}, QObject *parent = nullptr);
    ~FolderSizes() override;

    // Starts counting those of the folders that are neither counted nor being counted.
    void count(const std::vector<std::filesystem::path> &folders);
    // Stops every count; the folders being counted have no size again.
    void cancel();
    // Stops every count and forgets every size.
    void clear();
    // Forgets the folders `listed` says no to; their counts run on unheard.
    void keepOnly(const std::function<bool(const std::filesystem::path &)> &listed);

    // Null for a folder neither counted nor being counted.
    const Size *find(const std::filesystem::path &folder) const;
    bool counting() const { return !m_runs.empty(); }

Q_SIGNALS:
    void sizesChanged();
    void countingChanged();

private:
    struct Known {
        Size size;
        std::uint64_t run = 0; // the count that last reported it
    };
    struct Run {
        std::shared_ptr<OperationControl> control;
        std::vector<std::filesystem::path> folders;
    };

    // `finished` empty: every folder of the run is finished.
    void apply(std::uint64_t run, const std::vector<FolderSize> &sizes, const std::vector<bool> &finished);
    void drop(std::uint64_t run);
    void endRun(std::map<std::uint64_t, Run>::iterator run);

    FolderSizeCount m_count;
    std::unordered_map<std::string, Known> m_sizes; // by the folder's path bytes
    std::map<std::uint64_t, Run> m_runs;
    std::uint64_t m_lastRun = 0;
    std::shared_ptr<ReceiverGuard> m_guard;
};

} // namespace quillorn
