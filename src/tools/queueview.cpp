#include "tools/queueview.h"

#include "model/commanderthemecolours.h"
#include "operations/appdiagnostics.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/modaldialogs.h"
#include "platform/desktop/reveal.h"
#include "platform/desktop/timeleft.h"
#include "services/transferqueue.h"
#include "tools/detail/queuelistmodel.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMainWindow>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <algorithm>

namespace quillorn {

namespace {

// QProgressBar counts in int; byte counts of big transfers do not fit, so the
// bar runs in steps of a thousandth.
constexpr int progressSteps = 1000;
constexpr int maximumListHeight = 140;

const QString separator = QStringLiteral("  \u2022  ");

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

// Rows as tall as their widgets; it draws only the current row's highlight,
// which shows through the row widget.
class RowDelegate : public QStyledItemDelegate {
public:
    RowDelegate(int height, QListView *list) : QStyledItemDelegate(list), m_list(list), m_height(height) {}
    QSize sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const override
    {
        return {m_list->viewport()->width(), m_height};
    }
    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &) const override
    {
        if (!(option.state & QStyle::State_Selected) || !(option.state & QStyle::State_HasFocus))
            return;
        QColor highlight = option.palette.color(QPalette::Highlight);
        highlight.setAlpha(70);
        painter->fillRect(option.rect, highlight);
    }

private:
    QListView *m_list;
    int m_height;
};

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
    // The key handler leaves Tab, the arrows, Space and Return to this panel.
    setProperty("ownsNavigationKeys", true);
    setAutoFillBackground(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(4);
    buildHeader();

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

    m_rowHeight = QueueRow(QUuid(), [](QueueRow::Action) {}).sizeHint().height();
    m_model = new QueueListModel(m_queue, this);
    m_list = new QListView(this);
    m_list->setObjectName(QStringLiteral("queueList"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(new RowDelegate(m_rowHeight, m_list));
    m_list->setUniformItemSizes(true);
    m_list->setResizeMode(QListView::Adjust); // rows as wide as the list, whatever its width
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setFocusPolicy(Qt::StrongFocus);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->viewport()->setAutoFillBackground(false);
    watchKeys(m_list);
    layout->addWidget(m_list);

    connect(m_model, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex &, int first, int last) { addRows(first, last); });
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, &QueueView::refreshRows);
    connect(m_model, &QAbstractItemModel::rowsMoved, this, &QueueView::refreshRows);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &QueueView::refreshRows);
    for (auto signal :
         {&TransferQueue::runningChanged, &TransferQueue::bytesChanged, &TransferQueue::totalChanged,
          &TransferQueue::bytesPerSecondChanged, &TransferQueue::detailChanged})
        connect(&m_queue, signal, this, &QueueView::updateProgress);
    connect(&m_queue, &TransferQueue::itemsChanged, this, &QueueView::updateSummary);
    connect(&m_queue, &TransferQueue::bytesPerSecondChanged, this, &QueueView::updateSummary);

    setExpanded(true);
    addRows(0, m_model->rowCount() - 1);
    updateProgress();
}

void QueueView::buildHeader()
{
    auto *header = new QHBoxLayout;
    m_toggle = new QToolButton(this);
    m_toggle->setObjectName(QStringLiteral("operationsToggle"));
    m_toggle->setText(QStringLiteral("Operations"));
    m_toggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_toggle->setAutoRaise(true);
    connect(m_toggle, &QToolButton::clicked, this, [this] { setExpanded(!m_expanded); });
    m_summary = secondaryLabel(QString(), this);
    m_summary->setObjectName(QStringLiteral("waitingSummary"));
    auto *showLog = m_showLog = new QPushButton(QStringLiteral("Show Log"), this);
    showLog->setObjectName(QStringLiteral("showLogButton"));
    connect(showLog, &QPushButton::clicked, this,
            [this] { m_revealLog(AppDiagnostics::shared().fileURL()); });
    auto *clear = m_clear = new QPushButton(QStringLiteral("Clear finished"), this);
    clear->setObjectName(QStringLiteral("clearFinishedButton"));
    connect(clear, &QPushButton::clicked, this, [this] { m_queue.clearFinished(); });
    for (QPushButton *button : {showLog, clear}) {
        button->setAutoDefault(false);
        styleButton(button);
    }
    // Reached with Tab; a click leaves the keyboard with the panes.
    for (QWidget *widget : std::initializer_list<QWidget *>{m_toggle, showLog, clear}) {
        widget->setFocusPolicy(Qt::TabFocus);
        watchKeys(widget);
    }
    header->addWidget(m_toggle);
    header->addWidget(m_summary, 1);
    header->addWidget(showLog);
    header->addWidget(clear);
    static_cast<QVBoxLayout *>(layout())->addLayout(header);
}

void QueueView::setExpanded(bool expanded)
{
    m_expanded = expanded;
    m_toggle->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
    m_list->setVisible(expanded);
}

void QueueView::setColours(const CommanderThemeColours &palette)
{
    m_accent = palette.accent;
    m_button = palette.button;
    m_secondary = textColours(palette).secondary;
    QPalette own = this->palette();
    own.setColor(QPalette::Window, palette.bar);
    own.setColor(QPalette::Base, palette.bar);
    own.setColor(QPalette::Highlight, palette.accent);
    setPalette(own);
    for (QPushButton *button : findChildren<QPushButton *>())
        styleButton(button);
    // State and detail texts: the theme's secondary colour, not a faded
    // version of the toolkit's text colour, which sank into dark surfaces.
    for (QLabel *label : findChildren<QLabel *>())
        colourSecondary(label);
    refreshRows(); // the state texts: secondary, or orange for a failure
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
    // labels too, and they draw their state colours from their palettes. The
    // keyboard's stop is drawn in the accent colour, thicker.
    button->setStyleSheet(
        QStringLiteral("QPushButton { background: %1; border: 1px solid %2; border-radius: 4px;"
                       " padding: 2px 10px; }"
                       "QPushButton:hover { border-color: %2; }"
                       "QPushButton:focus { border: 2px solid %2; }")
            .arg(m_button.name(), m_accent.name()));
}

QString QueueView::progressLine(std::int64_t bytes, std::int64_t total, double bytesPerSecond,
                                std::optional<double> secondsLeft)
{
    double transferred = 0;
    double remaining = 100;
    if (total >= 1) {
        transferred = std::clamp(double(bytes) / double(total) * 100.0, 0.0, 100.0);
        remaining = std::clamp(100.0 - transferred, 0.0, 100.0);
    }
    QString line = formattedByteCount(bytes) + QStringLiteral(" of ") + formattedByteCount(total) +
                   separator + percent(transferred) + QStringLiteral("% transferred") + separator +
                   percent(remaining) + QStringLiteral("% left") + separator +
                   formattedByteCount(std::int64_t(bytesPerSecond)) + QStringLiteral("/s");
    // An unknown total has no time left, whatever the speed.
    if (secondsLeft && total >= 1)
        line += separator + formattedTimeLeft(*secondsLeft);
    return line;
}

QString QueueView::waitingLine(std::int64_t bytes, std::optional<double> secondsLeft)
{
    QString line = QStringLiteral("Waiting: ") + formattedByteCount(bytes);
    if (secondsLeft)
        line += separator + formattedTimeLeft(*secondsLeft);
    return line;
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
    m_progressLine->setText(
        progressLine(m_queue.bytes(), m_queue.total(), m_queue.bytesPerSecond(), m_queue.secondsLeft()));
    m_detail->setText(m_queue.detail());
    m_detail->setVisible(!m_queue.detail().isEmpty());
}

void QueueView::updateSummary()
{
    const std::optional<std::int64_t> bytes = m_queue.waitingBytes();
    m_summary->setText(bytes ? waitingLine(*bytes, m_queue.waitingSecondsLeft()) : QString());
    setVisible(!m_queue.items().empty());
}

void QueueView::addRows(int first, int last)
{
    for (int row = first; row <= last; ++row) {
        const QUuid id = m_model->idAt(row);
        auto *widget = new QueueRow(id, [this, id](QueueRow::Action action) { act(id, action); });
        for (QPushButton *button : widget->findChildren<QPushButton *>()) {
            styleButton(button);
            watchKeys(button);
        }
        m_list->setIndexWidget(m_model->index(row), widget);
    }
    refreshRows();
}

void QueueView::refreshRows()
{
    const int rows = m_model->rowCount();
    for (int row = 0; row < rows; ++row) {
        auto *widget = qobject_cast<QueueRow *>(m_list->indexWidget(m_model->index(row)));
        if (!widget)
            continue;
        const auto waitingAt = [&](int other) { return m_model->stateAt(other) == JobState::waiting; };
        bool above = false, below = false;
        for (int other = 0; other < rows; ++other)
            (other < row ? above : below) |= other != row && waitingAt(other);
        const JobState state = m_model->stateAt(row);
        const QModelIndex index = m_model->index(row);
        widget->showJob(index.data().toString(), state, index.data(QueueListModel::StateTextRole).toString(),
                        above, below);
        QLabel *label = widget->stateLabel();
        // Inside the list the label draws with the Text role (its parent's
        // background is Base), elsewhere with WindowText: both are set.
        QPalette palette = label->palette();
        const QColor colour = state == JobState::failed ? failureColour : m_secondary;
        palette.setColor(QPalette::WindowText, colour);
        palette.setColor(QPalette::Text, colour);
        label->setPalette(palette);
    }
    // As tall as the rows, up to a few of them; more scroll.
    m_list->setFixedHeight(std::min(rows * m_rowHeight + 2, maximumListHeight));
    updateSummary();
}

void QueueView::act(const QUuid &id, QueueRow::Action action)
{
    switch (action) {
    case QueueRow::Action::pause:
        m_queue.pause(id);
        break;
    case QueueRow::Action::resume:
        m_queue.resume(id);
        break;
    case QueueRow::Action::moveUp:
        m_queue.moveAmongWaiting(id, -1);
        break;
    case QueueRow::Action::moveDown:
        m_queue.moveAmongWaiting(id, 1);
        break;
    case QueueRow::Action::cancel:
        m_queue.cancel(id);
        break;
    case QueueRow::Action::discard:
        m_queue.discard(id);
        break;
    }
}

bool QueueView::moveCurrent(int direction)
{
    const QModelIndex current = m_list->currentIndex();
    return current.isValid() && m_queue.moveAmongWaiting(m_model->idAt(current.row()), direction);
}

QList<QWidget *> QueueView::tabOrder() const
{
    QList<QWidget *> stops{m_toggle, m_showLog, m_clear};
    if (m_expanded && m_model->rowCount() > 0) {
        stops << m_list;
        for (int row = 0; row < m_model->rowCount(); ++row)
            if (auto *widget = qobject_cast<QueueRow *>(m_list->indexWidget(m_model->index(row))))
                for (QPushButton *button : widget->buttons())
                    stops << button;
    }
    return stops;
}

void QueueView::watchKeys(QWidget *widget)
{
    widget->installEventFilter(this);
}

bool QueueView::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const auto *key = static_cast<QKeyEvent *>(event);
    const Qt::KeyboardModifiers modifiers = key->modifiers() & ~Qt::KeypadModifier;
    if (watched == m_list && modifiers == Qt::AltModifier &&
        (key->key() == Qt::Key_Up || key->key() == Qt::Key_Down)) {
        moveCurrent(key->key() == Qt::Key_Up ? -1 : 1);
        return true;
    }
    if (key->key() == Qt::Key_Escape) {
        if (auto *window = qobject_cast<QMainWindow *>(this->window()); window && window->centralWidget())
            window->centralWidget()->setFocus(Qt::OtherFocusReason);
        return true;
    }
    if (key->key() == Qt::Key_Tab || key->key() == Qt::Key_Backtab) {
        // Round the panel's own stops: the window's Tab switches panes.
        const QList<QWidget *> stops = tabOrder();
        const int at = int(stops.indexOf(static_cast<QWidget *>(watched)));
        const int step = key->key() == Qt::Key_Backtab ? -1 : 1;
        const int next = at < 0 ? 0 : int((at + step + stops.size()) % stops.size());
        stops.at(next)->setFocus(key->key() == Qt::Key_Backtab ? Qt::BacktabFocusReason : Qt::TabFocusReason);
        if (stops.at(next) == m_list && !m_list->currentIndex().isValid())
            m_list->setCurrentIndex(m_model->index(0));
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace quillorn
