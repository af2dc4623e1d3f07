#pragma once

#include "model/commandertheme.h"
#include "model/fileentry.h"

#include <QWidget>

#include <filesystem>
#include <functional>
#include <vector>

class QLabel;
class QKeyEvent;
class QLineEdit;
class QPushButton;

namespace quillorn {

class PaneModel;

namespace detail {
class BusyOverlay;
class PaneHeaderBar;
class PaneRowDelegate;
class PaneTabStrip;
class PaneTableModel;
class PaneTableView;
} // namespace detail

// Draws one PaneModel — tabs, header, path and filter fields, sortable column
// headers, the listing, an error view and a footer — and turns mouse input into
// changes of that pane or calls of the window's callbacks. It reads everything
// it shows from the pane on each change and keeps no state of its own; keys
// reach the pane through the window, never through this view.
class FilePane : public QWidget {
    Q_OBJECT
public:
    // The theme starts as the one the parent carries (CommanderThemeKey).
    explicit FilePane(PaneModel &pane, QWidget *parent = nullptr);
    ~FilePane() override;

    PaneModel &pane() const { return m_pane; }
    CommanderTheme theme() const { return m_theme; }
    void setTheme(CommanderTheme theme);
    bool active() const { return m_active; }
    void setActive(bool active);

    // Set by the window: make this pane active, open an entry, receive dropped
    // files, show the context menu at a global position, of the items to act
    // on (true) or of the folder.
    std::function<void()> activate;
    std::function<void(const FileEntry &)> open;
    std::function<void(const std::vector<std::filesystem::path> &)> drop;
    std::function<void(QPoint, bool onItems)> contextMenu;

    // What the window's commands ask of the pane: how many rows its list shows,
    // the keyboard in its filter or path field, its favourites or locations menu.
    int rowsPerPage() const;
    void focusFilter();
    void focusPath();
    void showFavouritesMenu();
    void showLocationsMenu();
    // Where a menu opened from the keyboard goes: below the cursor's row while
    // it is in view, else at the top of the list (global coordinates).
    QPoint menuPosition() const;

    detail::PaneHeaderBar *headerBar() const { return m_header; }
    detail::PaneTabStrip *tabStrip() const { return m_tabs; }
    detail::PaneTableView *listView() const { return m_list; }
    detail::PaneTableModel *listModel() const { return m_model; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    QWidget *buildPathRow();
    QWidget *buildFooter();
    void buildListing();
    void watchForClicks(QWidget *widget);

    void clickRow(int row, Qt::KeyboardModifiers modifiers);
    void doubleClickRow(int row);
    void requestContextMenu(int row, QPoint globalPosition);
    void pressHeader(int section);
    void submitPath();
    void submitFilter();
    bool fieldKey(QLineEdit *field, const QKeyEvent &key);
    void requestActivation();
    void takeFocusFromTextFields();

    void updateError();
    void updateLoading();
    void updateFooter();
    void queueScrollToCursor();
    void placeOverlays();
    void applyTheme();

    PaneModel &m_pane;
    CommanderTheme m_theme = CommanderThemeKey::defaultValue;
    bool m_active = false;

    detail::PaneTabStrip *m_tabs = nullptr;
    detail::PaneHeaderBar *m_header = nullptr;
    QLineEdit *m_path = nullptr;
    QLineEdit *m_filter = nullptr;
    detail::PaneTableModel *m_model = nullptr;
    detail::PaneRowDelegate *m_delegate = nullptr;
    detail::PaneTableView *m_list = nullptr;
    QWidget *m_error = nullptr;
    QLabel *m_errorIcon = nullptr;
    QLabel *m_errorText = nullptr;
    detail::BusyOverlay *m_busy = nullptr;
    QLabel *m_itemCount = nullptr;
    QLabel *m_taggedCount = nullptr;
    QLabel *m_notWatched = nullptr;
    bool m_scrollQueued = false;
    bool m_scrollAfterListing = false;
    ulong m_lastActivationTime = 0;
};

} // namespace quillorn
