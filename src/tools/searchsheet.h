#pragma once

#include "services/searchreport.h"

#include <QString>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

namespace quillorn {

class OperationControl;

namespace detail {
class SearchResultsModel;
}

// Finds items by name below one folder, or files by what they contain: runs
// DirectoryTools::search in the background, one search at a time, lists the
// hits by relative path (with the first matching line of a file) and hands
// a hit to `navigate` for "Show folder" (the host shows its folder in the
// active pane with the cursor on it and closes the sheet). Every way the sheet
// goes away cancels a running search.
class SearchSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;
    using Navigate = std::function<void(const Path &hit)>;

    SearchSheet(Path root, Navigate navigate, std::function<void()> dismiss, QWidget *parent = nullptr);
    ~SearchSheet() override;

    // Starts a search for the query as typed; nothing while one runs.
    void search();
    void cancel();
    // Cancels and dismisses the sheet.
    void close();
    // Shows the folder that holds the hit in `row`, at the hit.
    void showFolder(int row);

    const QString &status() const { return m_status; }
    // The handle of the current work: the one a close cancels.
    const std::shared_ptr<OperationControl> &control() const { return m_control; }
    bool running() const { return m_running; }
    const SearchReport &report() const { return m_report; }

    // "12 matches. ", with the limit note and the warnings after ". ".
    static QString statusText(const SearchReport &report);

    static inline const QString initialStatus =
        QStringLiteral("Search names recursively; symbolic links are not followed.");

protected:
    void hideEvent(QHideEvent *event) override;

private:
    void finish(SearchReport report);
    void fail(const std::exception_ptr &error);
    void setStatus(const QString &status);
    void updateControls();

    Path m_root;
    Navigate m_navigate;
    std::function<void()> m_dismiss;
    SearchReport m_report;
    QString m_status = initialStatus;
    bool m_running = false;
    std::shared_ptr<OperationControl> m_control;

    QLineEdit *m_query = nullptr;
    QCheckBox *m_hidden = nullptr;
    QLineEdit *m_contents = nullptr;
    QCheckBox *m_matchCase = nullptr;
    QCheckBox *m_regularExpression = nullptr;
    QCheckBox *m_binaryFiles = nullptr;
    QPushButton *m_search = nullptr;
    QPushButton *m_cancel = nullptr;
    QLabel *m_statusLabel = nullptr;
    QTableView *m_list = nullptr;
    detail::SearchResultsModel *m_results = nullptr;
};

} // namespace quillorn
