#pragma once

#include "services/searchreport.h"

#include <QAbstractTableModel>
#include <vector>

namespace quillorn::detail {

// The hits of a search as table rows: the relative path, the "Show folder"
// cell that ShowFolderDelegate draws as a button, and the first matching line
// of a search inside files ("12: text"; the sheet shows it before the button).
class SearchResultsModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { pathColumn, showFolderColumn, lineColumn, columns };

    using QAbstractTableModel::QAbstractTableModel;

    void setResults(std::vector<SearchResult> results);
    const SearchResult &result(int row) const { return m_results[std::size_t(row)]; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    std::vector<SearchResult> m_results;
};

} // namespace quillorn::detail
