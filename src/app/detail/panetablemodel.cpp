#include "app/detail/panetablemodel.h"

#include "model/panemodel.h"
#include "platform/core/displaytext.h"
#include "platform/core/numericdate.h"
#include "platform/desktop/bytecount.h"

namespace quillorn::detail {

QString byteCountText(std::int64_t bytes, bool lowerBound)
{
    return lowerBound ? QStringLiteral("≥ ") + formattedByteCount(bytes) : formattedByteCount(bytes);
}

PaneTableModel::PaneTableModel(PaneModel &pane, QObject *parent)
    : QAbstractTableModel(parent), m_pane(pane), m_rows(pane.visibleCount()), m_shownCursor(pane.cursor())
{
    connect(&m_pane, &PaneModel::visibleChanged, this, &PaneTableModel::resetRows);
    connect(&m_pane, &PaneModel::selectionChanged, this, &PaneTableModel::repaintTagChanges);
    connect(&m_pane, &PaneModel::cursorChanged, this, &PaneTableModel::repaintCursorChange);
    connect(&m_pane, &PaneModel::cutChanged, this, [this] {
        if (m_rows > 0)
            Q_EMIT dataChanged(index(0, 0), index(m_rows - 1, columnCount_ - 1), {cutRole});
    });
    auto headers = [this] { Q_EMIT headerDataChanged(Qt::Horizontal, 0, columnCount_ - 1); };
    connect(&m_pane, &PaneModel::sortChanged, this, headers);
    connect(&m_pane, &PaneModel::ascendingChanged, this, headers);
    connect(&m_pane.folderSizes(), &FolderSizes::sizesChanged, this, &PaneTableModel::repaintSizes);
}

int PaneTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int PaneTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

const FileEntry *PaneTableModel::entryAt(int row) const
{
    if (row < 0 || row >= m_rows || row >= m_pane.visibleCount())
        return nullptr;
    return &m_pane.visibleAt(row);
}

std::optional<int> PaneTableModel::rowOf(const std::filesystem::path &url) const
{
    const auto row = m_pane.visibleIndexOf(url);
    if (!row || *row >= m_rows)
        return std::nullopt;
    return row;
}

std::optional<int> PaneTableModel::cursorRow() const
{
    return m_pane.cursor() ? rowOf(*m_pane.cursor()) : std::nullopt;
}

QVariant PaneTableModel::displayText(const FileEntry &entry, int column) const
{
    switch (column) {
    case nameColumn:
        return displayName(entry.name());
    case sizeColumn:
        return entry.directory ? folderSizeText(entry) : formattedByteCount(entry.size);
    case modifiedColumn:
        return formatNumericDate(entry.modified, m_locale);
    default:
        return {};
    }
}

QString PaneTableModel::folderSizeText(const FileEntry &entry) const
{
    const FolderSizes::Size *size = m_pane.folderSizes().find(entry.url());
    if (!size)
        return QStringLiteral("<DIR>");
    if (size->counting && size->bytes == 0)
        return QStringLiteral("…"); // nothing heard from the count yet
    const QString text = byteCountText(size->bytes, size->partial);
    return size->counting ? text + QStringLiteral("…") : text;
}

QVariant PaneTableModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const FileEntry *entry = entryAt(index.row());
    if (!entry)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return displayText(*entry, index.column());
    case Qt::ToolTipRole:
        return index.column() == nameColumn ? QVariant(displayName(entry->name())) : QVariant();
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(index.column() == nameColumn ? Qt::AlignLeft | Qt::AlignVCenter
                                                                : Qt::AlignRight | Qt::AlignVCenter);
    case taggedRole:
        return !m_pane.selection().empty() && m_pane.isTagged(entry->url());
    case cursorRole:
        return m_pane.cursor() && entry->hasUrl(*m_pane.cursor());
    case cutRole:
        return !m_pane.cut().empty() && m_pane.cut().contains(entry->url());
    case directoryRole:
        return entry->directory;
    case pathRole: {
        const std::string bytes = entry->url().native();
        return QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size()));
    }
    default:
        return {};
    }
}

QVariant PaneTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount_)
        return QAbstractTableModel::headerData(section, orientation, role);
    const FileSort key = allFileSorts[static_cast<std::size_t>(section)];
    if (role == Qt::DisplayRole) {
        const auto raw = rawValue(key);
        QString text = QString::fromLatin1(raw.data(), static_cast<qsizetype>(raw.size())).toUpper();
        if (key == m_pane.sort())
            text += m_pane.ascending() ? QStringLiteral(" ↑") : QStringLiteral(" ↓");
        return text;
    }
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(section == nameColumn ? Qt::AlignLeft | Qt::AlignVCenter
                                                         : Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags PaneTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

void PaneTableModel::resetRows()
{
    beginResetModel();
    m_rows = m_pane.visibleCount();
    m_shownCursor = m_pane.cursor();
    endResetModel();
}

// Working out which rows changed would mean keeping and comparing a copy of a
// selection that can hold every entry; the view repaints only what it shows, so
// announcing all rows costs less.
void PaneTableModel::repaintTagChanges()
{
    if (m_rows > 0)
        Q_EMIT dataChanged(index(0, 0), index(m_rows - 1, columnCount_ - 1), {taggedRole, Qt::DisplayRole});
}

void PaneTableModel::repaintCursorChange()
{
    const auto previous = m_shownCursor;
    m_shownCursor = m_pane.cursor();
    if (previous)
        repaintRow(*previous);
    if (m_shownCursor)
        repaintRow(*m_shownCursor);
}

void PaneTableModel::repaintRow(const std::filesystem::path &url)
{
    if (const auto row = rowOf(url))
        Q_EMIT dataChanged(index(*row, 0), index(*row, columnCount_ - 1), {cursorRole, Qt::DisplayRole});
}

// As with tags: the view repaints only the rows it shows.
void PaneTableModel::repaintSizes()
{
    if (m_rows > 0)
        Q_EMIT dataChanged(index(0, sizeColumn), index(m_rows - 1, sizeColumn), {Qt::DisplayRole});
}

} // namespace quillorn::detail
