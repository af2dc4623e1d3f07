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
    const SearchResult &result = m_results[std::size_t(index.row())];
    if (index.column() == lineColumn) {
        if (result.lineNumber == 0)
            return QString();
        // One line of text: a tab or a control byte would not draw as itself.
        QString line = QString::fromUtf8(result.line.data(), qsizetype(result.line.size()));
        for (QChar &c : line)
            if (c.unicode() < 0x20 || c.unicode() == 0x7f)
                c = QLatin1Char(' ');
        return QString::number(result.lineNumber) + QStringLiteral(": ") + line;
    }
    return QString::fromUtf8(result.relativePath.data(), qsizetype(result.relativePath.size()));
}

} // namespace quillorn::detail
