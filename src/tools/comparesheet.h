#pragma once

#include "services/queuejob.h"

#include <QString>
#include <QStringList>
#include <QWidget>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QStackedLayout;

namespace quillorn {

class OperationControl;

// Compares the folders of the two panes: DirectoryTools::comparison starts in
// the background as soon as the sheet is made, exactly once, and its rows
// appear when it has finished (never part of them). "Close / Cancel" and every
// other way the sheet goes away stop a running comparison. After a comparison
// that ended, "Synchronize…" turns the sheet to the plan for the two folders
// (SyncPanel), which queues its checked actions through `enqueue`.
class CompareSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    using Enqueue = std::function<void(const QString &title, Job job)>;

    CompareSheet(Path left, Path right, std::function<void()> dismiss, Enqueue enqueue = {},
                 QWidget *parent = nullptr);
    ~CompareSheet() override;

    // Cancels the comparison and dismisses the sheet.
    void close();

    const QString &status() const { return m_status; }
    // The handle of the current work: the one a close cancels.
    const std::shared_ptr<OperationControl> &control() const { return m_control; }
    const QStringList &rows() const { return m_rows; }

    static inline const QString initialStatus = QStringLiteral("Comparing recursively using SHA-256…");
    static inline const QString note =
        QStringLiteral("Compares file contents and symlink targets, including hidden files. Permissions and "
                       "dates are not compared.");

protected:
    void hideEvent(QHideEvent *event) override;

private:
    void finish(const std::vector<std::string> &rows);
    void fail(const std::exception_ptr &error);
    void setStatus(const QString &status);
    void synchronize();

    Path m_left;
    Path m_right;
    std::function<void()> m_dismiss;
    Enqueue m_enqueue;
    QStringList m_rows;
    QString m_status = initialStatus;
    std::shared_ptr<OperationControl> m_control;

    QLabel *m_statusLabel = nullptr;
    QPlainTextEdit *m_rowList = nullptr;
    QPushButton *m_syncButton = nullptr;
    QStackedLayout *m_pages = nullptr;
    QWidget *m_comparePage = nullptr;
};

} // namespace quillorn
