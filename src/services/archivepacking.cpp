#include "services/archivepacking.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "operations/stagingjournal.h"
#include "platform/core/displaytext.h"
#include "platform/posix/archivelibrary.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"
#include "platform/posix/stagingname.h"
#include "platform/posix/treewalk.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn {

const std::vector<std::string> ArchivePackJob::extensions = {".zip", ".tar.gz", ".tar.xz", ".tar.zst", ".7z"};

namespace {

using Path = std::filesystem::path;

constexpr std::size_t readChunk = 0x100000;

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : char(c); });
    return text;
}

// Adds items to the archive as the walk meets them.
class Packer : public TreeWalk::Visitor {
public:
    Packer(ArchiveWriter &writer, OperationControl &control) : m_writer(writer), m_control(control) {}

    // The item itself under `stored`, then what lies below it.
    void item(int parent, const std::string &name, const std::string &stored, const Path &shown)
    {
        struct stat info {};
        if (::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            throwPosixError(shown);
        add(parent, name, stored, info, shown);
        if (!S_ISDIR(info.st_mode))
            return;
        const int folder = TreeWalk::openFolder(parent, name.c_str());
        if (folder < 0)
            throwPosixError(shown);
        m_prefix = stored + "/";
        m_root = shown;
        TreeWalk::walk(TreeWalk::Start{folder, std::string(), 0, name}, false, *this);
    }

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_control.check();
        const std::string name(entry.name);
        const Path shown = m_root / std::string(entry.relativePath);
        struct stat info {};
        if (::fstatat(entry.parentFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            throwPosixError(shown);
        add(entry.parentFd, name, m_prefix + std::string(entry.relativePath), info, shown);
        return TreeWalk::Next::proceed;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        throwPosixError(m_root / std::string(entry.relativePath), error);
    }

private:
    void add(int parent, const std::string &name, const std::string &stored, const struct stat &info,
             const Path &shown)
    {
        if (!m_writer.holds(stored))
            refuse(shown);
        ArchiveMember member;
        member.path = stored;
        member.mode = info.st_mode & 07777;
        member.hasModified = true;
        member.modified = info.st_mtim.tv_sec;
        member.modifiedNanoseconds = info.st_mtim.tv_nsec;
        if (S_ISDIR(info.st_mode)) {
            member.type = ArchiveMember::Type::folder;
            m_writer.add(member, info.st_uid, info.st_gid);
        } else if (S_ISLNK(info.st_mode)) {
            member.type = ArchiveMember::Type::symlink;
            std::string target(std::size_t(std::max<off_t>(info.st_size, 0)) + 256, '\0');
            const ssize_t length = ::readlinkat(parent, name.c_str(), target.data(), target.size());
            if (length < 0)
                throwPosixError(shown);
            target.resize(std::size_t(length));
            if (!m_writer.holds(target))
                refuse(shown);
            member.linkTarget = target;
            m_writer.add(member, info.st_uid, info.st_gid);
            m_control.add(info.st_size); // as the total counts it
        } else if (S_ISREG(info.st_mode)) {
            if (info.st_nlink > 1 && m_writer.keepsHardLinks()) {
                // The second name of a file already stored is stored as a link to the first.
                const auto [first, added] = m_linked.try_emplace({info.st_dev, info.st_ino}, stored);
                if (!added) {
                    member.type = ArchiveMember::Type::hardlink;
                    member.linkTarget = first->second;
                    m_writer.add(member, info.st_uid, info.st_gid);
                    m_control.add(info.st_size); // the total counts every name's bytes
                    return;
                }
            }
            file(parent, name, member, info, shown);
        }
        // FIFOs, sockets and devices have no contents to keep.
    }

    // A 7z keeps names as UTF-16: another name could only be stored changed.
    [[noreturn]] static void refuse(const Path &shown)
    {
        throw CommanderError("\u2018" + displayText(shown).toStdString() +
                             "\u2019 cannot be stored in a 7z archive, which holds only names in UTF-8. "
                             "Choose ZIP or tar to keep it.");
    }

    void file(int parent, const std::string &name, ArchiveMember &member, const struct stat &info,
              const Path &shown)
    {
        const FileDescriptor input(
            ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!input)
            throwPosixError(shown);
        ::posix_fadvise(input.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        member.type = ArchiveMember::Type::file;
        member.size = info.st_size;
        m_writer.add(member, info.st_uid, info.st_gid);
        if (!m_buffer)
            m_buffer.reset(new char[readChunk]);
        // The header promised st_size bytes: a file that shrank meanwhile is padded, one that grew is cut.
        std::int64_t left = info.st_size;
        while (left > 0) {
            const ssize_t count =
                ::read(input.get(), m_buffer.get(), std::size_t(std::min<std::int64_t>(left, readChunk)));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                throwPosixError(shown);
            if (count == 0) {
                std::fill_n(m_buffer.get(), std::size_t(std::min<std::int64_t>(left, readChunk)), '\0');
                const std::size_t pad = std::size_t(std::min<std::int64_t>(left, readChunk));
                m_writer.write(m_buffer.get(), pad);
                left -= std::int64_t(pad);
                continue;
            }
            m_writer.write(m_buffer.get(), std::size_t(count));
            left -= count;
            m_control.add(count);
            m_control.check();
        }
    }

    ArchiveWriter &m_writer;
    OperationControl &m_control;
    std::string m_prefix;
    Path m_root;
    std::unique_ptr<char[]> m_buffer;
    std::map<std::pair<dev_t, ino_t>, std::string> m_linked;
};

} // namespace

std::optional<ArchiveFormat> ArchivePackJob::formatOf(const std::string &name)
{
    const std::string folded = lower(name);
    const std::pair<const char *, ArchiveFormat> formats[] = {
        {".zip", ArchiveFormat::zip},     {".tar.gz", ArchiveFormat::tarGz},
        {".tgz", ArchiveFormat::tarGz},   {".tar.xz", ArchiveFormat::tarXz},
        {".txz", ArchiveFormat::tarXz},   {".tar.zst", ArchiveFormat::tarZst},
        {".tzst", ArchiveFormat::tarZst}, {".7z", ArchiveFormat::sevenZip},
    };
    for (const auto &[extension, format] : formats)
        if (folded.size() > std::string_view(extension).size() && folded.ends_with(extension))
            return format;
    return std::nullopt;
}

std::string ArchivePackJob::suggestedName(const std::vector<Path> &items, const std::string &extension)
{
    std::string base;
    if (items.size() == 1) {
        base = items.front().filename().string();
        // A file's own extension gives way: "report.txt" packs into "report.zip".
        struct stat info {};
        const std::size_t dot = base.rfind('.');
        if (::lstat(items.front().c_str(), &info) == 0 && !S_ISDIR(info.st_mode) &&
            dot != std::string::npos && dot > 0)
            base.resize(dot);
    } else if (!items.empty()) {
        base = items.front().parent_path().filename().string();
    }
    if (base.empty() || base == "/")
        base = "archive";
    return base + extension;
}

QString ArchivePackJob::title() const
{
    return QStringLiteral("Compress ") + displayText(Path(name));
}

Path ArchivePackJob::operator()(OperationControl &control) const
{
    control.check();
    const std::optional<ArchiveFormat> format = formatOf(name);
    if (!format || name.find('/') != std::string::npos || name == "." || name == "..")
        throw CommanderError("\u2018" + displayText(Path(name)).toStdString() +
                             "\u2019 is not a name for a ZIP, tar.gz, tar.xz, tar.zst or 7z archive.");
    const FileDescriptor folder(::open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        throwPosixError(destination);
    const Path absolute = std::filesystem::absolute(destination).lexically_normal();
    const Path target = absolute / name;
    struct stat existing {};
    if (::fstatat(folder.get(), name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0)
        throw CommanderError("An item named \u2018" + displayText(Path(name)).toStdString() +
                             "\u2019 already exists.");
    const std::string staging = stagingName();
    const Path stagingPath = absolute / staging;
    StagingJournal::shared().add(stagingPath, target);
    bool made = false;
    try {
        const FileDescriptor output(::openat(folder.get(), staging.c_str(),
                                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!output)
            throwPosixError(target);
        made = true;
        {
            ArchiveWriter writer(output.get(), *format);
            Packer packer(writer, control);
            for (const Path &item : items) {
                control.check();
                control.detail(displayName(item).toStdString());
                const FileDescriptor parent(
                    ::open(item.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
                if (!parent)
                    throwPosixError(item);
                const std::string itemName = item.filename().string();
                packer.item(parent.get(), itemName, itemName, item);
            }
            writer.finish();
        }
        if (::fsync(output.get()) != 0)
            throwPosixError(target);
        renameWithoutReplacing(folder.get(), staging, folder.get(), name, target);
    } catch (const ArchiveError &error) {
        if (made)
            ::unlinkat(folder.get(), staging.c_str(), 0);
        StagingJournal::shared().remove(stagingPath);
        throw CommanderError("Cannot write \u2018" + displayText(Path(name)).toStdString() +
                             "\u2019: " + error.what() + ".");
    } catch (...) {
        if (made)
            ::unlinkat(folder.get(), staging.c_str(), 0);
        StagingJournal::shared().remove(stagingPath);
        throw;
    }
    StagingJournal::shared().remove(stagingPath);
    if (::fsync(folder.get()) != 0 && errno != EINVAL && errno != EBADF)
        throwPosixError(destination);
    return target;
}

} // namespace quillorn
