#pragma once
#include "model/detail/folderlisting.h"
#include "model/detail/urlindex.h"
#include "model/detail/visiblelist.h"
#include "model/fileentry.h"
#include "model/filesort.h"
#include "model/foldersizes.h"
#include "platform/core/collation.h"
#include "services/directorywatcher.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace quillorn {
class Preferences; // src/platform/core/preferences.h: QSettings-backed store
class ReceiverGuard;

struct PaneModelOptions {
    Preferences *preferences = nullptr;        // nullptr: Preferences::standard()
    int metadataIntervalMs = 5000;             // injectable for tests
    std::function<bool()> applicationIsActive; // empty: always active (the window supplies the real test)
    FolderSizeCount folderSizeCount = {};      // empty: DirectoryTools::folderSizes (tests hold the count)
};

// One pane's state: the folder shown, its listing, filter, order, cursor, tags,
// tabs and favourites. Listing runs on a worker thread against a copy of the
// request; results return through a queued call and are applied only if their
// generation is still current. Everything here lives on the interface thread.
class PaneModel : public QObject {
    Q_OBJECT
public:
    PaneModel(std::filesystem::path start, QString persistenceKey, PaneModelOptions options = {},
              QObject *parent = nullptr);
    ~PaneModel() override;

    // published state (each has a <name>Changed signal, emitted only on real change)
    const std::filesystem::path &directory() const;
    const std::vector<FileEntry> &entries() const;
    const std::set<std::filesystem::path> &selection() const;
    bool isTagged(const std::filesystem::path &url) const;
    // Items cut to the clipboard from this pane, drawn dimmed until they are
    // pasted or the clipboard holds something else.
    const std::set<std::filesystem::path> &cut() const { return m_cut; }
    void setCut(std::set<std::filesystem::path> items);
    const std::optional<std::filesystem::path> &cursor() const;
    const QString &path() const; // text of the path field
    const QString &filter() const;
    const std::optional<QString> &error() const;
    bool showHidden() const;
    FileSort sort() const;
    bool ascending() const;
    const std::vector<std::filesystem::path> &tabs() const;
    int tabIndex() const;
    const std::vector<std::filesystem::path> &favourites() const;
    bool loading() const;
    const QString &persistenceKey() const;
    // What the user may still write on the folder's volume, as of the last listing.
    const std::optional<std::int64_t> &freeSpace() const;

    // Sizes of listed folders counted on request. Leaving the folder and reload()
    // forget them; a refresh keeps those of folders still listed, since the
    // watcher and the periodic refresh see only this folder's own entries.
    FolderSizes &folderSizes() { return m_folderSizes; }
    const FolderSizes &folderSizes() const { return m_folderSizes; }
    // Files by their size, folders by their counted size; a folder not counted
    // (or counted in part, or still counting) makes the total a lower bound.
    struct TaggedSize {
        std::int64_t bytes = 0;
        bool lowerBound = false;
    };
    TaggedSize taggedSize() const;

    void setSelection(std::set<std::filesystem::path> selection);
    void setCursor(std::optional<std::filesystem::path> cursor);
    void setPath(const QString &text);
    void setFilter(const QString &text);
    void setShowHidden(bool show);     // persists and re-lists
    void setSort(FileSort sort);       // persists
    void setAscending(bool ascending); // persists

    // entries filtered and ordered; recomputed when entries/filter/sort/ascending change
    const std::vector<FileEntry> &visible() const;
    std::optional<int> visibleIndexOf(const std::filesystem::path &url) const; // O(1) or O(log n)
    std::vector<std::filesystem::path> selected() const;

    void refresh();
    // A refresh the user asked for: counted folder sizes are forgotten too.
    void reload();
    void navigate(const std::filesystem::path &folder);
    // The parent folder, with the cursor on the folder just left.
    void goUp();
    // Shows the folder that holds `item` with the cursor on it once it is listed
    // (on the first item, as after navigate, when the listing lacks it).
    void reveal(const std::filesystem::path &item);
    // As reveal(items.front()), and with several items (all in one folder) they
    // are tagged too, as another program's "show these items" asks.
    void reveal(const std::vector<std::filesystem::path> &items);
    void moveCursor(int step, bool extendingSelection = false);
    void toggleTagAndAdvance();
    void newTab();
    void selectTab(int index);
    void closeTab();
    void toggleFavourite();

    // visible() without building it: its size and one row, O(1). Views should
    // prefer these; visible() copies the entries when it differs from entries().
    int visibleCount() const;
    const FileEntry &visibleAt(int row) const;

    // True once the folder watcher is in place for directory() (tests, diagnostics).
    bool isWatching() const { return m_watcher.isWatching(); }
    // True while no watch could be set for directory() (the system's limits are
    // used up) and the folder is re-read every few seconds instead.
    bool notWatched() const { return m_watcher.isPolling(); }

Q_SIGNALS:
    void directoryChanged();
    void entriesChanged();
    void visibleChanged(); // after visible() was recomputed (entries, filter, sort or ascending changed)
    void selectionChanged();
    void cutChanged();
    void cursorChanged();
    void pathChanged();
    void filterChanged();
    void errorChanged();
    void showHiddenChanged();
    void sortChanged();
    void ascendingChanged();
    void tabsChanged();
    void tabIndexChanged();
    void favouritesChanged();
    void loadingChanged();
    void notWatchedChanged();
    void freeSpaceChanged();
    void listingApplied(); // every applied listing result, changed or not (tests wait on it)

private:
    void restore(const std::filesystem::path &start);
    void persist();
    QString key(const char *suffix) const;
    void apply(long long generation, detail::ListingResult result, std::optional<std::int64_t> freeSpace);
    void recomputeVisible();
    void setLoading(bool loading);
    void metadataTick();
    bool applicationActive() const;
    void sortFavourites();
    void watchDirectory();

    Preferences &m_preferences;
    std::function<bool()> m_applicationIsActive;

    std::filesystem::path m_directory;
    // Shared read-only with the listing worker, which compares against it.
    std::shared_ptr<const std::vector<FileEntry>> m_entries;
    std::vector<std::uint32_t> m_nameRanks;               // parallel to m_entries, from the listing
    detail::PackedNames m_names;                          // likewise
    std::shared_ptr<const detail::UrlIndex> m_entryIndex; // shared with the worker like m_entries
    // visible() is kept as positions into m_entries; the vector itself is built
    // only when asked for, and not at all while it equals m_entries.
    detail::VisibleOrder m_visibleOrder;
    std::vector<std::int32_t> m_visiblePosition; // entry -> row, or -1; empty for identity
    mutable std::vector<FileEntry> m_visibleCopy;
    mutable bool m_visibleCopyValid = false;
    std::set<std::filesystem::path> m_selection;
    std::optional<std::filesystem::path> m_cursor;
    std::optional<std::filesystem::path> m_revealed;   // where the next listing puts the cursor
    std::vector<std::filesystem::path> m_revealedTags; // and what it tags
    std::set<std::filesystem::path> m_cut;
    QString m_path;
    QString m_filter;
    std::optional<QString> m_error;
    bool m_showHidden = false;
    FileSort m_sort = FileSort::name;
    bool m_ascending = true;
    std::vector<std::filesystem::path> m_tabs;
    int m_tabIndex = 0;
    std::vector<std::filesystem::path> m_favourites;
    bool m_loading = false;
    std::optional<std::int64_t> m_freeSpace;
    bool m_restoring = true;
    QString m_persistenceKey;

    long long m_generation = 0;
    std::shared_ptr<std::atomic<bool>> m_workerCancelled;
    std::shared_ptr<ReceiverGuard> m_guard;
    Collation m_collation;
    QTimer m_metadataTimer;
    DirectoryWatcher m_watcher;
    FolderSizes m_folderSizes;
};
} // namespace quillorn
