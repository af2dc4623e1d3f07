#include "tools/detail/trashlistmodel.h"

#include "platform/core/displaytext.h"
#include "platform/core/numericdate.h"
#include "platform/desktop/bytecount.h"

#include <QDateTime>

namespace quillorn::detail {

void TrashListModel::setItems(std::vector<TrashedItem> items)
{
    beginResetModel();
    m_items = std::move(items);
    m_tagged.clear();
    endResetModel();
}

void TrashListModel::setTagged(int row, bool tagged)
{
    const std::filesystem::path &trashed = item(row).trashed;
    if (tagged == isTagged(row))
        return;
    if (tagged)
        m_tagged.insert(trashed);
    else
        m_tagged.erase(trashed);
    Q_EMIT dataChanged(index(row, 0), index(row, columns - 1));
}

std::vector<std::filesystem::path> TrashListModel::tagged() const
{
    std::vector<std::filesystem::path> items;
    for (const TrashedItem &item : m_items)
        if (m_tagged.count(item.trashed))
            items.push_back(item.trashed);
    return items;
}

QString TrashListModel::shownName(const TrashedItem &item)
{
    return displayName(item.origin.empty() ? item.trashed : item.origin);
}

QString TrashListModel::shownDate(const std::string &deletionDate)
{
    const QString text = QString::fromStdString(deletionDate);
    const QDateTime when = QDateTime::fromString(text, Qt::ISODate);
    if (!when.isValid())
        return text;
    return QLocale().toString(when, numericDatePattern() + QStringLiteral(" hh:mm"));
}

int TrashListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

int TrashListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(columns);
}

QVariant TrashListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    const TrashedItem &item = m_items[std::size_t(index.row())];
    const QString folder =
        item.origin.empty() ? QStringLiteral("Unknown") : displayText(item.origin.parent_path());
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case nameColumn:
            return shownName(item);
        case originColumn:
            return folder;
        case dateColumn:
            return shownDate(item.deletionDate);
        default:
            return formattedByteCount(item.size);
        }
    case sortRole:
        switch (index.column()) {
        case nameColumn:
            return shownName(item).toLower();
        case originColumn:
            return folder.toLower();
        case dateColumn:
            return QString::fromStdString(item.deletionDate);
        default:
            return qint64(item.size);
        }
    case Qt::CheckStateRole:
        if (index.column() == nameColumn)
            return isTagged(index.row()) ? Qt::Checked : Qt::Unchecked;
        return {};
    case Qt::ToolTipRole:
        return item.origin.empty() ? displayText(item.trashed) : displayText(item.origin);
    case Qt::TextAlignmentRole:
        if (index.column() == sizeColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    default:
        return {};
    }
}

bool TrashListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (!index.isValid() || index.column() != nameColumn || role != Qt::CheckStateRole)
        return false;
    setTagged(index.row(), value.toInt() == Qt::Checked);
    return true;
}

Qt::ItemFlags TrashListModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.isValid() && index.column() == nameColumn)
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QVariant TrashListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case nameColumn:
        return QStringLiteral("Name");
    case originColumn:
        return QStringLiteral("Original location");
    case dateColumn:
        return QStringLiteral("Deleted");
    case sizeColumn:
        return QStringLiteral("Size");
    default:
        return {};
    }
}

} // namespace quillorn::detail
