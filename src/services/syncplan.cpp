#include "services/syncplan.h"

#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "services/detail/pairdigest.h"

#include "platform/posix/posixerror.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <unistd.h>

namespace quillorn {

namespace {

using Kind = SyncAction::Kind;

std::string linkTarget(const std::filesystem::path &link)
{
    std::string target(4096, '\0');
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    if (length < 0)
        throwPosixError(link);
    target.resize(std::size_t(length));
    return target;
}

// The two walks and the remembered state, merged in tree order into actions.
class Differ {
public:
    Differ(const std::filesystem::path &left, const std::filesystem::path &right, const SyncOptions &options,
           const SyncMemory *memory, OperationControl &control, std::vector<SyncAction> &actions)
        : m_roots{left, right}, m_trees{SyncTree::of(left, control), SyncTree::of(right, control)},
          m_options(options), m_memory(memory), m_control(control), m_actions(actions)
    {
        // A side found empty where the last run left items is more likely an
        // unmounted volume than a deletion of everything: nothing is deleted
        // from the other side for it; its items are copied back instead.
        if (m_memory && (m_trees[0].items.empty() || m_trees[1].items.empty()))
            m_memory = nullptr;
        if (options.comparison == SyncOptions::Comparison::content)
            m_digests = std::make_unique<detail::PairDigest>();
    }

    void run()
    {
        const auto &left = m_trees[0].items, &right = m_trees[1].items;
        std::size_t i = 0, j = 0;
        while (i < left.size() || j < right.size()) {
            m_control.check();
            if (j == right.size() || (i < left.size() && SyncTree::before(left[i].key, right[j].key))) {
                oneSide(SyncSide::left, i);
                i = m_trees[0].subtreeEnd(i);
            } else if (i == left.size() || SyncTree::before(right[j].key, left[i].key)) {
                oneSide(SyncSide::right, j);
                j = m_trees[1].subtreeEnd(j);
            } else if (left[i].kind == SyncItem::Kind::folder && right[j].kind == SyncItem::Kind::folder) {
                ++i, ++j; // what they hold is compared item by item
            } else {
                both(i, j);
                i = m_trees[0].subtreeEnd(i);
                j = m_trees[1].subtreeEnd(j);
            }
        }
    }

private:
    static int index(SyncSide side) { return side == SyncSide::left ? 0 : 1; }
    static SyncSide other(SyncSide side) { return side == SyncSide::left ? SyncSide::right : SyncSide::left; }

    std::optional<SyncSide> source() const
    {
        switch (m_options.direction) {
        case SyncOptions::Direction::leftToRight:
            return SyncSide::left;
        case SyncOptions::Direction::rightToLeft:
            return SyncSide::right;
        case SyncOptions::Direction::bothWays:
            break;
        }
        return std::nullopt;
    }

    std::filesystem::path pathOf(SyncSide side, std::size_t at) const
    {
        return m_roots[index(side)] / m_trees[index(side)].items[at].path;
    }

    // Where an item of one side goes on the other: in the folder that has its
    // parent's key there, under the item's own name.
    std::filesystem::path counterpart(SyncSide side, std::size_t at) const
    {
        const SyncItem &item = m_trees[index(side)].items[at];
        const std::filesystem::path name = std::filesystem::path(item.path).filename();
        const SyncTree &there = m_trees[index(other(side))];
        const std::filesystem::path &root = m_roots[index(other(side))];
        const std::size_t slash = item.key.rfind('/');
        if (slash == std::string::npos)
            return root / name;
        if (const auto parent = there.find(std::string_view(item.key).substr(0, slash)))
            return root / there.items[*parent].path / name;
        return root / item.path;
    }

    bool equal(std::size_t i, std::size_t j)
    {
        const SyncItem &left = m_trees[0].items[i], &right = m_trees[1].items[j];
        if (left.kind != right.kind)
            return false;
        if (left.kind == SyncItem::Kind::link)
            return linkTarget(pathOf(SyncSide::left, i)) == linkTarget(pathOf(SyncSide::right, j));
        if (left.kind != SyncItem::Kind::file)
            return true;
        if (left.size != right.size)
            return false;
        if (m_digests) {
            const auto [a, b] =
                m_digests->digests(pathOf(SyncSide::left, i), pathOf(SyncSide::right, j), m_control);
            return a == b;
        }
        // Whole seconds, as rsync compares: not every volume keeps more.
        return left.modifiedNs / 1'000'000'000 == right.modifiedNs / 1'000'000'000;
    }

    // Whether the item, and all it holds, is as the last run left it.
    bool unchanged(SyncSide side, std::size_t at) const
    {
        if (!m_memory)
            return false;
        const SyncTree &tree = m_trees[index(side)];
        const SyncTree &remembered = side == SyncSide::left ? m_memory->left : m_memory->right;
        const auto was = remembered.find(tree.items[at].key);
        if (!was)
            return false;
        const std::size_t end = tree.subtreeEnd(at), wasEnd = remembered.subtreeEnd(*was);
        if (end - at != wasEnd - *was)
            return false;
        for (std::size_t offset = 0; at + offset < end; ++offset) {
            const SyncItem &now = tree.items[at + offset], &then = remembered.items[*was + offset];
            if (now.key != then.key || !now.sameAs(then))
                return false;
        }
        return true;
    }

    bool remembered(SyncSide side, std::string_view key) const
    {
        return m_memory && (side == SyncSide::left ? m_memory->left : m_memory->right).find(key).has_value();
    }

    // An action on a key present on one side or both (absent: npos).
    void add(Kind kind, SyncSide side, std::size_t i, std::size_t j, std::string why = {})
    {
        SyncAction action;
        action.kind = kind;
        action.side = side;
        action.why = std::move(why);
        action.onLeft = i != std::string::npos;
        action.onRight = j != std::string::npos;
        const SyncItem &shown = action.onLeft ? m_trees[0].items[i] : m_trees[1].items[j];
        action.key = shown.key;
        action.path = shown.path;
        action.left = action.onLeft ? pathOf(SyncSide::left, i) : counterpart(SyncSide::right, j);
        action.right = action.onRight ? pathOf(SyncSide::right, j) : counterpart(SyncSide::left, i);
        if (action.onLeft) {
            action.leftFolder = m_trees[0].items[i].kind == SyncItem::Kind::folder;
            action.leftBytes = m_trees[0].bytes(i);
        }
        if (action.onRight) {
            action.rightFolder = m_trees[1].items[j].kind == SyncItem::Kind::folder;
            action.rightBytes = m_trees[1].bytes(j);
        }
        action.checked = kind != Kind::conflict;
        m_actions.push_back(std::move(action));
    }

    void copy(SyncSide from, std::size_t at)
    {
        const bool folder = m_trees[index(from)].items[at].kind == SyncItem::Kind::folder;
        const Kind kind = folder ? Kind::createFolder : Kind::copyNew;
        if (from == SyncSide::left)
            add(kind, from, at, std::string::npos);
        else
            add(kind, from, std::string::npos, at);
    }

    void oneSide(SyncSide side, std::size_t at)
    {
        const auto from = source();
        const std::string &key = m_trees[index(side)].items[at].key;
        const std::size_t i = side == SyncSide::left ? at : std::string::npos;
        const std::size_t j = side == SyncSide::right ? at : std::string::npos;
        if (from) {
            if (*from == side)
                copy(side, at);
            else if (m_options.oneSideOnly == SyncOptions::OneSideOnly::trash)
                add(Kind::trashExtra, side, i, j);
            return;
        }
        if (!remembered(other(side), key))
            return copy(side, at); // new here, or never synchronised
        if (unchanged(side, at))
            add(Kind::trashExtra, side, i, j, "deleted on the other side since the last run");
        else
            add(Kind::conflict, side, i, j,
                "deleted on one side and changed on the other since the last run");
    }

    void both(std::size_t i, std::size_t j)
    {
        if (equal(i, j))
            return;
        const SyncItem &left = m_trees[0].items[i], &right = m_trees[1].items[j];
        const bool sameKind = left.kind == right.kind;
        if (const auto from = source()) {
            const SyncItem &source = *from == SyncSide::left ? left : right;
            const SyncItem &target = *from == SyncSide::left ? right : left;
            if (!sameKind)
                add(Kind::conflict, *from, i, j, "different kinds of item");
            else if (target.modifiedNs > source.modifiedNs)
                add(Kind::conflict, *from, i, j, "newer on the target side");
            else
                add(Kind::replaceOlder, *from, i, j);
            return;
        }
        if (m_memory) {
            const bool leftChanged = !unchanged(SyncSide::left, i),
                       rightChanged = !unchanged(SyncSide::right, j);
            if (leftChanged != rightChanged)
                add(Kind::replaceOlder, leftChanged ? SyncSide::left : SyncSide::right, i, j);
            else
                add(Kind::conflict, SyncSide::left, i, j, "changed on both sides since the last run");
            return;
        }
        if (!sameKind)
            add(Kind::conflict, SyncSide::left, i, j, "different kinds of item");
        else if (left.modifiedNs != right.modifiedNs)
            add(Kind::replaceOlder, left.modifiedNs > right.modifiedNs ? SyncSide::left : SyncSide::right, i,
                j);
        else
            add(Kind::conflict, SyncSide::left, i, j, "different contents with the same modification time");
    }

    std::filesystem::path m_roots[2];
    SyncTree m_trees[2];
    const SyncOptions &m_options;
    const SyncMemory *m_memory;
    OperationControl &m_control;
    std::vector<SyncAction> &m_actions;
    std::unique_ptr<detail::PairDigest> m_digests;
};

// The seal a step checks again; "-" when the item cannot be sealed now, which
// no item matches later.
std::string sealOf(const std::filesystem::path &item, bool wholeTree, OperationControl &control)
{
    try {
        return FileOperations::seal(item, control, true,
                                    wholeTree ? FileOperations::SealScope::tree
                                              : FileOperations::SealScope::itemOnly);
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        return "-";
    }
}

void seal(SyncAction &action, OperationControl &control)
{
    // A folder that is only copied from is not sealed: what it holds may grow
    // until it is copied, and copying that loses nothing.
    const auto sealed = [&](bool present, bool folder, SyncSide side) {
        if (!present)
            return std::string();
        const bool copiedFrom =
            action.kind != Kind::conflict && action.kind != Kind::trashExtra && action.side == side;
        if (folder && copiedFrom)
            return std::string();
        return sealOf(side == SyncSide::left ? action.left : action.right, folder, control);
    };
    action.leftSeal = sealed(action.onLeft, action.leftFolder, SyncSide::left);
    action.rightSeal = sealed(action.onRight, action.rightFolder, SyncSide::right);
}

} // namespace

std::int64_t SyncAction::bytes() const
{
    if (kind == Kind::conflict || kind == Kind::trashExtra)
        return 0;
    return side == SyncSide::left ? leftBytes : rightBytes;
}

SyncPlan SyncPlan::make(const Path &left, const Path &right, const SyncOptions &options,
                        const SyncMemory *memory, OperationControl &control)
{
    SyncPlan plan;
    plan.m_left = left;
    plan.m_right = right;
    plan.m_options = options;
    Differ(left, right, options, options.direction == SyncOptions::Direction::bothWays ? memory : nullptr,
           control, plan.m_actions)
        .run();
    for (SyncAction &action : plan.m_actions)
        seal(action, control);
    return plan;
}

void SyncPlan::setChecked(std::size_t index, bool checked)
{
    SyncAction &action = m_actions.at(index);
    action.checked = checked && (action.kind != Kind::conflict);
}

void SyncPlan::resolve(std::size_t index, SyncSide winner)
{
    SyncAction &action = m_actions.at(index);
    const bool has = winner == SyncSide::left ? action.onLeft : action.onRight;
    const bool otherHas = winner == SyncSide::left ? action.onRight : action.onLeft;
    const bool folder = winner == SyncSide::left ? action.leftFolder : action.rightFolder;
    if (has && otherHas) {
        action.kind = Kind::replaceOlder;
        action.side = winner;
    } else if (has) {
        action.kind = folder ? Kind::createFolder : Kind::copyNew;
        action.side = winner;
    } else {
        action.kind = Kind::trashExtra;
        action.side = winner == SyncSide::left ? SyncSide::right : SyncSide::left;
    }
    action.resolved = true;
    action.checked = true;
}

std::int64_t SyncPlan::bytesToTransfer() const
{
    std::int64_t total = 0;
    for (const SyncAction &action : m_actions)
        if (action.checked)
            total += action.bytes();
    return total;
}

std::size_t SyncPlan::checkedCount() const
{
    return std::size_t(std::count_if(m_actions.begin(), m_actions.end(),
                                     [](const SyncAction &action) { return action.checked; }));
}

SyncJob SyncPlan::job() const
{
    SyncJob job{m_left, m_right, m_options.direction == SyncOptions::Direction::bothWays, {}, {}};
    for (const SyncAction &action : m_actions) {
        if (!action.checked || action.kind == Kind::conflict) {
            job.pending.push_back(action.key);
            continue;
        }
        const bool fromLeft = action.side == SyncSide::left;
        const Path &from = fromLeft ? action.left : action.right;
        const Path &to = fromLeft ? action.right : action.left;
        const std::string &fromSeal = fromLeft ? action.leftSeal : action.rightSeal;
        const std::string &toSeal = fromLeft ? action.rightSeal : action.leftSeal;
        switch (action.kind) {
        case Kind::copyNew:
        case Kind::createFolder:
            job.steps.push_back({SyncStep::Kind::copy, from, to, fromSeal, {}, action.bytes(), action.key});
            break;
        case Kind::replaceOlder:
            job.steps.push_back(
                {SyncStep::Kind::replace, from, to, fromSeal, toSeal, action.bytes(), action.key});
            break;
        case Kind::trashExtra:
            job.steps.push_back({SyncStep::Kind::trash, {}, from, {}, fromSeal, 0, action.key});
            break;
        case Kind::conflict:
            break;
        }
    }
    return job;
}

} // namespace quillorn
