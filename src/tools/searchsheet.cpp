#include "tools/searchsheet.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "services/directorytools.h"
#include "services/errortext.h"
#include "tools/backgroundwork.h"
#include "tools/detail/searchresultsmodel.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/showfolderdelegate.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QHideEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace quillorn {

SearchSheet::SearchSheet(Path root, Navigate navigate, std::function<void()> dismiss, QWidget *parent)
    : QWidget(parent), m_root(std::move(root)), m_navigate(std::move(navigate)),
      m_dismiss(std::move(dismiss)), m_control(std::make_shared<OperationControl>())
{
    setObjectName(QStringLiteral("searchSheet"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);

    auto *title = new QLabel(QStringLiteral("Search ") + displayText(m_root), this);
    title->setObjectName(QStringLiteral("sheetTitle"));
    QFont titleFont = title->font();
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(title);

    auto *row = new QHBoxLayout;
    m_query = new QLineEdit(this);
    m_query->setObjectName(QStringLiteral("queryField"));
    m_query->setPlaceholderText(QStringLiteral("Filename contains…"));
    m_hidden = new QCheckBox(QStringLiteral("Hidden"), this);
    m_hidden->setObjectName(QStringLiteral("hiddenToggle"));
    m_search = detail::sheetButton(QStringLiteral("Search"), QStringLiteral("searchButton"), this);
    m_cancel = detail::sheetButton(QStringLiteral("Cancel"), QStringLiteral("cancelButton"), this);
    row->addWidget(m_query, 1);
    row->addWidget(m_hidden);
    row->addWidget(m_search);
    row->addWidget(m_cancel);
    layout->addLayout(row);

    auto *contentRow = new QHBoxLayout;
    m_contents = new QLineEdit(this);
    m_contents->setObjectName(QStringLiteral("containingField"));
    m_contents->setPlaceholderText(QStringLiteral("Containing"));
    m_contents->setAccessibleName(QStringLiteral("Containing"));
    m_matchCase = new QCheckBox(QStringLiteral("Match case"), this);
    m_matchCase->setObjectName(QStringLiteral("matchCaseToggle"));
    m_regularExpression = new QCheckBox(QStringLiteral("Regular expression"), this);
    m_regularExpression->setObjectName(QStringLiteral("regularExpressionToggle"));
    m_binaryFiles = new QCheckBox(QStringLiteral("Binary files"), this);
    m_binaryFiles->setObjectName(QStringLiteral("binaryFilesToggle"));
    contentRow->addWidget(m_contents, 1);
    contentRow->addWidget(m_matchCase);
    contentRow->addWidget(m_regularExpression);
    contentRow->addWidget(m_binaryFiles);
    layout->addLayout(contentRow);

    m_statusLabel = new QLabel(m_status, this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_statusLabel);

    m_results = new detail::SearchResultsModel(this);
    m_list = new QTableView(this);
    m_list->setObjectName(QStringLiteral("resultList"));
    m_list->setModel(m_results);
    m_list->setTextElideMode(Qt::ElideMiddle);
    m_list->setWordWrap(false);
    m_list->setShowGrid(false);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->horizontalHeader()->hide();
    m_list->verticalHeader()->hide();
    m_list->horizontalHeader()->setSectionResizeMode(detail::SearchResultsModel::pathColumn,
                                                     QHeaderView::Stretch);
    m_list->horizontalHeader()->setSectionResizeMode(detail::SearchResultsModel::showFolderColumn,
                                                     QHeaderView::ResizeToContents);
    // The matching line stands between the path and the button, and only after a search inside files.
    m_list->horizontalHeader()->setSectionResizeMode(detail::SearchResultsModel::lineColumn,
                                                     QHeaderView::Stretch);
    m_list->horizontalHeader()->moveSection(detail::SearchResultsModel::lineColumn,
                                            detail::SearchResultsModel::showFolderColumn);
    m_list->setColumnHidden(detail::SearchResultsModel::lineColumn, true);
    auto *delegate = new detail::ShowFolderDelegate(m_list);
    m_list->setItemDelegateForColumn(detail::SearchResultsModel::showFolderColumn, delegate);
    layout->addWidget(m_list, 1);

    auto *bottom = new QHBoxLayout;
    bottom->addStretch(1);
    auto *closeButton = detail::sheetButton(QStringLiteral("Close"), QStringLiteral("closeButton"), this);
    bottom->addWidget(closeButton);
    layout->addLayout(bottom);

    connect(m_query, &QLineEdit::textChanged, this, &SearchSheet::updateControls);
    connect(m_query, &QLineEdit::returnPressed, this, &SearchSheet::search);
    connect(m_contents, &QLineEdit::textChanged, this, &SearchSheet::updateControls);
    connect(m_contents, &QLineEdit::returnPressed, this, &SearchSheet::search);
    connect(m_search, &QPushButton::clicked, this, &SearchSheet::search);
    connect(m_cancel, &QPushButton::clicked, this, &SearchSheet::cancel);
    connect(closeButton, &QPushButton::clicked, this, &SearchSheet::close);
    connect(delegate, &detail::ShowFolderDelegate::clicked, this, &SearchSheet::showFolder);
    connect(m_list, &QTableView::activated, this,
            [this](const QModelIndex &index) { showFolder(index.row()); });
    updateControls();
    setFocusProxy(m_query);
}

SearchSheet::~SearchSheet()
{
    m_control->cancel();
}

void SearchSheet::hideEvent(QHideEvent *event)
{
    // The sheet hides when its dialog closes, by whatever route; a minimised
    // window hides it spontaneously and keeps the work going.
    if (!event->spontaneous())
        m_control->cancel();
    QWidget::hideEvent(event);
}

void SearchSheet::search()
{
    if (m_running)
        return;
    m_running = true;
    m_report = SearchReport();
    m_results->setResults({});
    m_control = std::make_shared<OperationControl>();
    ContentQuery contents;
    contents.text = m_contents->text();
    contents.matchCase = m_matchCase->isChecked();
    contents.regularExpression = m_regularExpression->isChecked();
    contents.binaryFiles = m_binaryFiles->isChecked();
    m_list->setColumnHidden(detail::SearchResultsModel::lineColumn, contents.text.isEmpty());
    updateControls();
    runInBackground(
        this,
        [root = m_root, query = m_query->text(), hidden = m_hidden->isChecked(), contents,
         control = m_control] { return DirectoryTools::search(root, query, hidden, contents, *control); },
        [this](SearchReport report) { finish(std::move(report)); },
        [this](const std::exception_ptr &error) { fail(error); });
}

void SearchSheet::cancel()
{
    m_control->cancel();
}

void SearchSheet::close()
{
    m_control->cancel();
    if (m_dismiss)
        m_dismiss();
}

void SearchSheet::showFolder(int row)
{
    if (row < 0 || std::size_t(row) >= m_report.items.size())
        return;
    if (m_navigate)
        m_navigate(m_report.items[std::size_t(row)].url);
}

QString SearchSheet::statusText(const SearchReport &report)
{
    QString text = QString::number(report.items.size()) + QStringLiteral(" matches");
    if (report.truncated)
        text += QStringLiteral(" (10,000-result limit reached)");
    return text + QStringLiteral(". ") + report.warnings.join(QLatin1Char('\n'));
}

void SearchSheet::finish(SearchReport report)
{
    m_running = false;
    m_report = std::move(report);
    m_results->setResults(m_report.items);
    setStatus(statusText(m_report));
    updateControls();
}

void SearchSheet::fail(const std::exception_ptr &error)
{
    m_running = false;
    try {
        std::rethrow_exception(error);
    } catch (const CancellationError &) {
        setStatus(QStringLiteral("Search cancelled"));
    } catch (...) {
        setStatus(userFacingDescription(error));
    }
    updateControls();
}

void SearchSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

void SearchSheet::updateControls()
{
    m_search->setText(m_running ? QStringLiteral("Searching…") : QStringLiteral("Search"));
    // Not trimmed here: a query of spaces may be searched for (and finds nothing).
    m_search->setEnabled(!m_running && !(m_query->text().isEmpty() && m_contents->text().isEmpty()));
    m_cancel->setVisible(m_running);
}

} // namespace quillorn
