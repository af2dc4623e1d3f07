#include "operations/detail/folderwalk.h"

#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace fs = std::filesystem;

namespace quillorn::detail {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

} // namespace

Item openItem(const fs::path &item)
{
    const fs::path folder = item.has_relative_path() ? item.parent_path() : item;
    const std::string name = item.has_relative_path() ? item.filename().native() : ".";
    Item opened{openFolderForNames(folder), {name, {}}};
    opened.entry.info = entryAttributes(opened.parent, name);
    return opened;
}

Folder openFolderForNames(const fs::path &folder)
{
    FileDescriptor descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor)
        throwPosixError(folder, errno);
    return {std::move(descriptor), folder};
}

Folder openChildFolder(const Folder &parent, const Entry &entry)
{
    const fs::path shown = parent / entry.name;
    FileDescriptor descriptor(::openat(parent.fd.get(), entry.name.c_str(), folderFlags));
    if (!descriptor)
        throwPosixError(shown, errno);
    struct stat opened {};
    if (::fstat(descriptor.get(), &opened) != 0)
        throwPosixError(shown, errno);
    if (opened.st_dev != entry.info.st_dev || opened.st_ino != entry.info.st_ino)
        throwPosixError(shown, ESTALE);
    return {std::move(descriptor), shown};
}

struct stat entryAttributes(const Folder &folder, const std::string &name)
{
    struct stat info {};
    if (::fstatat(folder.fd.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        throwPosixError(folder / name, errno);
    return info;
}

std::vector<Entry> folderEntries(const Folder &folder)
{
    // fdopendir takes the descriptor it is given, so it gets its own, opened
    // afresh for reading (the folder may be held with O_PATH).
    FileDescriptor reading(::openat(folder.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!reading)
        throwPosixError(folder.shown, errno);
    std::unique_ptr<DIR, int (*)(DIR *)> stream(::fdopendir(reading.get()), ::closedir);
    if (!stream)
        throwPosixError(folder.shown, errno);
    reading.release();
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(stream.get());
        if (!entry) {
            if (errno != 0)
                throwPosixError(folder.shown, errno);
            break;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    stream.reset(); // one open stream per level at most, however deep the walk
    std::vector<Entry> entries;
    entries.reserve(names.size());
    for (std::string &name : names) {
        const struct stat info = entryAttributes(folder, name);
        entries.push_back({std::move(name), info});
    }
    return entries;
}

void walk(const Folder &folder, TreeVisitor &visitor)
{
    for (const Entry &entry : folderEntries(folder)) {
        if (!visitor.visit(folder, entry) || !S_ISDIR(entry.info.st_mode))
            continue;
        const Folder child = openChildFolder(folder, entry);
        walk(child, visitor);
        visitor.leave(child, entry);
    }
}

void walk(const Item &item, TreeVisitor &visitor)
{
    if (!visitor.visit(item.parent, item.entry) || !S_ISDIR(item.entry.info.st_mode))
        return;
    const Folder folder = openChildFolder(item.parent, item.entry);
    walk(folder, visitor);
    visitor.leave(folder, item.entry);
}

} // namespace quillorn::detail
