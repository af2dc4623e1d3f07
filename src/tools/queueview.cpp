#include "tools/queueview.h"

#include "model/commanderthemecolours.h"
#include "operations/appdiagnostics.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/modaldialogs.h"
#include "platform/desktop/reveal.h"
#include "services/transferqueue.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <algorithm>

namespace quillorn {

namespace {

// QProgressBar counts in int; byte counts of big transfers do not fit, so the
// bar runs in steps of a thousandth.
constexpr int progressSteps = 1000;
constexpr int maximumListHeight = 140;

QString percent(double value)
{
    return QString::asprintf("%.1f", value);
}

QLabel *secondaryLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setProperty("secondaryText", true);
    return label;
}

// Without a file manager or an opener the log is still there: say where.
void showLogLocation(QWidget *window, const std::filesystem::path &file)
{
    showAlert(window, {QStringLiteral("Cannot show the log"),
                       QStringLiteral("No file manager could show it. The log is at \u2018%1\u2019.")
                           .arg(displayText(file)),
                       {}});
}

} // namespace

QueueView::QueueView(TransferQueue &queue, QWidget *parent) : QWidget(parent), m_queue(queue)
{
    m_revealLog = [window = QPointer<QWidget>(this)](const std::filesystem::path &file) {
        revealItem(file, [window, file](RevealRoute route) {
            if (route == RevealRoute::failed && window)
                showLogLocation(window->window(), file);
        });
    };
    setObjectName(QStringLiteral("queueView"));
    setAutoFillBackground(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(4);

    auto *header = new QHBoxLayout;
    m_toggle = new QToolButton(this);
    m_toggle->setObjectName(QStringLiteral("operationsToggle"));
    m_toggle->setText(QStringLiteral("Operations"));
    m_toggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_toggle->setAutoRaise(true);
    connect(m_toggle, &QToolButton::clicked, this, [this] { setExpanded(!m_expanded); });
    auto *showLog = m_showLog = new QPushButton(QStringLiteral("Show Log"), this);
    showLog->setObjectName(QStringLiteral("showLogButton"));
    connect(showLog, &QPushButton::clicked, this,
            [this] { m_revealLog(AppDiagnostics::shared().fileURL()); });
    auto *clear = m_clear = new QPushButton(QStringLiteral("Clear finished"), this);
    clear->setObjectName(QStringLiteral("clearFinishedButton"));
    connect(clear, &QPushButton::clicked, this, [this] { m_queue.clearFinished(); });
    for (QPushButton *button : {showLog, clear}) {
        button->setAutoDefault(false);
        button->setFocusPolicy(Qt::NoFocus);
        styleButton(button);
    }
    m_toggle->setFocusPolicy(Qt::NoFocus);
    header->addWidget(m_toggle);
    header->addStretch(1);
    header->addWidget(showLog);
    header->addWidget(clear);
    layout->addLayout(header);

    m_progressBlock = new QWidget(this);
    auto *progress = new QVBoxLayout(m_progressBlock);
    progress->setContentsMargins(0, 0, 0, 0);
    progress->setSpacing(2);
    m_progressBar = new QProgressBar(m_progressBlock);
    m_progressBar->setRange(0, progressSteps);
    m_progressBar->setTextVisible(false);
    m_progressBar->setMaximumHeight(8);
    m_progressLine = new QLabel(m_progressBlock);
    m_progressLine->setObjectName(QStringLiteral("progressLine"));
    m_detail = secondaryLabel(QString(), m_progressBlock);
    colourSecondary(m_detail);
    m_detail->setObjectName(QStringLiteral("detailLine"));
    progress->addWidget(m_progressBar);
    progress->addWidget(m_progressLine);
    progress->addWidget(m_detail);
    layout->addWidget(m_progressBlock);

    m_scroll = new QScrollArea(this);
    m_scroll->setObjectName(QStringLiteral("queueRows"));
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setFocusPolicy(Qt::NoFocus);
    auto *rows = new QWidget(m_scroll);
    m_rows = new QVBoxLayout(rows);
    m_rows->setContentsMargins(0, 0, 0, 0);
    m_rows->setSpacing(2);
    m_rows->addStretch(1);
    m_scroll->setWidget(rows);
    layout->addWidget(m_scroll);

    for (auto signal :
         {&TransferQueue::runningChanged, &TransferQueue::bytesChanged, &TransferQueue::totalChanged,
          &TransferQueue::bytesPerSecondChanged, &TransferQueue::detailChanged})
        connect(&m_queue, signal, this, &QueueView::updateProgress);
    connect(&m_queue, &TransferQueue::itemsChanged, this, &QueueView::rebuildRows);

    setExpanded(true);
    rebuildRows();
    updateProgress();
}

void QueueView::setExpanded(bool expanded)
{
    m_expanded = expanded;
    m_toggle->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
    m_scroll->setVisible(expanded);
}

void QueueView::setColours(const CommanderThemeColours &palette)
{
    m_accent = palette.accent;
    m_button = palette.button;
    m_secondary = textColours(palette).secondary;
    QPalette own = this->palette();
    own.setColor(QPalette::Window, palette.bar);
    own.setColor(QPalette::Highlight, palette.accent);
    setPalette(own);
    styleButton(m_showLog);
    styleButton(m_clear);
    for (QPushButton *cancel : findChildren<QPushButton *>(QStringLiteral("rowCancel")))
        styleButton(cancel);
    // State and detail texts: the theme's secondary colour, not a faded
    // version of the toolkit's text colour, which sank into dark surfaces.
    for (QLabel *label : findChildren<QLabel *>())
        colourSecondary(label);
}

void QueueView::colourSecondary(QLabel *label) const
{
    if (!label->property("secondaryText").toBool())
        return;
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, m_secondary);
    label->setPalette(palette);
}

void QueueView::styleButton(QPushButton *button) const
{
    // Each button gets its own sheet: one on the panel would reach the row
    // labels too, and they draw their state colours from their palettes.
    button->setStyleSheet(
        QStringLiteral("QPushButton { background: %1; border: 1px solid %2; border-radius: 4px;"
                       " padding: 2px 10px; }"
                       "QPushButton:hover { border-color: %2; }")
            .arg(m_button.name(), m_accent.name()));
}

QString QueueView::progressLine(std::int64_t bytes, std::int64_t total, double bytesPerSecond)
{
    double transferred = 0;
    double remaining = 100;
    if (total >= 1) {
        transferred = std::clamp(double(bytes) / double(total) * 100.0, 0.0, 100.0);
        remaining = std::clamp(100.0 - transferred, 0.0, 100.0);
    }
    const QString separator = QStringLiteral("  \u2022  ");
    return formattedByteCount(bytes) + QStringLiteral(" of ") + formattedByteCount(total) + separator +
           percent(transferred) + QStringLiteral("% transferred") + separator + percent(remaining) +
           QStringLiteral("% left") + separator + formattedByteCount(std::int64_t(bytesPerSecond)) +
           QStringLiteral("/s");
}

void QueueView::updateProgress()
{
    const bool running = m_queue.running();
    m_progressBlock->setVisible(running);
    if (!running)
        return;
    const std::int64_t total = std::max<std::int64_t>(m_queue.total(), 1);
    const double fraction = std::clamp(double(m_queue.bytes()) / double(total), 0.0, 1.0);
    m_progressBar->setValue(int(fraction * progressSteps));
    m_progressLine->setText(progressLine(m_queue.bytes(), m_queue.total(), m_queue.bytesPerSecond()));
    m_detail->setText(m_queue.detail());
    m_detail->setVisible(!m_queue.detail().isEmpty());
}

void QueueView::updateVisibility()
{
    setVisible(!m_queue.items().empty());
}

QWidget *QueueView::makeRow(const QueueItem &item)
{
    auto *row = new QWidget;
    row->setObjectName(QStringLiteral("queueRow"));
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *title = new QLabel(item.title, row);
    title->setObjectName(QStringLiteral("rowTitle"));
    QLabel *state = secondaryLabel(item.state, row);
    state->setObjectName(QStringLiteral("rowState"));
    state->setTextInteractionFlags(Qt::TextSelectableByMouse);
    if (item.state.startsWith(QStringLiteral("Failed"))) {
        state->setProperty("secondaryText", false);
        QPalette palette = state->palette();
        palette.setColor(QPalette::WindowText, failureColour);
        state->setPalette(palette);
    } else {
        colourSecondary(state);
    }
    layout->addWidget(title);
    layout->addWidget(state, 1);
    if (!item.isFinished()) {
        auto *cancel = new QPushButton(QStringLiteral("Cancel"), row);
        cancel->setObjectName(QStringLiteral("rowCancel"));
        cancel->setFocusPolicy(Qt::NoFocus);
        cancel->setAutoDefault(false);
        connect(cancel, &QPushButton::clicked, this, [this, id = item.id] { m_queue.cancel(id); });
        styleButton(cancel);
        layout->addWidget(cancel);
    }
    return row;
}

void QueueView::rebuildRows()
{
    // The stretch at the end keeps the rows at the top.
    while (m_rows->count() > 1) {
        QLayoutItem *child = m_rows->takeAt(0);
        delete child->widget();
        delete child;
    }
    int position = 0;
    int height = 0;
    for (const QueueItem &item : m_queue.items()) {
        QWidget *row = makeRow(item);
        m_rows->insertWidget(position++, row);
        row->show(); // at once, not when the layout gets round to it
        height += row->sizeHint().height() + m_rows->spacing();
    }
    // As tall as the rows, up to a few of them; more scroll.
    m_scroll->setFixedHeight(std::min(height, maximumListHeight));
    updateVisibility();
}

} // namespace quillorn
