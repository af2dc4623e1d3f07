#pragma once

#include "model/renamepattern.h"
#include "operations/multirename.h"

#include <QString>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTableView;

namespace quillorn {

class TransferQueue;

namespace detail {
class RenamePreviewModel;
}

// Renames many items of one folder at once: the user sets a RenamePattern and
// sees every old name beside its new one, with each conflict marked, before
// anything runs. The folder's names and volume are read once in the background
// when the sheet opens; the Rename button (and Return) stays off until they
// are there, while any conflict remains, or when no name changes. Renaming
// adds one MultiRenameJob of the changed names to the queue and closes the
// sheet; the job checks the folder again as it starts.
class MultiRenameSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    MultiRenameSheet(Path folder, std::vector<Path> items, TransferQueue &queue,
                     std::function<void()> dismiss, QWidget *parent = nullptr);

    // The rules as the fields set them now.
    RenamePattern::Rules rules() const;
    // Every item with its new name, in order; empty until the folder is read.
    const std::vector<NameChange> &plan() const { return m_plan; }
    bool canRename() const;
    const QString &status() const { return m_status; }

    // Queues the renames of the names that change, then closes the sheet; nothing
    // while canRename() is false.
    void rename();
    void cancel();

    // "Multi-rename 3 item(s)": the queue row's title.
    static QString queueTitle(std::size_t count);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void read(RenameFolder folder);
    void update();
    void setStatus(const QString &status);

    Path m_folder;
    std::vector<std::string> m_names;
    TransferQueue &m_queue;
    std::function<void()> m_dismiss;
    std::optional<RenameFolder> m_read;
    std::vector<NameChange> m_plan;
    std::size_t m_changes = 0;   // names in the plan that change
    std::size_t m_conflicts = 0; // of those, the ones that cannot be given
    bool m_ruleProblem = false;
    QString m_status;

    QLineEdit *m_pattern = nullptr;
    QSpinBox *m_start = nullptr;
    QSpinBox *m_step = nullptr;
    QSpinBox *m_digits = nullptr;
    QLineEdit *m_search = nullptr;
    QLineEdit *m_replacement = nullptr;
    QCheckBox *m_regularExpression = nullptr;
    QCheckBox *m_caseSensitive = nullptr;
    QComboBox *m_letterCase = nullptr;
    QTableView *m_preview = nullptr;
    detail::RenamePreviewModel *m_rows = nullptr;
    QLabel *m_statusLabel = nullptr;
    QPushButton *m_rename = nullptr;
};

} // namespace quillorn
