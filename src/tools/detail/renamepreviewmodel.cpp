#include "tools/detail/renamepreviewmodel.h"

#include "platform/core/displaytext.h"
#include "tools/queueview.h"

#include <QFont>

namespace quillorn::detail {

void RenamePreviewModel::setRows(std::vector<Row> rows)
{
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

int RenamePreviewModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int RenamePreviewModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(columns);
}

QVariant RenamePreviewModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    const Row &row = m_rows[std::size_t(index.row())];
    const bool conflict = row.conflict != NameConflict::none;
    const bool unchanged = row.change.first == row.change.second;
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == oldColumn)
            return displayText(std::filesystem::path(row.change.first));
        if (index.column() == newColumn)
            return displayText(std::filesystem::path(row.change.second));
        return conflict ? QStringLiteral("\u26a0 ") + label(row.conflict) : QString();
    case Qt::ForegroundRole:
        if (conflict && index.column() != oldColumn)
            return QueueView::failureColour;
        if (unchanged && index.column() == newColumn)
            return m_dim;
        return {};
    case Qt::FontRole:
        if (conflict && index.column() == newColumn) {
            QFont bold;
            bold.setBold(true);
            return bold;
        }
        return {};
    case Qt::ToolTipRole:
        return conflict ? QString::fromStdString(conflictMessage(row.conflict, row.change)) : QVariant();
    default:
        return {};
    }
}

QVariant RenamePreviewModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case oldColumn:
        return QStringLiteral("Old name");
    case newColumn:
        return QStringLiteral("New name");
    case problemColumn:
        return QStringLiteral("Conflict");
    default:
        return {};
    }
}

QString RenamePreviewModel::label(NameConflict conflict)
{
    switch (conflict) {
    case NameConflict::none:
        return {};
    case NameConflict::invalid:
        return QStringLiteral("Not a valid name");
    case NameConflict::tooLong:
        return QStringLiteral("Longer than 255 bytes");
    case NameConflict::refusedByVolume:
        return QStringLiteral("Not allowed on this volume");
    case NameConflict::duplicate:
        return QStringLiteral("Same new name as another item");
    case NameConflict::taken:
        return QStringLiteral("Name exists in the folder");
    }
    return {};
}

} // namespace quillorn::detail
