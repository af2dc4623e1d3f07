#include "app/filepane.h"

#include "app/detail/busyoverlay.h"
#include "app/detail/glyphs.h"
#include "app/detail/paneheaderbar.h"
#include "app/detail/paneinput.h"
#include "app/detail/panelayout.h"
#include "app/detail/panerowdelegate.h"
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/detail/panetabstrip.h"
#include "model/commanderthemecolours.h"
#include "model/panemodel.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/bytecount.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <utility>

namespace quillorn {

using namespace detail;

namespace {

bool isReturnKey(const QKeyEvent &key)
{
    return key.key() == Qt::Key_Return || key.key() == Qt::Key_Enter;
}

} // namespace

FilePane::FilePane(PaneModel &pane, QWidget *parent)
    : QWidget(parent), m_pane(pane), m_theme(CommanderThemeKey::value(parent))
{
    setMinimumWidth(kMinimumPaneWidth);
    setAcceptDrops(true);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(8, 6, 8, 6);
    column->setSpacing(6);

    m_tabs = new PaneTabStrip(m_pane, this);
    column->addWidget(m_tabs);
    m_header = new PaneHeaderBar(m_pane, this);
    column->addWidget(m_header);
    column->addWidget(buildPathRow());

    m_filter = new QLineEdit(this);
    m_filter->setObjectName(QStringLiteral("filterField"));
    m_filter->setPlaceholderText(tr("Filter this folder"));
    m_filter->setAcceptDrops(false);
    m_filter->setText(m_pane.filter());
    connect(m_filter, &QLineEdit::textEdited, &m_pane, &PaneModel::setFilter);
    connect(&m_pane, &PaneModel::filterChanged, this, [this] {
        if (m_filter->text() != m_pane.filter())
            m_filter->setText(m_pane.filter());
    });
    column->addWidget(m_filter);

    buildListing();
    column->addWidget(m_list, 1);
    column->addWidget(buildFooter());

    watchForClicks(this);
    applyTheme();
    updateError();
    updateLoading();
    updateFooter();
}

FilePane::~FilePane() = default;

QWidget *FilePane::buildPathRow()
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    auto *up = new QToolButton(row);
    up->setObjectName(QStringLiteral("upButton"));
    up->setToolTip(tr("Enclosing folder"));
    up->setAccessibleName(up->toolTip());
    up->setAutoRaise(true);
    connect(up, &QToolButton::clicked, this, [this] { m_pane.goUp(); });
    layout->addWidget(up);

    m_path = new QLineEdit(row);
    m_path->setObjectName(QStringLiteral("pathField"));
    m_path->setPlaceholderText(tr("Folder path"));
    m_path->setFont(monospacedFont());
    m_path->setAcceptDrops(false);
    m_path->setText(m_pane.path());
    connect(m_path, &QLineEdit::textEdited, &m_pane, &PaneModel::setPath);
    connect(&m_pane, &PaneModel::pathChanged, this, [this] {
        if (m_path->text() != m_pane.path())
            m_path->setText(m_pane.path());
    });
    layout->addWidget(m_path, 1);
    return row;
}

void FilePane::buildListing()
{
    m_model = new PaneTableModel(m_pane, this);
    m_delegate = new PaneRowDelegate(this);
    m_list = new PaneTableView(this);
    m_list->setObjectName(QStringLiteral("listView"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_delegate);
    m_list->setAcceptDrops(false);
    m_list->viewport()->setAcceptDrops(false);
    QHeaderView *header = m_list->horizontalHeader();
    header->setSectionResizeMode(PaneTableModel::nameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(PaneTableModel::sizeColumn, QHeaderView::Fixed);
    header->setSectionResizeMode(PaneTableModel::modifiedColumn, QHeaderView::Fixed);
    header->resizeSection(PaneTableModel::sizeColumn, kSizeColumnWidth);
    header->resizeSection(PaneTableModel::modifiedColumn, kModifiedColumnWidth);
    m_list->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_list->verticalHeader()->setDefaultSectionSize(QFontMetrics(monospacedFont()).height() + 8);
    connect(header, &QHeaderView::sectionClicked, this, &FilePane::pressHeader);
    connect(m_list, &PaneTableView::rowClicked, this, &FilePane::clickRow);
    connect(m_list, &PaneTableView::rowDoubleClicked, this, &FilePane::doubleClickRow);
    connect(m_list, &PaneTableView::contextMenuRequested, this, &FilePane::requestContextMenu);

    m_error = new QWidget(m_list->viewport());
    m_error->setObjectName(QStringLiteral("errorView"));
    auto *errorColumn = new QVBoxLayout(m_error);
    errorColumn->setContentsMargins(12, 16, 12, 16);
    errorColumn->setSpacing(12);
    m_errorIcon = new QLabel(m_error);
    m_errorIcon->setAlignment(Qt::AlignCenter);
    errorColumn->addWidget(m_errorIcon);
    m_errorText = new QLabel(m_error);
    m_errorText->setObjectName(QStringLiteral("errorMessage"));
    m_errorText->setTextFormat(Qt::PlainText);
    m_errorText->setWordWrap(true);
    m_errorText->setAlignment(Qt::AlignCenter);
    errorColumn->addWidget(m_errorText);
    auto *retry = new QPushButton(tr("Retry"), m_error);
    retry->setObjectName(QStringLiteral("retryButton"));
    connect(retry, &QPushButton::clicked, &m_pane, &PaneModel::refresh);
    errorColumn->addWidget(retry, 0, Qt::AlignHCenter);

    m_busy = new BusyOverlay(m_list->viewport());
    m_busy->setObjectName(QStringLiteral("loadingIndicator"));

    connect(&m_pane, &PaneModel::errorChanged, this, &FilePane::updateError);
    connect(&m_pane, &PaneModel::loadingChanged, this, &FilePane::updateLoading);
    connect(&m_pane, &PaneModel::visibleChanged, this, &FilePane::updateFooter);
    connect(&m_pane, &PaneModel::selectionChanged, this, &FilePane::updateFooter);
    connect(&m_pane, &PaneModel::notWatchedChanged, this, &FilePane::updateFooter);
    connect(&m_pane, &PaneModel::freeSpaceChanged, this, &FilePane::updateFooter);
    connect(&m_pane.folderSizes(), &FolderSizes::sizesChanged, this, &FilePane::updateFooter);
    connect(&m_pane, &PaneModel::cursorChanged, this, &FilePane::queueScrollToCursor);
    // Another folder starts at its top, or where its first listing puts the
    // cursor (on the folder one came up from); a new listing of the same one
    // keeps its place.
    connect(&m_pane, &PaneModel::directoryChanged, this, [this] {
        m_list->scrollToTop();
        m_scrollAfterListing = true;
    });
    connect(&m_pane, &PaneModel::listingApplied, this, [this] {
        if (std::exchange(m_scrollAfterListing, false))
            queueScrollToCursor();
    });
}

QWidget *FilePane::buildFooter()
{
    auto *footer = new QWidget(this);
    auto *layout = new QHBoxLayout(footer);
    layout->setContentsMargins(2, 0, 2, 0);
    m_itemCount = new QLabel(footer);
    m_itemCount->setObjectName(QStringLiteral("footerItems"));
    m_taggedCount = new QLabel(footer);
    m_taggedCount->setObjectName(QStringLiteral("footerTagged"));
    m_taggedCount->setToolTip(tr("Tagged files by their size and tagged folders by their counted size "
                                 "(Space counts a folder); “≥” means some folder is not counted "
                                 "or not readable throughout. Then the space free on this volume."));
    m_notWatched = new QLabel(tr("not watched"), footer);
    m_notWatched->setObjectName(QStringLiteral("footerNotWatched"));
    m_notWatched->setToolTip(tr("The system allows no more folder watches, so changes made by other "
                                "programs show up only when this folder is read again, every 5 seconds."));
    layout->addWidget(m_itemCount);
    layout->addStretch(1);
    layout->addWidget(m_notWatched);
    layout->addStretch(1);
    layout->addWidget(m_taggedCount);
    return footer;
}

void FilePane::setTheme(CommanderTheme theme)
{
    m_theme = theme;
    applyTheme();
}

void FilePane::setActive(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    m_header->setActive(active);
    m_delegate->setActive(active);
    m_list->setActive(active);
    m_list->viewport()->update();
    update();
}

// Every press inside the pane activates it, whichever child takes the press;
// children created later (tab buttons) are watched as they arrive.
void FilePane::watchForClicks(QWidget *widget)
{
    widget->installEventFilter(this);
    for (QWidget *child : widget->findChildren<QWidget *>())
        child->installEventFilter(this);
}

bool FilePane::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
        // A press a child ignores reaches its parent as well: activate once.
        const auto time = static_cast<QMouseEvent *>(event)->timestamp();
        if (time == 0 || time != m_lastActivationTime)
            requestActivation();
        m_lastActivationTime = time;
        break;
    }
    case QEvent::KeyPress:
        // A line edit passes Return on to its parents once it has emitted its
        // signal, and with the focus gone the window's keys would open the item
        // under the cursor: the fields take the key whole.
        if (watched == m_path || watched == m_filter)
            return fieldKey(static_cast<QLineEdit *>(watched), *static_cast<QKeyEvent *>(event));
        break;
    case QEvent::ChildAdded:
        if (auto *child = qobject_cast<QWidget *>(static_cast<QChildEvent *>(event)->child()))
            watchForClicks(child);
        break;
    case QEvent::Resize:
        if (watched == m_list->viewport())
            placeOverlays();
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

// Return submits; in the filter, Down goes back to the list keeping the filter
// and Escape clears it; in the path, Escape puts back the folder shown.
bool FilePane::fieldKey(QLineEdit *field, const QKeyEvent &key)
{
    if (isReturnKey(key)) {
        field == m_path ? submitPath() : submitFilter();
        return true;
    }
    if (field == m_filter && key.key() == Qt::Key_Down && key.modifiers() == Qt::NoModifier) {
        submitFilter();
        return true;
    }
    if (key.key() == Qt::Key_Escape) {
        if (field == m_filter)
            m_pane.setFilter(QString());
        else
            m_path->setText(m_pane.path());
        requestActivation();
        field->clearFocus();
        return true;
    }
    return false;
}

int FilePane::rowsPerPage() const
{
    const int rowHeight = std::max(1, m_list->verticalHeader()->defaultSectionSize());
    return std::max(1, m_list->viewport()->height() / rowHeight);
}

void FilePane::focusFilter()
{
    requestActivation();
    m_filter->setFocus(Qt::ShortcutFocusReason);
    m_filter->selectAll();
}

void FilePane::focusPath()
{
    requestActivation();
    m_path->setFocus(Qt::ShortcutFocusReason);
    m_path->selectAll();
}

void FilePane::showFavouritesMenu()
{
    m_header->popUpFavourites();
}

void FilePane::showLocationsMenu()
{
    m_header->popUpLocations();
}

void FilePane::requestActivation()
{
    if (activate)
        activate();
}

void FilePane::takeFocusFromTextFields()
{
    QWidget *focus = QApplication::focusWidget();
    if (focus && qobject_cast<QLineEdit *>(focus) && focus->window() == window())
        focus->clearFocus();
}

void FilePane::clickRow(int row, Qt::KeyboardModifiers modifiers)
{
    takeFocusFromTextFields();
    if (const FileEntry *entry = m_model->entryAt(row))
        applyRowClick(m_pane, entry->url(), modifiers);
}

void FilePane::doubleClickRow(int row)
{
    takeFocusFromTextFields();
    const FileEntry *entry = m_model->entryAt(row);
    if (entry && open) {
        const FileEntry copy = *entry; // opening may replace the listing
        open(copy);
    }
}

// The menu acts on what a command would: a tagged row keeps the tags, any other
// row is clicked first, so that it alone is acted on.
void FilePane::requestContextMenu(int row, QPoint globalPosition)
{
    takeFocusFromTextFields();
    requestActivation();
    const FileEntry *entry = m_model->entryAt(row);
    if (entry && m_pane.isTagged(entry->url()))
        m_pane.setCursor(entry->url());
    else if (entry)
        applyRowClick(m_pane, entry->url(), Qt::NoModifier);
    if (contextMenu)
        contextMenu(globalPosition, entry != nullptr);
}

QPoint FilePane::menuPosition() const
{
    const QWidget *viewport = m_list->viewport();
    const QPoint indent(24, 0); // past the row's icon
    if (const auto row = m_pane.cursor() ? m_model->rowOf(*m_pane.cursor()) : std::nullopt) {
        const QRect shown = m_list->visualRect(m_model->index(*row, 0));
        if (viewport->rect().intersects(shown))
            return viewport->mapToGlobal(shown.bottomLeft() + indent);
    }
    return viewport->mapToGlobal(indent);
}

void FilePane::pressHeader(int section)
{
    if (section < 0 || section >= static_cast<int>(allFileSorts.size()))
        return;
    const FileSort key = allFileSorts[static_cast<std::size_t>(section)];
    if (key == m_pane.sort()) {
        m_pane.setAscending(!m_pane.ascending());
    } else {
        m_pane.setSort(key);
        m_pane.setAscending(true);
    }
}

void FilePane::submitPath()
{
    const auto home = pathFromText(QDir::homePath());
    m_pane.navigate(typedFolder(m_path->text(), home, m_pane.directory()));
    requestActivation();
    m_path->clearFocus();
}

void FilePane::submitFilter()
{
    requestActivation();
    m_filter->clearFocus();
}

void FilePane::updateError()
{
    const auto &error = m_pane.error();
    m_errorText->setText(error.value_or(QString()));
    m_error->setVisible(error.has_value());
    placeOverlays();
}

void FilePane::updateLoading()
{
    m_busy->setBusy(m_pane.loading());
}

void FilePane::updateFooter()
{
    m_itemCount->setText(tr("%1 items").arg(m_pane.visibleCount()));
    // "3 tagged, 1.2 GB · 45.3 GB free"
    const std::size_t tagged = m_pane.selection().size();
    QString text = tr("%1 tagged").arg(tagged);
    if (tagged > 0) {
        const PaneModel::TaggedSize total = m_pane.taggedSize();
        text += QStringLiteral(", ") + byteCountText(total.bytes, total.lowerBound);
    }
    if (const auto &free = m_pane.freeSpace())
        text += QStringLiteral(" · ") + tr("%1 free").arg(formattedByteCount(*free));
    m_taggedCount->setText(text);
    m_notWatched->setVisible(m_pane.notWatched());
}

// The cursor may move in the same step as a new listing arrives; scrolling once
// control returns to the event loop sees the rows the view will show.
void FilePane::queueScrollToCursor()
{
    if (!m_pane.cursor() || m_scrollQueued)
        return;
    m_scrollQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_scrollQueued = false;
            if (!m_pane.cursor())
                return;
            if (const auto row = m_model->rowOf(*m_pane.cursor()))
                m_list->scrollToRow(*row);
        },
        Qt::QueuedConnection);
}

void FilePane::placeOverlays()
{
    const QRect area = m_list->viewport()->rect();
    m_busy->setGeometry(area);
    const auto needed = [&] {
        const int forWidth = m_error->heightForWidth(area.width());
        return forWidth > 0 ? forWidth : m_error->sizeHint().height();
    };
    // In a short window the symbol goes first, so the message and Retry stay whole.
    m_errorIcon->setVisible(true);
    if (needed() > area.height())
        m_errorIcon->setVisible(false);
    m_error->setGeometry(0, 0, area.width(), std::min(area.height(), needed()));
}

void FilePane::applyTheme()
{
    const CommanderThemeColours c = colours(m_theme);
    findChild<QToolButton *>(QStringLiteral("upButton"))
        ->setIcon(glyphIcon(Glyph::arrowUp, primaryTextColour(c)));
    m_delegate->setColours(c);
    m_tabs->setColours(c);
    m_header->setColours(c);
    QColor wash = c.pane;
    wash.setAlphaF(0.55f);
    m_busy->setColours(wash, c.accent);
    m_errorIcon->setPixmap(glyphIcon(Glyph::exclamationFolder, secondaryTextColour(c), 32)
                               .pixmap(QSize(32, 32), devicePixelRatioF()));
    const QString fieldBorder = blend(c.border, c.row, 0.5).name();
    // The fields take their text colours from the palette: a colour set here
    // would also make the placeholder a faded copy of it. The symbol buttons stay flat in the theme's colours
    // in every state, also after their menu closes under the pointer; the menu arrow would crowd the symbol,
    // which says enough.
    setStyleSheet(
        QStringLiteral("QLabel { color: %1; }"
                       "QLabel#footerItems, QLabel#footerTagged, QLabel#footerNotWatched { color: %2; }"
                       "QLineEdit { background: %3; border: 1px solid %4; border-radius: 6px;"
                       " padding: 3px 6px; selection-background-color: %5; }"
                       "QLineEdit:focus { border-color: %6; }"
                       "QTableView { background: %7; border: none; }"
                       "QHeaderView { background: %7; border: none; }"
                       "QHeaderView::section { background: %7; color: %2; border: none;"
                       " padding: 3px 8px; font-weight: bold; }"
                       "QPushButton { background: %8; color: %1; border: none; border-radius: 5px;"
                       " padding: 4px 14px; }"
                       "QToolButton { color: %1; background: transparent; border: none; border-radius: 4px;"
                       " padding: 2px; }"
                       "QToolButton:hover { background: %8; }"
                       "QToolButton:pressed, QToolButton:open, QToolButton:checked { background: %5; }"
                       "QToolButton::menu-indicator { image: none; width: 0; }"
                       "QScrollArea, QScrollArea > QWidget, QScrollArea > QWidget > QWidget"
                       " { background: transparent; }")
            .arg(primaryTextColour(c).name(), secondaryTextColour(c).name(), c.row.name(), fieldBorder,
                 c.selection.name(), c.accent.name(), c.pane.name(), c.button.name()));
    update();
}

void FilePane::paintEvent(QPaintEvent *)
{
    const CommanderThemeColours c = colours(m_theme);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor outline = m_active ? c.accent : c.border;
    outline.setAlphaF(m_active ? 0.8f : 0.5f);
    painter.setPen(QPen(outline, 1));
    painter.setBrush(QColor(c.pane));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
}

void FilePane::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void FilePane::dragMoveEvent(QDragMoveEvent *event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

// The drop is accepted even when it holds no file; the callback runs once the
// drag has finished, so a drag started in the other pane has returned first.
void FilePane::dropEvent(QDropEvent *event)
{
    event->acceptProposedAction();
    std::vector<std::filesystem::path> files = droppedFiles(*event->mimeData());
    if (files.empty())
        return;
    QMetaObject::invokeMethod(
        this,
        [this, files = std::move(files)] {
            if (drop)
                drop(files);
        },
        Qt::QueuedConnection);
}

} // namespace quillorn
