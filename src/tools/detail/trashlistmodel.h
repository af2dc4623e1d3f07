#pragma once

#include "platform/posix/trashcan.h"

#include <QAbstractTableModel>
#include <filesystem>
#include <set>
#include <vector>

namespace quillorn::detail {

// The Trash as table rows: the name an item had, the folder it came from, when
// it was deleted and its size, each row tagged or not (its name's check box).
// The sort role holds values that sort as the user expects: the deletion
// date's text sorts by time, sizes as numbers.
class TrashListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { nameColumn, originColumn, dateColumn, sizeColumn, columns };
    static constexpr int sortRole = Qt::UserRole;

    using QAbstractTableModel::QAbstractTableModel;

    void setItems(std::vector<TrashedItem> items);
    const std::vector<TrashedItem> &items() const { return m_items; }
    const TrashedItem &item(int row) const { return m_items[std::size_t(row)]; }

    bool isTagged(int row) const { return m_tagged.count(item(row).trashed) > 0; }
    void setTagged(int row, bool tagged);
    // The tagged items' places in the Trash, in row order.
    std::vector<std::filesystem::path> tagged() const;

    // The name the item had: its origin's, else its name in the Trash.
    static QString shownName(const TrashedItem &item);
    // The deletion date in the locale's numeric form with hours and minutes;
    // the recorded text where it is not a date.
    static QString shownDate(const std::string &deletionDate);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::vector<TrashedItem> m_items;
    std::set<std::filesystem::path> m_tagged;
};

} // namespace quillorn::detail
