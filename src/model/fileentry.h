#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace quillorn {

// One item of a pane's listing: the facts a pane needs to draw, sort, filter and
// act on a row. Made on the listing thread, read on the interface thread.
//
// A pane may hold 100,000 of these, so an entry keeps only its name's bytes and
// shares the folder with every other entry of the same listing: a
// std::filesystem::path per entry would cost several hundred bytes in component
// lists alone. The full path is built on request.
class FileEntry {
public:
    using Time = std::chrono::system_clock::time_point;
    using Folder = std::shared_ptr<const std::filesystem::path>;

    FileEntry() = default;
    // For one item known by its full path: the folder is its parent.
    FileEntry(const std::filesystem::path &url, bool directory, std::int64_t size, Time modified);
    // For the items of one listing: all share folder, which must not be null.
    FileEntry(Folder folder, std::string name, bool directory, std::int64_t size, Time modified);

    static constexpr Time distantPast() { return Time::min(); }

    // The listed folder with the item's name appended.
    std::filesystem::path url() const;
    std::filesystem::path id() const { return url(); }
    std::filesystem::path name() const { return std::filesystem::path(m_name); }
    std::string_view nameBytes() const { return m_name; }
    const std::filesystem::path &folder() const;
    const Folder &sharedFolder() const { return m_folder; }

    // Whether url() would equal url's bytes, without building it.
    bool hasUrl(std::string_view url) const;
    bool hasUrl(const std::filesystem::path &url) const { return hasUrl(std::string_view(url.native())); }

    std::int64_t size = 0; // 0 for folders
    Time modified = distantPast();
    bool directory = false; // a folder, or a symbolic link to one

    friend bool operator==(const FileEntry &a, const FileEntry &b);

private:
    bool separated() const; // whether a "/" goes between folder and name

    Folder m_folder; // null only for a default-constructed entry
    std::string m_name;
};

} // namespace quillorn
