#pragma once

#include "operations/multirename.h"

#include <QAbstractTableModel>
#include <QColor>
#include <vector>

namespace quillorn::detail {

// The preview of a multi-rename as table rows: the old name, the new one and,
// where the new name cannot be given, why. A conflict is marked in words and
// in the failure colour, a name that stays as it is in a dim one.
class RenamePreviewModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { oldColumn, newColumn, problemColumn, columns };

    struct Row {
        NameChange change;
        NameConflict conflict = NameConflict::none;
    };

    using QAbstractTableModel::QAbstractTableModel;

    void setRows(std::vector<Row> rows);
    void setDimColour(const QColor &colour) { m_dim = colour; }
    const std::vector<Row> &rows() const { return m_rows; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // What the problem column says of a conflict; empty for none.
    static QString label(NameConflict conflict);

private:
    std::vector<Row> m_rows;
    QColor m_dim = Qt::gray;
};

} // namespace quillorn::detail
