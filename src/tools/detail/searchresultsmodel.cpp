#include "tools/detail/searchresultsmodel.h"

namespace quillorn::detail {

void SearchResultsModel::setResults(std::vector<SearchResult> results)
{
    beginResetModel();
    m_results = std::move(results);
    endResetModel();
}

int SearchResultsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_results.size());
}

int SearchResultsModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(columns);
}

QVariant SearchResultsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || role != Qt::DisplayRole)
        return {};
    if (index.column() == showFolderColumn)
        return QStringLiteral("Show folder");
    const std::string &path = m_results[std::size_t(index.row())].relativePath;
    return QString::fromUtf8(path.data(), qsizetype(path.size()));
}

} // namespace quillorn::detail
