#pragma once

#include "services/queueitem.h"

#include <QAbstractListModel>
#include <QString>
#include <QUuid>
#include <vector>

namespace quillorn {

class TransferQueue;

// The queue's jobs as a list model for the queue view: one row per job, in
// queue order. It keeps its own copy of what the rows show and, at each change
// of the queue, brings it in step with the fewest row operations (removals,
// moves, insertions, changed rows), so views keep their current row, their
// selection and the widgets of the rows that stay.
class QueueListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { StateTextRole = Qt::UserRole + 1, StateRole, IdRole, FailedRole, CarriesRole };

    explicit QueueListModel(TransferQueue &queue, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

    QUuid idAt(int row) const { return m_rows.at(std::size_t(row)).id; }
    JobState stateAt(int row) const { return m_rows.at(std::size_t(row)).state; }
    // The row of a job, or -1.
    int rowOf(const QUuid &id) const;

private:
    struct Row {
        QUuid id;
        QString title;
        JobState state;
        QString text;
        QString carries;
        friend bool operator==(const Row &, const Row &) = default;
    };

    void update();
    void removeGone(const std::vector<Row> &fresh);

    TransferQueue &m_queue;
    std::vector<Row> m_rows;
};

} // namespace quillorn
