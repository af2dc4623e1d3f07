#include "services/directorytools.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "platform/posix/itemattributes.h"
#include "platform/posix/treewalk.h"
#include "services/detail/inventory.h"
#include "services/detail/pairdigest.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

namespace quillorn {

namespace {

// Case-insensitive containment as QString::contains does it, with a byte-wise
// shortcut where both the query and the name are ASCII: there case folding is
// plain ASCII lower-casing. A name with other bytes goes the Unicode way, so
// "K" still matches the Kelvin sign and invalid bytes match as U+FFFD.
class NameMatcher {
public:
    explicit NameMatcher(const QString &query) : m_query(query)
    {
        m_ascii = std::all_of(query.begin(), query.end(), [](QChar c) { return c.unicode() < 0x80; });
        if (m_ascii)
            for (QChar c : query)
                m_lower += lower(char(c.unicode()));
    }

    bool matches(std::string_view name) const
    {
        if (m_ascii && isAscii(name))
            return containsAscii(name);
        return QString::fromUtf8(name.data(), qsizetype(name.size())).contains(m_query, Qt::CaseInsensitive);
    }

private:
    static char lower(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }
    static bool isAscii(std::string_view text)
    {
        return std::all_of(text.begin(), text.end(),
                           [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    }
    bool containsAscii(std::string_view name) const
    {
        const std::size_t needle = m_lower.size();
        if (needle > name.size())
            return false;
        for (std::size_t start = 0; start + needle <= name.size(); ++start) {
            std::size_t index = 0;
            while (index < needle && lower(name[start + index]) == m_lower[index])
                ++index;
            if (index == needle)
                return true;
        }
        return false;
    }

    QString m_query;
    bool m_ascii = false;
    std::string m_lower;
};

class SearchWalk final : public TreeWalk::Visitor {
public:
    SearchWalk(const std::filesystem::path &root, const QString &query, OperationControl &control)
        : m_root(root), m_matcher(query), m_control(control)
    {
    }

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_control.check();
        if (!m_matcher.matches(entry.name))
            return TreeWalk::Next::proceed;
        const std::string relative(entry.relativePath);
        report.items.push_back({m_root / relative, relative});
        if (report.items.size() < SearchReport::limit)
            return TreeWalk::Next::proceed;
        report.truncated = true;
        return TreeWalk::Next::stop;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        report.warnings << displayText(std::string(entry.name)) + QStringLiteral(": ") +
                               QString::fromStdString(std::generic_category().message(error));
        return TreeWalk::Next::proceed;
    }

    SearchReport report;

private:
    const std::filesystem::path &m_root;
    NameMatcher m_matcher;
    OperationControl &m_control;
};

// Appends the row for a path present on both sides, if they differ.
void compareItem(const std::filesystem::path &left, const std::filesystem::path &right, std::string_view key,
                 std::optional<detail::PairDigest> &digests, OperationControl &control,
                 std::vector<std::string> &rows)
{
    const ItemAttributes leftAttributes = ItemAttributes::read(left);
    const ItemAttributes rightAttributes = ItemAttributes::read(right);
    if (leftAttributes.type != rightAttributes.type) {
        rows.push_back("TYPE DIFF   " + std::string(key));
        return;
    }
    if (leftAttributes.isRegular()) {
        // Sizes first: files of different sizes are never read.
        if (leftAttributes.size != rightAttributes.size) {
            rows.push_back("CONTENT DIFF " + std::string(key));
            return;
        }
        if (!digests)
            digests.emplace();
        const auto [leftDigest, rightDigest] = digests->digests(left, right, control);
        if (leftDigest != rightDigest)
            rows.push_back("CONTENT DIFF " + std::string(key));
    } else if (leftAttributes.isSymlink()) {
        const std::string leftTarget = symlinkTarget(left);
        if (leftTarget != symlinkTarget(right))
            rows.push_back("LINK DIFF   " + std::string(key));
    }
}

} // namespace

DirectoryTools::Path DirectoryTools::resolvedRoot(const Path &root)
{
    for (const Path &candidate : {root, root.lexically_normal()}) {
        const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(candidate.c_str(), nullptr),
                                                                   &std::free);
        if (resolved)
            return Path(resolved.get());
    }
    return root.lexically_normal();
}

SearchReport DirectoryTools::search(const Path &root, const QString &query, bool hidden,
                                    OperationControl &control)
{
    if (query.trimmed().isEmpty())
        return {};
    const Path start = resolvedRoot(root);
    SearchWalk walk(start, query, control);
    try {
        TreeWalk::walk(start, !hidden, walk);
    } catch (const std::system_error &) {
        throw CommanderError("Cannot search this folder.");
    }
    return std::move(walk.report);
}

std::vector<std::string> DirectoryTools::comparison(const Path &left, const Path &right,
                                                    OperationControl &control)
{
    // The two trees are listed at once; the left one's error is reported first,
    // as if they had been listed one after the other.
    detail::Inventory leftItems;
    std::exception_ptr leftError;
    std::thread leftWalk([&] {
        try {
            leftItems = detail::Inventory::of(resolvedRoot(left), control);
        } catch (...) {
            leftError = std::current_exception();
        }
    });
    detail::Inventory rightItems;
    std::exception_ptr rightError;
    try {
        rightItems = detail::Inventory::of(resolvedRoot(right), control);
    } catch (...) {
        rightError = std::current_exception();
    }
    leftWalk.join();
    if (leftError)
        std::rethrow_exception(leftError);
    if (rightError)
        std::rethrow_exception(rightError);

    std::vector<std::string> rows;
    std::optional<detail::PairDigest> digests;
    std::size_t l = 0;
    std::size_t r = 0;
    while (l < leftItems.size() || r < rightItems.size()) {
        control.check();
        if (r == rightItems.size() || (l < leftItems.size() && leftItems.key(l) < rightItems.key(r))) {
            rows.push_back("LEFT ONLY   " + std::string(leftItems.key(l++)));
        } else if (l == leftItems.size() || rightItems.key(r) < leftItems.key(l)) {
            rows.push_back("RIGHT ONLY  " + std::string(rightItems.key(r++)));
        } else {
            compareItem(leftItems.url(l), rightItems.url(r), leftItems.key(l), digests, control, rows);
            ++l;
            ++r;
        }
    }
    return rows;
}

DirectoryTools::Digest DirectoryTools::digest(const Path &file, OperationControl &control)
{
    std::vector<unsigned char> buffer(digestChunk);
    return detail::fileDigest(file, control, buffer);
}

} // namespace quillorn
