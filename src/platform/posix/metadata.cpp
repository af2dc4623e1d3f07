#include "platform/posix/metadata.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/xattr.h>
#include <unistd.h>

namespace quillorn {
namespace {

// A name in an open folder, and the path the l*xattr calls reach it by: they have
// no *at form, but /proc/self/fd/N leads to the folder itself whatever its path
// became, and the final name is still not followed. With no name, folder is an
// open file that has none yet and every call goes to the descriptor.
struct At {
    int folder;
    std::string name;
    bool isDescriptor() const { return name.empty(); }
    std::string path() const
    {
        return folder == AT_FDCWD ? name : "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    }
    int status(struct stat &info) const
    {
        return isDescriptor() ? ::fstat(folder, &info)
                              : ::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW);
    }
    int changeOwner(uid_t owner, gid_t group) const
    {
        return ::fchownat(folder, name.c_str(), owner, group,
                          AT_SYMLINK_NOFOLLOW | (isDescriptor() ? AT_EMPTY_PATH : 0));
    }
    // Never called for a symbolic link (Linux has no mode for one), so following the name cannot stray.
    int changeMode(mode_t mode) const
    {
        return isDescriptor() ? ::fchmod(folder, mode) : ::fchmodat(folder, name.c_str(), mode, 0);
    }
    int changeTimes(const struct timespec times[2]) const
    {
        return isDescriptor() ? ::futimens(folder, times)
                              : ::utimensat(folder, name.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    int setAttribute(const std::string &attribute, const std::string &value) const
    {
        return isDescriptor() ? ::fsetxattr(folder, attribute.c_str(), value.data(), value.size(), 0)
                              : ::lsetxattr(path().c_str(), attribute.c_str(), value.data(), value.size(), 0);
    }
    int removeAttribute(const char *attribute) const
    {
        return isDescriptor() ? ::fremovexattr(folder, attribute) : ::lremovexattr(path().c_str(), attribute);
    }
};

std::error_code lastError()
{
    return {errno, std::generic_category()};
}

// The first failure of a multi-part step is the one reported; later parts are
// still attempted so the copy carries as much as it can.
void note(std::optional<std::error_code> &first, std::error_code error)
{
    if (!first)
        first = error;
}

// Without CAP_CHOWN a user cannot give a file away (EPERM). Owner and group are
// carried only where that is permitted, as cp -p and rsync do without root, so
// copying someone else's files is not a warning per file; any other failure is.
// Nothing is called when owner and group already match.
void copyOwner(const At &target, const struct stat &now, const struct stat &before,
               std::optional<std::error_code> &problem)
{
    if (now.st_uid == before.st_uid && now.st_gid == before.st_gid)
        return;
    if (target.changeOwner(before.st_uid, before.st_gid) == 0)
        return;
    const std::error_code failed = lastError();
    // The group alone may still be ours to give (a group the user belongs to).
    if (now.st_gid != before.st_gid)
        target.changeOwner(static_cast<uid_t>(-1), before.st_gid);
    if (failed.value() != EPERM)
        note(problem, failed);
}

// Lists the names of path's extended attributes, retrying when the list grows
// between the size query and the read.
std::optional<std::vector<std::string>> attributeNames(const std::string &path, std::error_code &error)
{
    for (;;) {
        const ssize_t size = ::llistxattr(path.c_str(), nullptr, 0);
        if (size < 0) {
            error = lastError();
            return std::nullopt;
        }
        std::string buffer(static_cast<std::size_t>(size), '\0');
        const ssize_t read = size == 0 ? 0 : ::llistxattr(path.c_str(), buffer.data(), buffer.size());
        if (read < 0 && errno == ERANGE)
            continue;
        if (read < 0) {
            error = lastError();
            return std::nullopt;
        }
        std::vector<std::string> names;
        for (std::size_t start = 0; start < static_cast<std::size_t>(read);) {
            const std::size_t end = buffer.find('\0', start);
            names.emplace_back(buffer, start, end - start);
            start = end + 1;
        }
        return names;
    }
}

std::optional<std::string> attributeValue(const std::string &path, const std::string &name,
                                          std::error_code &error)
{
    for (;;) {
        const ssize_t size = ::lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
        if (size < 0) {
            error = lastError();
            return std::nullopt;
        }
        std::string value(static_cast<std::size_t>(size), '\0');
        const ssize_t read =
            size == 0 ? 0 : ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        if (read < 0 && errno == ERANGE)
            continue;
        if (read < 0) {
            error = lastError();
            return std::nullopt;
        }
        value.resize(static_cast<std::size_t>(read));
        return value;
    }
}

bool unsupported(int code)
{
    return code == ENOTSUP || code == EOPNOTSUPP;
}

// Extended attributes, POSIX ACLs among them (system.posix_acl_access and
// system.posix_acl_default). A target that inherited a default ACL from its new
// folder loses it when the source had none, so the copy's access matches the
// source's instead of the folder's.
void copyAttributes(const At &sourceItem, const At &targetItem, std::optional<std::error_code> &problem)
{
    const std::string source = sourceItem.path();
    std::error_code error;
    const auto names = attributeNames(source, error);
    if (!names) {
        // A source volume without extended attributes has nothing to carry.
        if (!unsupported(error.value()))
            note(problem, error);
        return;
    }
    for (const std::string &name : *names) {
        const auto value = attributeValue(source, name, error);
        if (!value) {
            if (error.value() != ENODATA) // removed since it was listed
                note(problem, error);
            continue;
        }
        if (targetItem.setAttribute(name, *value) != 0)
            note(problem, lastError());
    }
    // Only a folder with a default ACL hands ACLs to the items made in it; asking
    // the folder once spares two calls by path for every file of a big copy. (A
    // target open by itself has no folder to ask.)
    if (targetItem.folder != AT_FDCWD && !targetItem.isDescriptor() &&
        ::fgetxattr(targetItem.folder, "system.posix_acl_default", nullptr, 0) < 0 &&
        (errno == ENODATA || unsupported(errno)))
        return;
    for (const char *acl : {"system.posix_acl_access", "system.posix_acl_default"}) {
        if (std::find(names->begin(), names->end(), acl) != names->end())
            continue;
        if (targetItem.removeAttribute(acl) != 0 && errno != ENODATA && !unsupported(errno))
            note(problem, lastError());
    }
}

std::optional<MetadataProblem> copyTimes(const At &target, const struct stat &before)
{
    const std::array<struct timespec, 2> times = {before.st_atim, before.st_mtim};
    if (target.changeTimes(times.data()) != 0)
        return MetadataProblem{"modificationDate", lastError()};
    return std::nullopt;
}

std::vector<MetadataProblem> copyMetadata(const At &source, const At &target, const struct stat &before)
{
    std::vector<MetadataProblem> problems;

    // Owner first: chown clears the set-user-ID and set-group-ID bits, which the
    // mode step then restores.
    std::optional<std::error_code> copyfile;
    struct stat now {};
    if (target.status(now) != 0) {
        note(copyfile, lastError());
    } else {
        copyOwner(target, now, before, copyfile);
        // Extended attributes need the owner's write permission, which a copy of a
        // read-only file was not created with; the mode step takes it away again.
        // A change of owner leaves the mode bits alone (set-ID bits aside).
        if (!S_ISLNK(before.st_mode) && !(now.st_mode & S_IWUSR))
            target.changeMode((now.st_mode & 07777) | S_IWUSR);
    }
    copyAttributes(source, target, copyfile);
    if (copyfile)
        problems.push_back({"copyfile", *copyfile});

    // Linux has no mode for a symbolic link itself, and a link's mode is never consulted.
    if (!S_ISLNK(before.st_mode) && target.changeMode(before.st_mode & 07777) != 0)
        problems.push_back({"permissions", lastError()});

    // Times last, since every step above may touch the change or access time.
    if (std::optional<MetadataProblem> problem = copyTimes(target, before))
        problems.push_back(std::move(*problem));

    return problems;
}

} // namespace

std::vector<MetadataProblem> copyMetadata(int sourceFolder, const std::string &sourceName, int targetFolder,
                                          const std::string &targetName, const struct stat &before)
{
    return copyMetadata(At{sourceFolder, sourceName}, At{targetFolder, targetName}, before);
}

std::vector<MetadataProblem> copyMetadataToFile(int sourceFolder, const std::string &sourceName,
                                                int targetFile, const struct stat &before)
{
    return copyMetadata(At{sourceFolder, sourceName}, At{targetFile, {}}, before);
}

std::optional<MetadataProblem> copyTimes(int targetFolder, const std::string &targetName,
                                         const struct stat &before)
{
    return copyTimes(At{targetFolder, targetName}, before);
}

std::vector<MetadataProblem> copyMetadata(const std::filesystem::path &source,
                                          const std::filesystem::path &target, const struct stat &before)
{
    return copyMetadata(AT_FDCWD, source.native(), AT_FDCWD, target.native(), before);
}

} // namespace quillorn
