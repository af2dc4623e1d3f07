#include "model/fileentry.h"

#include <utility>

namespace quillorn {

namespace fs = std::filesystem;

// What 100,000 entries cost before any name outgrows the string's own buffer.
static_assert(sizeof(FileEntry) <= 72);

namespace {

// Splits url's bytes at the last separator so that folder and name join back
// to exactly those bytes: "//a" keeps its doubled separator, as it did when
// the whole path was stored.
std::pair<std::string_view, std::string_view> split(std::string_view url)
{
    const std::size_t slash = url.rfind('/');
    if (slash == std::string_view::npos)
        return {{}, url};
    const bool keepSeparator = slash == 0 || url[slash - 1] == '/';
    return {url.substr(0, keepSeparator ? slash + 1 : slash), url.substr(slash + 1)};
}

} // namespace

FileEntry::FileEntry(const fs::path &url, bool directory, std::int64_t size, Time modified)
    : size(size), modified(modified), directory(directory)
{
    const auto [folder, name] = split(url.native());
    m_folder = std::make_shared<const fs::path>(folder);
    m_name = name;
}

FileEntry::FileEntry(Folder folder, std::string name, bool directory, std::int64_t size, Time modified)
    : size(size), modified(modified), directory(directory), m_folder(std::move(folder)),
      m_name(std::move(name))
{
}

const fs::path &FileEntry::folder() const
{
    static const fs::path none;
    return m_folder ? *m_folder : none;
}

// The same rule as path's operator/ for a name without separators, so that an
// entry made from a url gives back exactly that url ("/" and "a/" included).
bool FileEntry::separated() const
{
    const std::string &folder = this->folder().native();
    return !folder.empty() && folder.back() != '/';
}

fs::path FileEntry::url() const
{
    const std::string &folder = this->folder().native();
    std::string text;
    text.reserve(folder.size() + 1 + m_name.size());
    text.append(folder);
    if (separated())
        text.push_back('/');
    text.append(m_name);
    return fs::path(std::move(text));
}

bool FileEntry::hasUrl(std::string_view url) const
{
    const std::string &folder = this->folder().native();
    const std::size_t separator = separated() ? 1 : 0;
    if (url.size() != folder.size() + separator + m_name.size() || !url.ends_with(m_name) ||
        !url.starts_with(folder))
        return false;
    return separator == 0 || url[folder.size()] == '/';
}

bool operator==(const FileEntry &a, const FileEntry &b)
{
    if (a.m_name != b.m_name || a.directory != b.directory || a.size != b.size || a.modified != b.modified)
        return false;
    // Folders of different listings may be spelt differently ("/tmp/" and
    // "/tmp") and still give the same url.
    return a.m_folder == b.m_folder || a.folder() == b.folder() || a.url() == b.url();
}

} // namespace quillorn
