#include "tools/detail/archivemembermodel.h"

#include "platform/desktop/bytecount.h"

#include <QApplication>
#include <QDateTime>
#include <QStyle>

namespace quillorn::detail {

ArchiveMemberModel::ArchiveMemberModel(QObject *parent)
    : QAbstractListModel(parent), m_folder(QApplication::style()->standardIcon(QStyle::SP_DirIcon)),
      m_document(QApplication::style()->standardIcon(QStyle::SP_FileIcon))
{
}

void ArchiveMemberModel::setEntries(std::vector<ZipEntry> entries)
{
    m_entries = std::move(entries);
    refilter();
}

void ArchiveMemberModel::setFilter(const QString &filter)
{
    if (filter == m_filter)
        return;
    m_filter = filter;
    refilter();
}

void ArchiveMemberModel::refilter()
{
    beginResetModel();
    m_shown.clear();
    m_shown.reserve(m_entries.size());
    for (std::size_t index = 0; index < m_entries.size(); ++index)
        if (m_filter.isEmpty() || m_entries[index].name.contains(m_filter, Qt::CaseInsensitive))
            m_shown.push_back(int(index));
    endResetModel();
}

int ArchiveMemberModel::rowOf(const QString &name) const
{
    for (std::size_t row = 0; row < m_shown.size(); ++row)
        if (m_entries[std::size_t(m_shown[row])].name == name)
            return int(row);
    return -1;
}

QString ArchiveMemberModel::described(const ZipEntry &entry)
{
    // unzip's listing gives names alone; the library's also sizes and dates.
    QString text = entry.name;
    if (entry.size >= 0)
        text += QStringLiteral("  \u00b7  ") + formattedByteCount(entry.size);
    if (entry.modified >= 0)
        text += QStringLiteral("  \u00b7  ") +
                QDateTime::fromSecsSinceEpoch(entry.modified).toString(QStringLiteral("yyyy-MM-dd HH:mm"));
    if (entry.encrypted)
        text += QStringLiteral("  \u00b7  encrypted");
    return text;
}

int ArchiveMemberModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_shown.size());
}

QVariant ArchiveMemberModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const ZipEntry &shown = entry(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return described(shown);
    case Qt::DecorationRole:
        return shown.directory() ? m_folder : m_document;
    default:
        return {};
    }
}

} // namespace quillorn::detail
