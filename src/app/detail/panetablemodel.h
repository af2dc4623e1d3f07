#pragma once

#include <QAbstractTableModel>
#include <QLocale>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quillorn {
class PaneModel;
class FileEntry;
} // namespace quillorn

namespace quillorn::detail {

// A byte count as the rows and the footer show it: "≥ 1.2 GB" for a lower bound.
QString byteCountText(std::int64_t bytes, bool lowerBound);

// Presents PaneModel::visible() to a table view, one row per entry, keyed by
// the entry's URL. A new visible list resets the model; tag and cursor changes
// only announce changed data, so the view keeps its scroll position. The column headers carry the sort
// key and direction. A folder's size cell shows its counted size once asked
// for ("12.3 MB…" while counting), else "<DIR>".
class PaneTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { nameColumn, sizeColumn, modifiedColumn, columnCount_ };
    enum Role {
        taggedRole = Qt::UserRole + 1,
        cursorRole,
        directoryRole,
        pathRole, // the entry's path bytes as a QByteArray
        cutRole,  // cut to the clipboard: drawn dimmed
    };

    explicit PaneTableModel(PaneModel &pane, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    const FileEntry *entryAt(int row) const;
    std::optional<int> rowOf(const std::filesystem::path &url) const;
    std::optional<int> cursorRow() const;

private:
    void resetRows();
    void repaintTagChanges();
    void repaintCursorChange();
    void repaintRow(const std::filesystem::path &url);
    void repaintSizes();
    QString folderSizeText(const FileEntry &entry) const;
    QVariant displayText(const FileEntry &entry, int column) const;

    PaneModel &m_pane;
    int m_rows = 0;
    std::optional<std::filesystem::path> m_shownCursor;
    QLocale m_locale;
};

} // namespace quillorn::detail
