#pragma once

#include "services/zipentry.h"

#include <QAbstractListModel>
#include <QIcon>
#include <vector>

namespace quillorn::detail {

// The archive sheet's member list: every entry, in listing order, whose whole
// path contains the filter, ignoring case; the filter only hides rows.
class ArchiveMemberModel : public QAbstractListModel {
    Q_OBJECT
public:
    explicit ArchiveMemberModel(QObject *parent = nullptr);

    void setEntries(std::vector<ZipEntry> entries);
    void setFilter(const QString &filter);
    const std::vector<ZipEntry> &entries() const { return m_entries; }

    // The row showing the named entry, or -1 when it is hidden or absent.
    int rowOf(const QString &name) const;
    const ZipEntry &entry(int row) const { return m_entries[std::size_t(m_shown[std::size_t(row)])]; }

    // A row's text: the name, then size, date and "encrypted" where known.
    static QString described(const ZipEntry &entry);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;

private:
    void refilter();

    std::vector<ZipEntry> m_entries;
    std::vector<int> m_shown;
    QString m_filter;
    QIcon m_folder;
    QIcon m_document;
};

} // namespace quillorn::detail
