#include "tools/comparesheet.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "services/directorytools.h"
#include "services/errortext.h"
#include "tools/backgroundwork.h"
#include "tools/detail/sheetbutton.h"
#include "tools/detail/sheetlabels.h"
#include "tools/syncpanel.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedLayout>
#include <QVBoxLayout>

namespace quillorn {

CompareSheet::CompareSheet(Path left, Path right, std::function<void()> dismiss, Enqueue enqueue,
                           QWidget *parent)
    : QWidget(parent), m_left(std::move(left)), m_right(std::move(right)), m_dismiss(std::move(dismiss)),
      m_enqueue(std::move(enqueue)), m_control(std::make_shared<OperationControl>())
{
    setObjectName(QStringLiteral("compareSheet"));
    m_pages = new QStackedLayout(this);
    m_pages->setContentsMargins(0, 0, 0, 0);
    m_comparePage = new QWidget(this);
    m_pages->addWidget(m_comparePage);
    auto *layout = new QVBoxLayout(m_comparePage);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    layout->addWidget(detail::sheetTitle(QStringLiteral("Compare folders"), this));

    auto *roots = new QLabel(QStringLiteral("Left: ") + displayText(m_left) + QLatin1Char('\n') +
                                 QStringLiteral("Right: ") + displayText(m_right),
                             this);
    roots->setObjectName(QStringLiteral("rootsLabel"));
    roots->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont small = roots->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    roots->setFont(small);
    layout->addWidget(roots);

    layout->addWidget(detail::sheetNote(note, this));

    m_statusLabel = new QLabel(m_status, this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_statusLabel);

    m_rowList = new QPlainTextEdit(this);
    m_rowList->setObjectName(QStringLiteral("rowList"));
    m_rowList->setReadOnly(true);
    m_rowList->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_rowList->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    layout->addWidget(m_rowList, 1);

    auto *bottom = new QHBoxLayout;
    bottom->addStretch(1);
    m_syncButton =
        detail::sheetButton(QStringLiteral("Synchronize…"), QStringLiteral("synchronizeButton"), this);
    m_syncButton->setEnabled(false);
    bottom->addWidget(m_syncButton);
    connect(m_syncButton, &QPushButton::clicked, this, &CompareSheet::synchronize);
    auto *closeButton = new QPushButton(QStringLiteral("Close / Cancel"), this);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    closeButton->setAutoDefault(false);
    bottom->addWidget(closeButton);
    layout->addLayout(bottom);
    connect(closeButton, &QPushButton::clicked, this, &CompareSheet::close);
    setFocusProxy(closeButton);

    runInBackground(
        this,
        [left = m_left, right = m_right, control = m_control] {
            return DirectoryTools::comparison(left, right, *control);
        },
        [this](const std::vector<std::string> &rows) { finish(rows); },
        [this](const std::exception_ptr &error) { fail(error); });
}

CompareSheet::~CompareSheet()
{
    m_control->cancel();
}

void CompareSheet::hideEvent(QHideEvent *event)
{
    // The sheet hides when its dialog closes, by whatever route; a minimised
    // window hides it spontaneously and keeps the work going.
    if (!event->spontaneous())
        m_control->cancel();
    QWidget::hideEvent(event);
}

void CompareSheet::close()
{
    m_control->cancel();
    if (m_dismiss)
        m_dismiss();
}

void CompareSheet::finish(const std::vector<std::string> &rows)
{
    m_rows.clear();
    m_rows.reserve(qsizetype(rows.size()));
    for (const std::string &row : rows)
        m_rows << QString::fromUtf8(row.data(), qsizetype(row.size()));
    m_rowList->setPlainText(m_rows.join(QLatin1Char('\n')));
    setStatus(m_rows.isEmpty() ? QStringLiteral("Folder contents match")
                               : QString::number(m_rows.size()) + QStringLiteral(" differences"));
    m_syncButton->setEnabled(true);
}

void CompareSheet::synchronize()
{
    auto *panel = new SyncPanel(m_left, m_right, m_enqueue, this);
    m_pages->addWidget(panel);
    m_pages->setCurrentWidget(panel);
    setFocusProxy(panel);
    panel->findChild<QWidget *>(QStringLiteral("bothWays"))->setFocus();
    connect(panel, &SyncPanel::back, this, [this, panel] {
        m_pages->setCurrentWidget(m_comparePage);
        setFocusProxy(m_syncButton);
        m_syncButton->setFocus();
        panel->deleteLater();
    });
    // The queue shows the job from here on.
    connect(panel, &SyncPanel::queued, this, &CompareSheet::close);
}

void CompareSheet::fail(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CancellationError &) {
        setStatus(QStringLiteral("Cancelled"));
    } catch (...) {
        setStatus(errorDescription(error));
    }
}

void CompareSheet::setStatus(const QString &status)
{
    m_status = status;
    m_statusLabel->setText(status);
}

} // namespace quillorn
