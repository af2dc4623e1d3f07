#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace quillorn {

// What a transfer is about to publish, told before the publishing rename: after
// a kill between that rename and the record that follows it, this is what tells
// the final item this job made from one that only bears its name.
struct PublishIntent {
    std::filesystem::path source;
    std::filesystem::path staging; // empty for a move within one volume: the source itself is renamed
    std::filesystem::path target;
    // The moved source as the engine verified it (FileOperations::seal with
    // change times); empty for a copy, whose source is never removed.
    std::string sourceSeal;
    // The item that will appear under target, as it is before the rename.
    std::string copySeal;

    bool operator==(const PublishIntent &) const = default;
};

// Shared between one running operation (a background thread) and whoever watches,
// pauses or cancels it. The lock is held only for a single field access, never
// across a call out, so no lock order can arise; check() waits on it only while
// paused, and a cancel ends that wait.
class OperationControl {
public:
    struct Progress {
        std::int64_t completed = 0;
        std::int64_t expected = 0;
        std::string detail;
        // Files, links and folders: the progress of a transfer whose items
        // hold no bytes.
        std::int64_t itemsDone = 0;
        std::int64_t itemsExpected = 0;
    };

    void cancel();
    // Throws CancellationError once cancel() has been called. While the operation
    // is paused, waits here (at its next chunk or item) until resumed or cancelled.
    void check() const;
    bool isCancelled() const;
    // The worker holds still at its next check() until resume(); what it has
    // open (a staging item, its place in the queue) stays as it is.
    void pause();
    void resume();
    bool isPaused() const;

    // Told on the worker's thread, right after each item was published under its
    // final name (before a moved source is removed), so a record of the work can
    // be brought up to date before anything else happens. Set before the work starts.
    using PublishedListener =
        std::function<void(const std::filesystem::path &source, const std::filesystem::path &target)>;
    void onPublished(PublishedListener listener);
    void published(const std::filesystem::path &source, const std::filesystem::path &target) const;
    // Told on the worker's thread right before each publishing rename, or once
    // before the first of several that work announces together; the record must
    // be durable when the listener returns. Set before the work starts.
    using PublishingListener = std::function<void(const std::vector<PublishIntent> &intents)>;
    void onPublishing(PublishingListener listener);
    void publishing(const PublishIntent &intent) const;
    void publishing(const std::vector<PublishIntent> &intents) const;
    void add(std::int64_t bytes);
    void total(std::int64_t bytes);
    void detail(std::string text);
    void addItems(std::int64_t count);
    void totalItems(std::int64_t count);
    // A job made of several engine calls counts its own totals: from now on
    // total() and totalItems() leave these ones as they are.
    void holdTotals(std::int64_t bytes, std::int64_t items);
    Progress progress() const;

private:
    mutable std::mutex m_lock;
    mutable std::condition_variable m_unpaused;
    bool m_stopped = false;
    bool m_paused = false;
    std::int64_t m_completed = 0;
    std::int64_t m_expected = 0;
    std::int64_t m_itemsDone = 0;
    std::int64_t m_itemsExpected = 0;
    bool m_totalsHeld = false;
    std::string m_currentDetail = "Preparing";
    PublishedListener m_published;
    PublishingListener m_publishing;
};

} // namespace quillorn
