#pragma once

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

namespace quillorn {

class OperationControl;

// Compares the folders of the two panes: DirectoryTools::comparison starts in
// the background as soon as the sheet is made, exactly once, and its rows
// appear when it has finished (never part of them). "Close / Cancel" and every
// other way the sheet goes away stop a running comparison.
class CompareSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    CompareSheet(Path left, Path right, std::function<void()> dismiss, QWidget *parent = nullptr);
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

    Path m_left;
    Path m_right;
    std::function<void()> m_dismiss;
    QStringList m_rows;
    QString m_status = initialStatus;
    std::shared_ptr<OperationControl> m_control;

    QLabel *m_statusLabel = nullptr;
    QPlainTextEdit *m_rowList = nullptr;
};

} // namespace quillorn
