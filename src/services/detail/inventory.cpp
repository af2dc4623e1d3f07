#include "services/detail/inventory.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/canonicalname.h"
#include "platform/posix/treewalk.h"

#include <algorithm>
#include <system_error>

namespace quillorn::detail {

class Inventory::Builder final : public TreeWalk::Visitor {
public:
    Builder(Inventory &inventory, OperationControl &control) : m_inventory(inventory), m_control(control) {}

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_control.check();
        const auto depth = std::size_t(entry.depth);
        m_key.resize(depth > 1 ? m_lengths[depth - 1] : 0);
        if (depth > 1)
            m_key += '/';
        appendCanonicalName(m_key, entry.name);
        if (m_lengths.size() <= depth)
            m_lengths.resize(depth + 1);
        m_lengths[depth] = m_key.size();

        std::string &text = m_inventory.m_text;
        Item item{text.size(), std::uint32_t(m_key.size()), sameAsKey};
        text += m_key;
        if (m_key != entry.relativePath) {
            item.pathLength = std::uint32_t(entry.relativePath.size());
            text += entry.relativePath;
        }
        m_inventory.m_items.push_back(item);
        return TreeWalk::Next::proceed;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        return m_failure.record(m_inventory.m_root / std::string(entry.relativePath), error);
    }

    void throwIfFailed() const { m_failure.throwIfFailed(); }

private:
    Inventory &m_inventory;
    OperationControl &m_control;
    std::string m_key;
    std::vector<std::size_t> m_lengths;
    WalkFailure m_failure;
};

Inventory Inventory::of(const std::filesystem::path &resolvedRoot, OperationControl &control)
{
    Inventory inventory;
    inventory.m_root = resolvedRoot;
    Builder builder(inventory, control);
    try {
        TreeWalk::walk(resolvedRoot, false, builder);
    } catch (const std::system_error &) {
        throw CommanderError("Cannot enumerate " + resolvedRoot.string());
    }
    builder.throwIfFailed();
    inventory.sortAndKeepLast();
    return inventory;
}

void Inventory::sortAndKeepLast()
{
    const auto keyOf = [this](const Item &item) {
        return std::string_view(m_text).substr(item.offset, item.keyLength);
    };
    std::stable_sort(m_items.begin(), m_items.end(),
                     [&](const Item &a, const Item &b) { return keyOf(a) < keyOf(b); });
    // Of a run of equal keys the last one, in the order the walk met them, stays.
    std::size_t kept = 0;
    for (std::size_t index = 0; index < m_items.size(); ++index) {
        if (index + 1 < m_items.size() && keyOf(m_items[index]) == keyOf(m_items[index + 1]))
            continue;
        m_items[kept++] = m_items[index];
    }
    m_items.resize(kept);
    m_items.shrink_to_fit();
}

std::string_view Inventory::key(std::size_t index) const
{
    const Item &item = m_items[index];
    return std::string_view(m_text).substr(item.offset, item.keyLength);
}

std::filesystem::path Inventory::url(std::size_t index) const
{
    const Item &item = m_items[index];
    if (item.pathLength == sameAsKey)
        return m_root / std::string(key(index));
    return m_root / std::string(m_text, item.offset + item.keyLength, item.pathLength);
}

} // namespace quillorn::detail
