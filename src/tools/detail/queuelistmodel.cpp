#include "tools/detail/queuelistmodel.h"

#include "services/transferqueue.h"

#include <algorithm>

namespace quillorn {

QueueListModel::QueueListModel(TransferQueue &queue, QObject *parent)
    : QAbstractListModel(parent), m_queue(queue)
{
    connect(&m_queue, &TransferQueue::itemsChanged, this, &QueueListModel::update);
    update();
}

int QueueListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant QueueListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row &row = m_rows[std::size_t(index.row())];
    switch (role) {
    case Qt::DisplayRole:
        return row.title;
    case StateTextRole:
        return row.text;
    case StateRole:
        return int(row.state);
    case IdRole:
        return row.id;
    case FailedRole:
        return row.state == JobState::failed;
    case CarriesRole:
        return row.carries;
    default:
        return {};
    }
}

QHash<int, QByteArray> QueueListModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(StateTextRole, "stateText");
    names.insert(StateRole, "state");
    names.insert(IdRole, "id");
    names.insert(FailedRole, "failed");
    names.insert(CarriesRole, "carries");
    return names;
}

int QueueListModel::rowOf(const QUuid &id) const
{
    const auto it = std::find_if(m_rows.begin(), m_rows.end(), [&](const Row &row) { return row.id == id; });
    return it == m_rows.end() ? -1 : int(it - m_rows.begin());
}

void QueueListModel::removeGone(const std::vector<Row> &fresh)
{
    const auto kept = [&](const Row &row) {
        return std::any_of(fresh.begin(), fresh.end(), [&](const Row &other) { return other.id == row.id; });
    };
    // Back to front, one run of neighbouring rows at a time (clearing finished
    // jobs usually takes one block off the top).
    for (int last = int(m_rows.size()) - 1; last >= 0;) {
        if (kept(m_rows[std::size_t(last)])) {
            --last;
            continue;
        }
        int first = last;
        while (first > 0 && !kept(m_rows[std::size_t(first - 1)]))
            --first;
        beginRemoveRows({}, first, last);
        m_rows.erase(m_rows.begin() + first, m_rows.begin() + last + 1);
        endRemoveRows();
        last = first - 1;
    }
}

void QueueListModel::update()
{
    std::vector<Row> fresh;
    for (const QueueItem &item : m_queue.items())
        fresh.push_back({item.id, item.title, item.state, item.stateText(), item.carries()});
    removeGone(fresh);
    for (int row = 0; row < int(fresh.size()); ++row) {
        const Row &wanted = fresh[std::size_t(row)];
        const int at = rowOf(wanted.id);
        if (at < 0) {
            beginInsertRows({}, row, row);
            m_rows.insert(m_rows.begin() + row, wanted);
            endInsertRows();
            continue;
        }
        if (at != row) {
            // Rows before `row` already match, so the one found lies below it.
            beginMoveRows({}, at, at, {}, row);
            Row moved = std::move(m_rows[std::size_t(at)]);
            m_rows.erase(m_rows.begin() + at);
            m_rows.insert(m_rows.begin() + row, std::move(moved));
            endMoveRows();
        }
        if (m_rows[std::size_t(row)] != wanted) {
            m_rows[std::size_t(row)] = wanted;
            Q_EMIT dataChanged(index(row), index(row));
        }
    }
}

} // namespace quillorn
