#include "model/panemodel.h"

#include "model/detail/visiblelist.h"
#include "platform/core/displaytext.h"
#include "platform/core/filesystempool.h"
#include "platform/core/preferences.h"
#include "platform/core/receiverguard.h"
#include "platform/posix/volume.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>

namespace quillorn {

namespace fs = std::filesystem;

namespace {

// Dot components removed, links left alone; no trailing separator except for "/".
fs::path standardized(const fs::path &url, const fs::path &base)
{
    fs::path normal = (url.is_absolute() ? url : base / url).lexically_normal();
    std::string text = normal.native();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return fs::path(std::move(text));
}

// The item of `folder` that leads down to `descendant`, when `folder` is one
// of its ancestors.
std::optional<fs::path> childOnTheWay(const fs::path &folder, const fs::path &descendant)
{
    auto inside = descendant.begin();
    for (auto part = folder.begin(); part != folder.end(); ++part, ++inside) {
        if (part->empty() && std::next(part) == folder.end())
            break; // the root's trailing separator
        if (inside == descendant.end() || *inside != *part)
            return std::nullopt;
    }
    if (inside == descendant.end())
        return std::nullopt;
    return folder / *inside;
}

template <typename T> bool assign(T &field, T value)
{
    if (field == value)
        return false;
    field = std::move(value);
    return true;
}

// Freeing 100,000 entries takes longer than a frame: let a pool thread do it.
void releaseElsewhere(std::vector<FileEntry> &&entries)
{
    if (entries.empty())
        return;
    auto doomed = std::make_shared<std::vector<FileEntry>>(std::move(entries));
    fileSystemPool().start([doomed]() mutable { doomed.reset(); });
}

void releaseElsewhere(std::shared_ptr<const std::vector<FileEntry>> entries)
{
    // When a worker still holds the list, the worker frees it.
    if (entries && entries.use_count() == 1 && !entries->empty())
        fileSystemPool().start([entries]() mutable { entries.reset(); });
}

// A stored path made a folder: a relative one is taken from the working
// folder, and dot components and trailing separators go, so that a stored
// "/data/" and "/data" name the same folder.
fs::path storedFolder(const fs::path &stored)
{
    std::error_code error;
    fs::path base = fs::current_path(error);
    if (error)
        base = "/";
    return standardized(stored, base);
}

std::vector<fs::path> storedFolders(const std::vector<fs::path> &stored)
{
    std::vector<fs::path> folders;
    folders.reserve(stored.size());
    for (const fs::path &path : stored)
        folders.push_back(storedFolder(path));
    return folders;
}

} // namespace

PaneModel::PaneModel(fs::path start, QString persistenceKey, PaneModelOptions options, QObject *parent)
    : QObject(parent), m_preferences(options.preferences ? *options.preferences : Preferences::standard()),
      m_applicationIsActive(std::move(options.applicationIsActive)), m_directory(std::move(start)),
      m_entries(std::make_shared<const std::vector<FileEntry>>()),
      m_entryIndex(std::make_shared<const detail::UrlIndex>()), m_persistenceKey(std::move(persistenceKey)),
      m_guard(ReceiverGuard::create(this)), m_folderSizes(std::move(options.folderSizeCount))
{
    connect(&m_watcher, &DirectoryWatcher::pollingChanged, this, &PaneModel::notWatchedChanged);
    restore(m_directory);
    m_restoring = false;
    watchDirectory();
    refresh();

    m_metadataTimer.setInterval(options.metadataIntervalMs);
    connect(&m_metadataTimer, &QTimer::timeout, this, &PaneModel::metadataTick);
    m_metadataTimer.start();
}

PaneModel::~PaneModel()
{
    m_guard->release();
    if (m_workerCancelled)
        m_workerCancelled->store(true);
}

void PaneModel::restore(const fs::path &start)
{
    m_tabs = storedFolders(m_preferences.pathList(key(".tabs")));
    if (m_tabs.empty())
        m_tabs = {start};

    // Compared as folders, not as the stored texts.
    const auto lastDirectory = m_preferences.path(key(".lastDirectory"));
    const auto remembered =
        lastDirectory ? std::find(m_tabs.begin(), m_tabs.end(), storedFolder(*lastDirectory)) : m_tabs.end();
    if (remembered != m_tabs.end())
        m_tabIndex = static_cast<int>(remembered - m_tabs.begin());
    else
        m_tabIndex = std::min(std::max(m_preferences.integer(key(".tabIndex"), 0), 0),
                              static_cast<int>(m_tabs.size()) - 1);
    m_directory = m_tabs[static_cast<std::size_t>(m_tabIndex)];

    m_showHidden = m_preferences.boolean(key(".hidden"), false);
    m_sort = fileSortFromRawValue(m_preferences.text(key(".sort")).toStdString()).value_or(FileSort::name);
    m_ascending =
        m_preferences.isBoolean(key(".ascending")) ? m_preferences.boolean(key(".ascending")) : true;
    m_favourites = storedFolders(m_preferences.pathList(key(".favourites")));
    sortFavourites();
    m_path = displayText(m_directory);
}

QString PaneModel::key(const char *suffix) const
{
    return m_persistenceKey + QLatin1String(suffix);
}

void PaneModel::persist()
{
    if (m_restoring || m_persistenceKey.isEmpty())
        return;
    m_preferences.setPathList(key(".tabs"), m_tabs);
    m_preferences.setInteger(key(".tabIndex"), m_tabIndex);
    m_preferences.setPath(key(".lastDirectory"), m_directory);
    m_preferences.setBoolean(key(".hidden"), m_showHidden);
    m_preferences.setText(key(".sort"), QString::fromUtf8(rawValue(m_sort)));
    m_preferences.setBoolean(key(".ascending"), m_ascending);
    m_preferences.setPathList(key(".favourites"), m_favourites);
    m_preferences.sync();
}

// ---- published state

const fs::path &PaneModel::directory() const
{
    return m_directory;
}
const std::vector<FileEntry> &PaneModel::entries() const
{
    return *m_entries;
}
const std::set<fs::path> &PaneModel::selection() const
{
    return m_selection;
}
bool PaneModel::isTagged(const fs::path &url) const
{
    return m_selection.count(url) > 0;
}
const std::optional<fs::path> &PaneModel::cursor() const
{
    return m_cursor;
}
const QString &PaneModel::path() const
{
    return m_path;
}
const QString &PaneModel::filter() const
{
    return m_filter;
}
const std::optional<QString> &PaneModel::error() const
{
    return m_error;
}
bool PaneModel::showHidden() const
{
    return m_showHidden;
}
FileSort PaneModel::sort() const
{
    return m_sort;
}
bool PaneModel::ascending() const
{
    return m_ascending;
}
const std::vector<fs::path> &PaneModel::tabs() const
{
    return m_tabs;
}
int PaneModel::tabIndex() const
{
    return m_tabIndex;
}
const std::vector<fs::path> &PaneModel::favourites() const
{
    return m_favourites;
}
bool PaneModel::loading() const
{
    return m_loading;
}
const QString &PaneModel::persistenceKey() const
{
    return m_persistenceKey;
}
const std::optional<std::int64_t> &PaneModel::freeSpace() const
{
    return m_freeSpace;
}
const std::vector<FileEntry> &PaneModel::visible() const
{
    if (m_visibleOrder.identity)
        return *m_entries;
    if (!m_visibleCopyValid) {
        releaseElsewhere(std::move(m_visibleCopy));
        m_visibleCopy.clear();
        m_visibleCopy.reserve(m_visibleOrder.order.size());
        for (const std::uint32_t i : m_visibleOrder.order)
            m_visibleCopy.push_back((*m_entries)[i]);
        m_visibleCopyValid = true;
    }
    return m_visibleCopy;
}

int PaneModel::visibleCount() const
{
    return static_cast<int>(m_visibleOrder.identity ? m_entries->size() : m_visibleOrder.order.size());
}

const FileEntry &PaneModel::visibleAt(int row) const
{
    const auto index = static_cast<std::size_t>(row);
    return (*m_entries)[m_visibleOrder.identity ? index : m_visibleOrder.order[index]];
}

std::optional<int> PaneModel::visibleIndexOf(const fs::path &url) const
{
    const std::optional<int> index = m_entryIndex->find(*m_entries, url);
    if (!index || m_visibleOrder.identity)
        return index;
    const std::int32_t row = m_visiblePosition[static_cast<std::size_t>(*index)];
    return row < 0 ? std::nullopt : std::optional<int>(row);
}

void PaneModel::setSelection(std::set<fs::path> selection)
{
    if (assign(m_selection, std::move(selection)))
        Q_EMIT selectionChanged();
}

void PaneModel::setCursor(std::optional<fs::path> cursor)
{
    if (assign(m_cursor, std::move(cursor)))
        Q_EMIT cursorChanged();
}

void PaneModel::setPath(const QString &text)
{
    if (assign(m_path, text))
        Q_EMIT pathChanged();
}

void PaneModel::setFilter(const QString &text)
{
    if (!assign(m_filter, text))
        return;
    recomputeVisible();
    Q_EMIT filterChanged();
    Q_EMIT visibleChanged();
}

void PaneModel::setShowHidden(bool show)
{
    if (!assign(m_showHidden, show))
        return;
    Q_EMIT showHiddenChanged();
    if (m_restoring)
        return;
    persist();
    refresh();
}

void PaneModel::setSort(FileSort sort)
{
    if (!assign(m_sort, sort))
        return;
    recomputeVisible();
    Q_EMIT sortChanged();
    Q_EMIT visibleChanged();
    persist();
}

void PaneModel::setAscending(bool ascending)
{
    if (!assign(m_ascending, ascending))
        return;
    recomputeVisible();
    Q_EMIT ascendingChanged();
    Q_EMIT visibleChanged();
    persist();
}

std::vector<fs::path> PaneModel::selected() const
{
    std::vector<fs::path> result;
    if (m_selection.empty()) {
        if (m_cursor && visibleIndexOf(*m_cursor))
            result.push_back(*m_cursor);
        return result;
    }
    std::vector<int> positions;
    positions.reserve(m_selection.size());
    for (const fs::path &url : m_selection)
        if (const auto position = visibleIndexOf(url))
            positions.push_back(*position);
    std::sort(positions.begin(), positions.end());
    result.reserve(positions.size());
    for (const int position : positions)
        result.push_back(visibleAt(position).url());
    return result;
}

// ---- listing

void PaneModel::refresh()
{
    const long long generation = ++m_generation;
    if (m_workerCancelled)
        m_workerCancelled->store(true);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_workerCancelled = cancelled;
    setLoading(true);

    fileSystemPool().start([self = this, guard = m_guard, folder = m_directory, showHidden = m_showHidden,
                            cancelled, generation, entries = m_entries, index = m_entryIndex] {
        // Against what the pane holds, so that an unchanged folder (the periodic
        // refresh, mostly) is recognised before any entry is built.
        const detail::PreviousListing previous{*entries, *index};
        std::optional<detail::ListingResult> result =
            detail::listFolder(folder, showHidden, *cancelled, &previous);
        if (!result)
            return;
        auto shared = std::make_shared<detail::ListingResult>(std::move(*result));
        const std::optional<std::int64_t> freeSpace = availableBytes(folder);
        // Runs only while the pane exists (ReceiverGuard).
        guard->post([self, shared, generation, freeSpace] {
            self->apply(generation, std::move(*shared), freeSpace);
        });
    });
}

void PaneModel::reload()
{
    m_folderSizes.clear();
    refresh();
}

void PaneModel::apply(long long generation, detail::ListingResult result,
                      std::optional<std::int64_t> freeSpace)
{
    if (generation != m_generation)
        return; // a newer request will apply its own result
    m_workerCancelled.reset();
    const std::optional<fs::path> revealed = std::exchange(m_revealed, std::nullopt);
    const std::vector<fs::path> revealedTags = std::exchange(m_revealedTags, {});

    bool entriesDiffer = false;
    bool errorDiffers = false;
    std::set<fs::path> selection;
    std::optional<fs::path> cursor;
    if (auto *listing = std::get_if<detail::FolderListing>(&result)) {
        // The worker compared against the entries of the request, which are
        // still these: only the newest request is applied.
        if (!listing->unchanged) {
            entriesDiffer = true;
            releaseElsewhere(std::exchange(
                m_entries, std::make_shared<const std::vector<FileEntry>>(std::move(listing->entries))));
            m_nameRanks = std::move(listing->nameRanks);
            m_names = std::move(listing->names);
            m_entryIndex = std::make_shared<const detail::UrlIndex>(std::move(listing->index));
        }
        errorDiffers = assign(m_error, std::optional<QString>());
        for (const fs::path &url : m_selection)
            if (m_entryIndex->find(*m_entries, url))
                selection.insert(selection.end(), url);
        for (const fs::path &url : revealedTags)
            if (m_entryIndex->find(*m_entries, url))
                selection.insert(url);
        if (revealed && m_entryIndex->find(*m_entries, *revealed))
            cursor = revealed;
        else if (m_cursor && m_entryIndex->find(*m_entries, *m_cursor))
            cursor = m_cursor;
        else if (!m_entries->empty())
            cursor = m_entries->front().url();
    } else {
        entriesDiffer = !m_entries->empty();
        releaseElsewhere(std::exchange(m_entries, std::make_shared<const std::vector<FileEntry>>()));
        m_nameRanks.clear();
        m_names = {};
        m_entryIndex = std::make_shared<const detail::UrlIndex>();
        errorDiffers =
            assign(m_error, std::optional<QString>(std::get<detail::ListingFailure>(result).message));
    }
    const bool selectionDiffers = assign(m_selection, std::move(selection));
    const bool cursorDiffers = assign(m_cursor, std::move(cursor));
    const bool freeSpaceDiffers = assign(m_freeSpace, freeSpace);
    if (entriesDiffer)
        recomputeVisible();

    // Every field is in place before anyone hears of a change.
    if (entriesDiffer) {
        Q_EMIT entriesChanged();
        Q_EMIT visibleChanged();
    }
    if (errorDiffers)
        Q_EMIT errorChanged();
    if (selectionDiffers)
        Q_EMIT selectionChanged();
    if (cursorDiffers)
        Q_EMIT cursorChanged();
    if (freeSpaceDiffers)
        Q_EMIT freeSpaceChanged();
    if (entriesDiffer)
        m_folderSizes.keepOnly([this](const fs::path &folder) {
            const std::optional<int> index = m_entryIndex->find(*m_entries, folder);
            return index && (*m_entries)[static_cast<std::size_t>(*index)].directory;
        });
    setLoading(false);
    Q_EMIT listingApplied();
}

void PaneModel::recomputeVisible()
{
    m_visibleOrder = detail::visibleOrder(*m_entries, m_nameRanks, m_names, m_filter, m_sort, m_ascending);
    releaseElsewhere(std::move(m_visibleCopy));
    m_visibleCopy = {};
    m_visibleCopyValid = false;
    m_visiblePosition.clear();
    if (m_visibleOrder.identity)
        return;
    m_visiblePosition.assign(m_entries->size(), -1);
    for (std::size_t row = 0; row < m_visibleOrder.order.size(); ++row)
        m_visiblePosition[m_visibleOrder.order[row]] = static_cast<std::int32_t>(row);
}

void PaneModel::setLoading(bool loading)
{
    if (assign(m_loading, loading))
        Q_EMIT loadingChanged();
}

void PaneModel::metadataTick()
{
    if (applicationActive() && !m_loading)
        refresh();
}

bool PaneModel::applicationActive() const
{
    // The window layer supplies the desktop's answer; without one there is nothing
    // to be in front of.
    return m_applicationIsActive ? m_applicationIsActive() : true;
}

void PaneModel::watchDirectory()
{
    QPointer<PaneModel> pane(this);
    m_watcher.watch(m_directory, [pane] {
        if (pane)
            pane->refresh();
    });
}

// ---- cursor and tags

PaneModel::TaggedSize PaneModel::taggedSize() const
{
    TaggedSize total;
    for (const fs::path &url : m_selection) {
        const std::optional<int> index = m_entryIndex->find(*m_entries, url);
        if (!index)
            continue;
        const FileEntry &entry = (*m_entries)[static_cast<std::size_t>(*index)];
        if (!entry.directory) {
            total.bytes += entry.size;
            continue;
        }
        const FolderSizes::Size *counted = m_folderSizes.find(url);
        if (counted)
            total.bytes += counted->bytes;
        if (!counted || counted->partial || counted->counting)
            total.lowerBound = true;
    }
    return total;
}

void PaneModel::moveCursor(int step, bool extendingSelection)
{
    if (visibleCount() == 0)
        return;
    const long long count = visibleCount();
    const std::optional<int> current = m_cursor ? visibleIndexOf(*m_cursor) : std::nullopt;
    const long long from = current ? *current : (step < 0 ? count : -1);
    const long long to = std::max(std::min(from + step, count - 1), 0LL);
    fs::path url = visibleAt(static_cast<int>(to)).url();
    if (extendingSelection && m_selection.insert(url).second)
        Q_EMIT selectionChanged();
    setCursor(std::move(url));
}

void PaneModel::toggleTagAndAdvance()
{
    const int count = visibleCount();
    if (count == 0)
        return;
    const std::optional<int> current = m_cursor ? visibleIndexOf(*m_cursor) : std::nullopt;
    const int index = current.value_or(0);
    const fs::path url = visibleAt(index).url();
    if (!m_selection.erase(url))
        m_selection.insert(url);
    Q_EMIT selectionChanged();
    setCursor(visibleAt(std::min(count - 1, index + 1)).url());
}

// ---- navigation, tabs and favourites

void PaneModel::goUp()
{
    const fs::path previous = m_directory;
    navigate(m_directory.parent_path());
    // Set before the listing arrives, which keeps a cursor that names one of its items.
    if (const std::optional<fs::path> child = childOnTheWay(m_directory, previous))
        setCursor(*child);
}

void PaneModel::navigate(const fs::path &folder)
{
    const bool directoryDiffers = assign(m_directory, standardized(folder, m_directory));
    const bool pathDiffers = assign(m_path, displayText(m_directory));
    bool tabsDiffer = false;
    if (m_tabIndex >= 0 && static_cast<std::size_t>(m_tabIndex) < m_tabs.size())
        tabsDiffer = assign(m_tabs[static_cast<std::size_t>(m_tabIndex)], m_directory);
    const bool filterDiffers = assign(m_filter, QString());
    const bool selectionDiffers = assign(m_selection, std::set<fs::path>());
    const bool cursorDiffers = assign(m_cursor, std::optional<fs::path>());
    m_revealed.reset();
    m_revealedTags.clear();
    m_folderSizes.clear();
    if (filterDiffers)
        recomputeVisible();

    if (directoryDiffers)
        Q_EMIT directoryChanged();
    if (pathDiffers)
        Q_EMIT pathChanged();
    if (tabsDiffer)
        Q_EMIT tabsChanged();
    if (filterDiffers) {
        Q_EMIT filterChanged();
        Q_EMIT visibleChanged();
    }
    if (selectionDiffers)
        Q_EMIT selectionChanged();
    if (cursorDiffers)
        Q_EMIT cursorChanged();

    persist();
    watchDirectory();
    refresh();
}

void PaneModel::reveal(const fs::path &item)
{
    navigate(item.parent_path());
    // Set after the listing arrives rather than now, so that the cursor's
    // change is heard when its row exists and the view can scroll to it.
    m_revealed = m_directory / item.filename();
}

void PaneModel::setCut(std::set<fs::path> items)
{
    if (assign(m_cut, std::move(items)))
        Q_EMIT cutChanged();
}

void PaneModel::reveal(const std::vector<fs::path> &items)
{
    if (items.empty())
        return;
    reveal(items.front());
    if (items.size() < 2)
        return;
    for (const fs::path &item : items)
        m_revealedTags.push_back(m_directory / item.filename());
}

void PaneModel::newTab()
{
    m_tabs.push_back(m_directory);
    Q_EMIT tabsChanged();
    if (assign(m_tabIndex, static_cast<int>(m_tabs.size()) - 1))
        Q_EMIT tabIndexChanged();
    persist();
}

void PaneModel::selectTab(int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= m_tabs.size())
        return;
    if (assign(m_tabIndex, index))
        Q_EMIT tabIndexChanged();
    navigate(m_tabs[static_cast<std::size_t>(index)]);
}

void PaneModel::closeTab()
{
    if (m_tabs.size() < 2)
        return;
    m_tabs.erase(m_tabs.begin() + m_tabIndex);
    Q_EMIT tabsChanged();
    if (assign(m_tabIndex, std::min(m_tabIndex, static_cast<int>(m_tabs.size()) - 1)))
        Q_EMIT tabIndexChanged();
    navigate(m_tabs[static_cast<std::size_t>(m_tabIndex)]);
}

void PaneModel::toggleFavourite()
{
    const auto equal = [this](const fs::path &favourite) { return favourite == m_directory; };
    if (std::none_of(m_favourites.begin(), m_favourites.end(), equal)) {
        m_favourites.push_back(m_directory);
        sortFavourites();
    } else {
        std::erase_if(m_favourites, equal);
    }
    Q_EMIT favouritesChanged();
    persist();
}

void PaneModel::sortFavourites()
{
    std::stable_sort(m_favourites.begin(), m_favourites.end(), [this](const fs::path &a, const fs::path &b) {
        return m_collation.compare(displayName(a), displayName(b)) < 0;
    });
}

} // namespace quillorn
