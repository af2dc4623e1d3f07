#include "services/synctree.h"

#include "operations/commandererror.h"
#include "operations/detail/journalfile.h"
#include "operations/detail/sha256.h"
#include "operations/operationcontrol.h"
#include "platform/core/canonicalname.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/percentencoding.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/treewalk.h"
#include "platform/posix/userfolders.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <iterator>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <system_error>

namespace quillorn {

namespace {

constexpr std::string_view header = "quillorn-sync 1";
constexpr std::string_view stagingPrefix = ".quillorn-";
constexpr std::size_t stagingNameLength = 10 + 36; // prefix and an upper-case UUID

SyncItem::Kind kindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return SyncItem::Kind::file;
    if (S_ISDIR(mode))
        return SyncItem::Kind::folder;
    if (S_ISLNK(mode))
        return SyncItem::Kind::link;
    return SyncItem::Kind::other;
}

class Collector final : public TreeWalk::Visitor {
public:
    Collector(SyncTree &tree, const std::filesystem::path &root, OperationControl &control)
        : m_tree(tree), m_root(root), m_control(control)
    {
    }

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_control.check();
        if (entry.name.size() == stagingNameLength && entry.name.starts_with(stagingPrefix))
            return TreeWalk::Next::prune;
        const auto depth = std::size_t(entry.depth);
        m_key.resize(depth > 1 ? m_lengths[depth - 1] : 0);
        if (depth > 1)
            m_key += '/';
        appendCanonicalName(m_key, entry.name);
        if (m_lengths.size() <= depth)
            m_lengths.resize(depth + 1);
        m_lengths[depth] = m_key.size();

        struct stat info {};
        const std::string name(entry.name);
        if (::fstatat(entry.parentFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
            failed(entry, errno);
            return TreeWalk::Next::stop;
        }
        m_tree.items.push_back({m_key, std::string(entry.relativePath), kindOf(info.st_mode),
                                std::int64_t(info.st_size),
                                std::int64_t(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec,
                                std::uint64_t(info.st_ino)});
        return TreeWalk::Next::proceed;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        return m_failure.record(m_root / std::string(entry.relativePath), error);
    }

    void throwIfFailed() const { m_failure.throwIfFailed(); }

private:
    SyncTree &m_tree;
    const std::filesystem::path &m_root;
    OperationControl &m_control;
    std::string m_key;
    std::vector<std::size_t> m_lengths;
    WalkFailure m_failure;
};

void sortAndKeepLast(std::vector<SyncItem> &items)
{
    std::stable_sort(items.begin(), items.end(),
                     [](const SyncItem &a, const SyncItem &b) { return SyncTree::before(a.key, b.key); });
    // Two names with one canonical form: the one the walk met last stays.
    std::size_t kept = 0;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index + 1 < items.size() && items[index].key == items[index + 1].key)
            continue;
        if (kept != index)
            items[kept] = std::move(items[index]);
        ++kept;
    }
    items.resize(kept);
}

std::string pairName(const std::filesystem::path &left, const std::filesystem::path &right)
{
    detail::Sha256 digest;
    digest.add(left.lexically_normal().native());
    digest.add(std::string_view("\0", 1));
    digest.add(right.lexically_normal().native());
    return digest.hex() + ".sync";
}

template <class Number> bool parseNumber(const std::string &text, Number &value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

std::optional<SyncMemory> parse(const std::string &text)
{
    std::istringstream lines(text);
    std::string line;
    if (!std::getline(lines, line) || line != header)
        return std::nullopt;
    SyncMemory memory;
    while (std::getline(lines, line)) {
        if (line == "end") {
            sortAndKeepLast(memory.left.items);
            sortAndKeepLast(memory.right.items);
            return memory;
        }
        std::istringstream fields(line);
        std::string side, kind, size, modified, inode, key;
        if (!(fields >> side >> kind >> size >> modified >> inode >> key) || (side != "L" && side != "R"))
            return std::nullopt;
        SyncItem item;
        int kindNumber = 0;
        const std::optional<std::string> decoded = percentDecoded(key);
        if (!decoded || !parseNumber(kind, kindNumber) || kindNumber < 0 || kindNumber > 3 ||
            !parseNumber(size, item.size) || !parseNumber(modified, item.modifiedNs) ||
            !parseNumber(inode, item.inode))
            return std::nullopt;
        item.kind = SyncItem::Kind(kindNumber);
        item.key = item.path = *decoded;
        (side == "L" ? memory.left : memory.right).items.push_back(std::move(item));
    }
    return std::nullopt; // cut off before its end
}

std::optional<std::string> readFile(const std::filesystem::path &file)
{
    FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!descriptor)
        return std::nullopt;
    return detail::readAll(descriptor.get());
}

} // namespace

bool SyncItem::sameAs(const SyncItem &remembered) const
{
    if (kind != remembered.kind)
        return false;
    return kind == Kind::folder ||
           (size == remembered.size && modifiedNs == remembered.modifiedNs && inode == remembered.inode);
}

SyncTree SyncTree::of(const std::filesystem::path &root, OperationControl &control)
{
    SyncTree tree;
    Collector collector(tree, root, control);
    try {
        TreeWalk::walk(root, false, collector);
    } catch (const std::system_error &) {
        throw CommanderError("Cannot enumerate " + root.string());
    }
    collector.throwIfFailed();
    sortAndKeepLast(tree.items);
    return tree;
}

bool SyncTree::before(std::string_view a, std::string_view b)
{
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t index = 0; index < common; ++index) {
        if (a[index] == b[index])
            continue;
        if (a[index] == '/')
            return true;
        if (b[index] == '/')
            return false;
        return static_cast<unsigned char>(a[index]) < static_cast<unsigned char>(b[index]);
    }
    return a.size() < b.size();
}

std::optional<std::size_t> SyncTree::find(std::string_view key) const
{
    const auto found =
        std::lower_bound(items.begin(), items.end(), key, [](const SyncItem &item, std::string_view wanted) {
            return before(item.key, wanted);
        });
    if (found == items.end() || found->key != key)
        return std::nullopt;
    return std::size_t(found - items.begin());
}

std::size_t SyncTree::subtreeEnd(std::size_t index) const
{
    const std::string &key = items[index].key;
    std::size_t end = index + 1;
    while (end < items.size() && items[end].key.size() > key.size() && items[end].key.starts_with(key) &&
           items[end].key[key.size()] == '/')
        ++end;
    return end;
}

std::int64_t SyncTree::bytes(std::size_t index) const
{
    std::int64_t total = 0;
    for (std::size_t item = index; item < subtreeEnd(index); ++item)
        if (items[item].kind == SyncItem::Kind::file || items[item].kind == SyncItem::Kind::link)
            total += items[item].size;
    return total;
}

void SyncMemory::keepEarlier(const SyncMemory *earlier, const std::vector<std::string> &keys)
{
    if (keys.empty())
        return;
    const std::set<std::string_view> kept(keys.begin(), keys.end());
    const auto underKept = [&](const SyncItem &item) {
        for (std::size_t end = item.key.size(); end != std::string::npos && end > 0;
             end = item.key.rfind('/', end - 1))
            if (kept.contains(std::string_view(item.key).substr(0, end)))
                return true;
        return false;
    };
    for (const auto &[now, then] : {std::pair{&left, earlier ? &earlier->left : nullptr},
                                    std::pair{&right, earlier ? &earlier->right : nullptr}}) {
        std::erase_if(now->items, underKept);
        if (then)
            std::copy_if(then->items.begin(), then->items.end(), std::back_inserter(now->items), underKept);
        sortAndKeepLast(now->items);
    }
}

std::filesystem::path SyncMemory::defaultFolder()
{
    return stateHome() / "Quillorn" / "sync";
}

std::optional<SyncMemory> SyncMemory::load(const std::filesystem::path &folder,
                                           const std::filesystem::path &left,
                                           const std::filesystem::path &right)
{
    if (const auto text = readFile(folder / pairName(left, right)))
        return parse(*text);
    if (const auto text = readFile(folder / pairName(right, left))) {
        std::optional<SyncMemory> memory = parse(*text);
        if (memory)
            std::swap(memory->left, memory->right);
        return memory;
    }
    return std::nullopt;
}

void SyncMemory::save(const std::filesystem::path &folder, const std::filesystem::path &left,
                      const std::filesystem::path &right) const
{
    std::string text = std::string(header) + '\n';
    for (const auto &[side, tree] : {std::pair{'L', &this->left}, std::pair{'R', &this->right}})
        for (const SyncItem &item : tree->items)
            text += std::string(1, side) + ' ' + std::to_string(int(item.kind)) + ' ' +
                    std::to_string(item.size) + ' ' + std::to_string(item.modifiedNs) + ' ' +
                    std::to_string(item.inode) + ' ' + percentEncoded(item.key) + '\n';
    text += "end\n";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor)
        throwPosixError(folder);
    detail::replaceAtomically(descriptor.get(), pairName(left, right), text, folder);
    // The pair remembered the other way round is now out of date.
    ::unlinkat(descriptor.get(), pairName(right, left).c_str(), 0);
}

} // namespace quillorn
