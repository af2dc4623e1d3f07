#include "services/directorytools.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/posix/itemattributes.h"
#include "services/detail/contentsearch.h"
#include "services/detail/inventory.h"
#include "services/detail/pairdigest.h"
#include "services/detail/searchwalk.h"
#include "services/detail/sizewalk.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

namespace quillorn {

namespace {

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
    return detail::SearchWalk::run(resolvedRoot(root), query, hidden, control);
}

SearchReport DirectoryTools::search(const Path &root, const QString &query, bool hidden,
                                    const ContentQuery &contents, OperationControl &control)
{
    if (contents.text.isEmpty())
        return search(root, query, hidden, control);
    return detail::ContentSearch::run(resolvedRoot(root), query, hidden, contents, control);
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

std::vector<FolderSize> DirectoryTools::folderSizes(const std::vector<Path> &folders,
                                                    OperationControl &control,
                                                    const FolderSizeProgress &progress,
                                                    std::chrono::milliseconds interval)
{
    return detail::SizeWalk::run(folders, control, progress, interval);
}

DirectoryTools::Digest DirectoryTools::digest(const Path &file, OperationControl &control)
{
    std::vector<unsigned char> buffer(digestChunk);
    return detail::fileDigest(file, control, buffer);
}

} // namespace quillorn
