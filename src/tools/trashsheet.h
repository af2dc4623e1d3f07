#pragma once

#include "platform/posix/trashcan.h"

#include <QString>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

class QLabel;
class QPushButton;
class QSortFilterProxyModel;
class QTableView;

namespace quillorn {

class CommanderModel;

namespace detail {
class TrashListModel;
}

// The Trash from inside: every item of the home trash and of the trash folders
// on the given volumes, with the name it had, where it came from, when it was
// deleted and its size, read in the background when the sheet opens (folder
// sizes from the trashes' directorysizes, counted and cached where missing).
// The keyboard works it like a pane: the arrows move, Space or Insert tags and
// moves on; the commands act on the tagged items, else on the one under the
// cursor. Return restores (the model asks about taken names after a look in
// the background), Delete deletes for good and Shift+Delete empties the Trash,
// both after the model's confirmation. Each command is one job of the queue,
// and queuing it closes the sheet.
class TrashSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    TrashSheet(CommanderModel &model, std::vector<Path> volumes, std::function<void()> dismiss,
               QWidget *parent = nullptr);
    ~TrashSheet() override;

    const std::vector<TrashedItem> &items() const;
    // Whether the trash folders have been read.
    bool loaded() const { return m_loaded; }
    const QString &status() const { return m_status; }
    // The items the commands act on now: the tagged ones, else the current one.
    std::vector<Path> selected() const;

    void restore();
    void deleteSelected();
    void emptyTrash();
    // Tags or untags the current row and moves to the next.
    void toggleTagAndAdvance();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool key(const QKeyEvent &event);
    void read(std::vector<TrashedItem> items, const QString &problem);
    void setStatus(const QString &status);
    void setBusy(bool busy);
    int currentRow() const;

    CommanderModel &m_model;
    std::function<void()> m_dismiss;
    std::stop_source m_stop;
    bool m_loaded = false;
    bool m_busy = false;
    QString m_status;

    detail::TrashListModel *m_rows = nullptr;
    QSortFilterProxyModel *m_sorted = nullptr;
    QTableView *m_list = nullptr;
    QLabel *m_statusLabel = nullptr;
    QPushButton *m_restore = nullptr;
    QPushButton *m_delete = nullptr;
    QPushButton *m_empty = nullptr;
};

} // namespace quillorn
