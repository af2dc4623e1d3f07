#include "services/archivecatalog.h"

#include "operations/commandererror.h"
#include "platform/core/displaytext.h"
#include "platform/posix/archivelibrary.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "services/archivetools.h"

#include <QSet>
#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace quillorn {

const std::string ArchiveCatalog::unreadable =
    "Cannot read this archive. It may be damaged or of an unsupported format.";

namespace {

using Path = std::filesystem::path;

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : char(c); });
    return text;
}

// Longest first: ".tar.gz" is taken before ".gz".
constexpr std::array<std::string_view, 22> archiveSuffixes{
    ".tar.gz", ".tar.bz2", ".tar.xz", ".tar.zst", ".tar.lz4", ".tar.lzma", ".tar.z", ".cpio.gz",
    ".tgz",    ".tbz2",    ".tbz",    ".txz",     ".tzst",    ".tar",      ".cpio",  ".7z",
    ".iso",    ".rar",     ".zip",    ".jar",     ".xpi",     ".apk"};

std::size_t suffixLength(const std::string &name)
{
    const std::string folded = lower(name);
    for (const std::string_view suffix : archiveSuffixes)
        if (folded.size() > suffix.size() && folded.ends_with(suffix))
            return suffix.size();
    return 0;
}

bool startsWith(std::string_view bytes, std::string_view magic)
{
    return bytes.substr(0, magic.size()) == magic;
}

// What the first bytes say: zip, an archive of another format, a compressed
// stream that may hold one, or nothing known.
enum class Magic { none, zip, archive, compressed };

Magic magicOf(const Path &file)
{
    const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info {};
    if (!descriptor || ::fstat(descriptor.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return Magic::none;
    std::array<char, 512> head{};
    const ssize_t count = ::pread(descriptor.get(), head.data(), head.size(), 0);
    if (count <= 0)
        return Magic::none;
    const std::string_view bytes(head.data(), std::size_t(count));
    using namespace std::string_view_literals;
    if (startsWith(bytes, "PK\x03\x04"sv) || startsWith(bytes, "PK\x05\x06"sv))
        return Magic::zip;
    if (startsWith(bytes, "7z\xBC\xAF\x27\x1C"sv) || startsWith(bytes, "Rar!\x1A\x07"sv) ||
        startsWith(bytes, "070701"sv) || startsWith(bytes, "070707"sv) || startsWith(bytes, "070702"sv) ||
        startsWith(bytes, "\xC7\x71"sv) || (bytes.size() >= 262 && bytes.substr(257, 5) == "ustar"))
        return Magic::archive;
    std::array<char, 5> volume{};
    if (::pread(descriptor.get(), volume.data(), volume.size(), 0x8001) == 5 &&
        std::string_view(volume.data(), 5) == "CD001")
        return Magic::archive;
    if (startsWith(bytes, "\x1F\x8B"sv) || startsWith(bytes, "BZh"sv) ||
        startsWith(bytes, "\xFD"
                          "7zXZ"sv) ||
        startsWith(bytes, "\x28\xB5\x2F\xFD"sv) || startsWith(bytes, "\x04\x22\x4D\x18"sv))
        return Magic::compressed;
    return Magic::none;
}

CommanderError unreadableError()
{
    return CommanderError(ArchiveCatalog::unreadable);
}

} // namespace

ArchiveCatalog::Kind ArchiveCatalog::kind(const Path &file)
{
    const std::string name = file.filename().string();
    const bool named = suffixLength(name) > 0;
    const bool zipNamed = lower(name).ends_with(".zip");
    switch (magicOf(file)) {
    case Magic::zip:
        return Kind::zip;
    case Magic::archive:
        return Kind::other;
    case Magic::compressed:
        // A compressed text is no archive: only one that holds a tar or cpio is.
        if (named || readableArchive(file))
            return Kind::other;
        return Kind::none;
    case Magic::none:
        break;
    }
    if (zipNamed)
        return Kind::zip;
    return named ? Kind::other : Kind::none;
}

std::vector<ZipEntry> ArchiveCatalog::list(const Path &archive)
{
    std::vector<ZipEntry> entries;
    try {
        ArchiveReader reader(archive);
        ArchiveMember member;
        std::int64_t names = 0;
        QSet<QString> seen;
        std::vector<std::pair<std::string, std::string>> links; // hard links: name, the member named
        while (reader.next(member)) {
            names += std::int64_t(member.path.size()) + 1;
            if (names > ArchiveTools::listingLimit)
                throw CommanderError("Archive output exceeds the supported size limit.");
            std::string path = member.path;
            if (member.type == ArchiveMember::Type::folder && !path.ends_with('/'))
                path += '/';
            QString shown = displayText(Path(path));
            // An archive may hold one name twice (a tar appended to); the list shows it once, the last.
            if (seen.contains(shown))
                std::erase_if(entries, [&](const ZipEntry &entry) { return entry.name == shown; });
            seen.insert(shown);
            if (member.type == ArchiveMember::Type::hardlink)
                links.emplace_back(member.path, member.linkTarget);
            entries.push_back({std::move(shown), member.path,
                               member.type == ArchiveMember::Type::file ? member.size : std::int64_t(-1),
                               member.hasModified ? member.modified : std::int64_t(-1), member.encrypted});
        }
        // Rare, so looked up only when there are any: a hard link shows the size of the data it names.
        if (!links.empty()) {
            std::unordered_map<std::string_view, ZipEntry *> named;
            for (ZipEntry &entry : entries)
                named[entry.bytes] = &entry;
            for (const auto &[name, target] : links) {
                const auto link = named.find(name), data = named.find(target);
                if (link != named.end() && data != named.end())
                    link->second->size = data->second->size;
            }
        }
    } catch (const ArchiveError &) {
        throw unreadableError();
    } catch (const PosixError &) {
        throw unreadableError();
    }
    return entries;
}

QByteArray ArchiveCatalog::member(const std::string &bytes, const Path &archive)
{
    try {
        std::string wanted = bytes;
        // A hard link holds no data of its own: it is that of the member it names,
        // stored before it (which may be a link too, though never in a cycle).
        for (int hops = 0; hops < 16; ++hops) {
            ArchiveReader reader(archive);
            ArchiveMember member;
            bool found = false;
            std::string linkedTo;
            QByteArray data;
            // The last member of that name is the one that counts, as when unpacking.
            while (reader.next(member)) {
                if (member.path != wanted)
                    continue;
                if (member.type == ArchiveMember::Type::folder)
                    throw CommanderError("This member name cannot be streamed safely.");
                if (member.encrypted)
                    throw CommanderError("\u2018" + bytes + "\u2019 is encrypted and cannot be read.");
                found = true;
                data.clear();
                linkedTo.clear();
                if (member.type == ArchiveMember::Type::hardlink) {
                    linkedTo = member.linkTarget;
                    continue;
                }
                // A symbolic link gives its text, never what it points to, as unzip gives a ZIP's.
                if (member.type == ArchiveMember::Type::symlink) {
                    data = QByteArray::fromStdString(member.linkTarget);
                    continue;
                }
                const char *block = nullptr;
                std::size_t size = 0;
                std::int64_t offset = 0;
                while (reader.readBlock(block, size, offset)) {
                    if (offset + std::int64_t(size) > ArchiveTools::memberLimit)
                        throw CommanderError("Archive output exceeds the supported size limit.");
                    if (data.size() < offset)
                        data.append(qsizetype(offset - data.size()), '\0'); // a hole of a sparse file
                    data.append(block, qsizetype(size));
                }
            }
            if (!found)
                throw unreadableError();
            if (linkedTo.empty())
                return data;
            wanted = linkedTo;
        }
        throw unreadableError();
    } catch (const ArchiveError &error) {
        const std::string text = error.what();
        if (text.find("ncrypt") != std::string::npos || text.find("assphrase") != std::string::npos)
            throw CommanderError("\u2018" + bytes + "\u2019 is encrypted and cannot be read.");
        throw unreadableError();
    } catch (const PosixError &) {
        throw unreadableError();
    }
}

std::string ArchiveCatalog::folderName(const std::string &archiveName)
{
    std::size_t cut = suffixLength(archiveName);
    if (cut == 0) {
        const std::size_t dot = archiveName.rfind('.');
        cut = dot != std::string::npos && dot > 0 ? archiveName.size() - dot : 0;
    }
    std::string name = archiveName.substr(0, archiveName.size() - cut);
    return name.empty() || name == "." || name == ".." ? std::string("archive") : name;
}

} // namespace quillorn
