#include "tools/trashsheet.h"

#include "model/commandermodel.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/bytecount.h"
#include "services/errortext.h"
#include "tools/backgroundwork.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"
#include "tools/detail/trashlistmodel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QVBoxLayout>

#include <iterator>
#include <map>
#include <sys/stat.h>

namespace quillorn {

namespace {

using detail::TrashListModel;

// What the background reading of the trash folders hands back.
struct TrashReading {
    std::vector<TrashedItem> items;
    QString problem; // the first trash folder that could not be read, and why
};

TrashReading readTrashFolders(const std::vector<std::filesystem::path> &volumes, const std::stop_token &stop)
{
    TrashReading reading;
    for (const std::filesystem::path &trash : trashFolders(volumes)) {
        try {
            std::vector<TrashedItem> items = readTrash(trash, stop);
            std::move(items.begin(), items.end(), std::back_inserter(reading.items));
        } catch (const std::exception &error) {
            if (reading.problem.isEmpty())
                reading.problem = "The Trash in \u2018" + displayText(trash) +
                                  "\u2019 could not be read: " + userFacingDescription(error);
        }
    }
    return reading;
}

QString itemCount(std::size_t count)
{
    return count == 1 ? QStringLiteral("1 item") : QStringLiteral("%1 items").arg(count);
}

} // namespace

TrashSheet::TrashSheet(CommanderModel &model, std::vector<Path> volumes, std::function<void()> dismiss,
                       QWidget *parent)
    : QWidget(parent), m_model(model), m_dismiss(std::move(dismiss))
{
    setObjectName(QStringLiteral("trashSheet"));
    // Four columns of names, folders and dates do not fit the smallest sheet.
    setMinimumSize(820, 400);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(detail::sheetTitle(QStringLiteral("Trash"), this));
    layout->addWidget(detail::sheetNote(QStringLiteral("Space or Insert tags an item. The buttons act on the "
                                                       "tagged items, else on the one under the cursor."),
                                        this));

    m_rows = new TrashListModel(this);
    m_sorted = new QSortFilterProxyModel(this);
    m_sorted->setSourceModel(m_rows);
    m_sorted->setSortRole(TrashListModel::sortRole);
    m_list = new QTableView(this);
    m_list->setObjectName(QStringLiteral("trashList"));
    m_list->setModel(m_sorted);
    m_list->setTextElideMode(Qt::ElideMiddle);
    m_list->setWordWrap(false);
    m_list->setShowGrid(false);
    m_list->setAlternatingRowColors(true);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->verticalHeader()->hide();
    m_list->setSortingEnabled(true);
    m_list->sortByColumn(TrashListModel::dateColumn, Qt::DescendingOrder);
    QHeaderView *header = m_list->horizontalHeader();
    header->setSectionResizeMode(TrashListModel::nameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(TrashListModel::originColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(TrashListModel::dateColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(TrashListModel::sizeColumn, QHeaderView::ResizeToContents);
    m_list->installEventFilter(this);
    layout->addWidget(m_list, 1);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_statusLabel);

    auto *buttons = new QHBoxLayout;
    m_empty = detail::sheetButton(QStringLiteral("Empty Trash\u2026 (Shift+Del)"),
                                  QStringLiteral("emptyButton"), this);
    auto *close = detail::sheetButton(QStringLiteral("Close (Esc)"), QStringLiteral("closeButton"), this);
    m_delete =
        detail::sheetButton(QStringLiteral("Delete\u2026 (Del)"), QStringLiteral("deleteButton"), this);
    m_restore =
        detail::sheetButton(QStringLiteral("Restore (Return)"), QStringLiteral("restoreButton"), this);
    buttons->addWidget(m_empty);
    buttons->addStretch(1);
    buttons->addWidget(close);
    buttons->addWidget(m_delete);
    buttons->addWidget(m_restore);
    layout->addLayout(buttons);
    connect(m_empty, &QPushButton::clicked, this, &TrashSheet::emptyTrash);
    connect(m_delete, &QPushButton::clicked, this, &TrashSheet::deleteSelected);
    connect(m_restore, &QPushButton::clicked, this, &TrashSheet::restore);
    connect(close, &QPushButton::clicked, this, [this] {
        if (m_dismiss)
            m_dismiss();
    });
    connect(m_rows, &QAbstractItemModel::dataChanged, this, [this] { setStatus(QString()); });
    setFocusProxy(m_list);

    setStatus(QStringLiteral("Reading the Trash\u2026"));
    setBusy(true);
    runInBackground(
        this,
        [volumes = std::move(volumes), stop = m_stop.get_token()] { return readTrashFolders(volumes, stop); },
        [this](TrashReading reading) { read(std::move(reading.items), reading.problem); },
        [this](const std::exception_ptr &error) { read({}, userFacingDescription(error)); });
}

TrashSheet::~TrashSheet()
{
    // A reading still counting folder sizes ends at its next entry.
    m_stop.request_stop();
}

const std::vector<TrashedItem> &TrashSheet::items() const
{
    return m_rows->items();
}

void TrashSheet::read(std::vector<TrashedItem> items, const QString &problem)
{
    m_rows->setItems(std::move(items));
    m_loaded = true;
    setBusy(false);
    if (m_sorted->rowCount() > 0)
        m_list->setCurrentIndex(m_sorted->index(0, TrashListModel::nameColumn));
    setStatus(problem);
}

// An empty text: the summary of what is shown and tagged.
void TrashSheet::setStatus(const QString &status)
{
    m_status = status;
    if (m_status.isEmpty() && m_loaded) {
        std::int64_t bytes = 0;
        for (const TrashedItem &item : m_rows->items())
            bytes += item.size;
        const std::size_t tagged = m_rows->tagged().size();
        if (m_rows->items().empty())
            m_status = QStringLiteral("The Trash is empty.");
        else if (tagged > 0)
            m_status = QStringLiteral("%1 of %2 tagged.").arg(tagged).arg(itemCount(m_rows->items().size()));
        else
            m_status =
                itemCount(m_rows->items().size()) + QStringLiteral(", ") + formattedByteCount(bytes) + ".";
    }
    m_statusLabel->setText(m_status);
}

void TrashSheet::setBusy(bool busy)
{
    m_busy = busy;
    const bool any = !busy && !m_rows->items().empty();
    for (QPushButton *button : {m_restore, m_delete, m_empty})
        button->setEnabled(any);
}

int TrashSheet::currentRow() const
{
    const QModelIndex current = m_sorted->mapToSource(m_list->currentIndex());
    return current.isValid() ? current.row() : -1;
}

std::vector<TrashSheet::Path> TrashSheet::selected() const
{
    std::vector<Path> items = m_rows->tagged();
    if (items.empty() && currentRow() >= 0)
        items.push_back(m_rows->item(currentRow()).trashed);
    return items;
}

void TrashSheet::toggleTagAndAdvance()
{
    const int row = currentRow();
    if (row < 0)
        return;
    m_rows->setTagged(row, !m_rows->isTagged(row));
    const int next = m_list->currentIndex().row() + 1;
    if (next < m_sorted->rowCount())
        m_list->setCurrentIndex(m_sorted->index(next, TrashListModel::nameColumn));
}

void TrashSheet::restore()
{
    const std::vector<Path> items = selected();
    if (m_busy || items.empty())
        return;
    std::map<Path, Path> origins;
    for (const TrashedItem &item : m_rows->items())
        origins[item.trashed] = item.origin;
    std::vector<Path> wanted;
    for (const Path &item : items)
        if (const Path &origin = origins[item]; !origin.empty())
            wanted.push_back(origin);
    // Whether the names are free is a look at the disk, which may hang on a
    // sleeping volume: not on the interface thread.
    setBusy(true);
    setStatus(QStringLiteral("Looking where the items came from\u2026"));
    runInBackground(
        this,
        [wanted] {
            std::vector<Path> taken;
            struct stat info {};
            for (const Path &origin : wanted)
                if (::lstat(origin.c_str(), &info) == 0)
                    taken.push_back(origin);
            return taken;
        },
        [this, items](const std::vector<Path> &taken) {
            setBusy(false);
            setStatus(QString());
            if (m_model.restoreFromTrash(items, taken) && m_dismiss)
                m_dismiss();
        },
        [this](const std::exception_ptr &error) {
            setBusy(false);
            setStatus(userFacingDescription(error));
        });
}

void TrashSheet::deleteSelected()
{
    const std::vector<Path> items = selected();
    if (m_busy || items.empty())
        return;
    if (m_model.deleteFromTrash(items) && m_dismiss)
        m_dismiss();
}

void TrashSheet::emptyTrash()
{
    if (m_busy || m_rows->items().empty())
        return;
    std::vector<Path> items;
    for (const TrashedItem &item : m_rows->items())
        items.push_back(item.trashed);
    if (m_model.emptyTrash(items) && m_dismiss)
        m_dismiss();
}

bool TrashSheet::key(const QKeyEvent &event)
{
    const Qt::KeyboardModifiers modifiers = event.modifiers() & ~Qt::KeypadModifier;
    switch (event.key()) {
    case Qt::Key_Space:
    case Qt::Key_Insert:
        if (modifiers != Qt::NoModifier)
            return false;
        toggleTagAndAdvance();
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        restore();
        return true;
    case Qt::Key_Delete:
        if (modifiers == Qt::ShiftModifier)
            emptyTrash();
        else
            deleteSelected();
        return true;
    case Qt::Key_F8:
        deleteSelected();
        return true;
    default:
        return false;
    }
}

bool TrashSheet::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_list && event->type() == QEvent::KeyPress && key(*static_cast<QKeyEvent *>(event)))
        return true;
    return QWidget::eventFilter(watched, event);
}

void TrashSheet::keyPressEvent(QKeyEvent *event)
{
    if (!key(*event))
        QWidget::keyPressEvent(event);
}

} // namespace quillorn
