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

#include <QAbstractButton>
#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMainWindow>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <algorithm>

namespace quillorn {

namespace {

// QProgressBar counts in int; byte counts of big transfers do not fit, so the
// bar runs in steps of a thousandth.
constexpr int progressSteps = 1000;
// Rows the list grows to before it scrolls.
constexpr int listedRows = 4;

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

// Asks for all its content needs, as it is now: QScrollArea keeps the size
// its content wanted when it was set, before any job was listed.
class PanelScroll : public QScrollArea {
public:
    using QScrollArea::QScrollArea;
    QSize sizeHint() const override { return widget() ? widget()->sizeHint() : QScrollArea::sizeHint(); }
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
    // In a short window the panel gives way to the file lists and scrolls.
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    m_scroll = new PanelScroll(this);
    m_scroll->setObjectName(QStringLiteral("queueScroll"));
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setFocusPolicy(Qt::NoFocus);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *content = new QWidget(m_scroll);
    content->setObjectName(QStringLiteral("queueContent"));
    auto *layout = new QVBoxLayout(content);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->setSpacing(4);
    buildHeader(layout);

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

    QueueRow sample(QUuid(), [](QueueRow::Action) {});
    sample.showJob(QStringLiteral("Copy"), QStringLiteral("\u2018a\u2019"), JobState::running,
                   QStringLiteral("Running"), false, false);
    m_rowHeight = sample.sizeHint().height();
    // Before the model's own connection: what has the keyboard is noted before
    // the list changes under it.
    connect(&m_queue, &TransferQueue::itemsChanged, this, &QueueView::rememberFocus);
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
    m_scroll->setWidget(content);
    // The panel's own surface shows through.
    content->setAutoFillBackground(false);
    m_scroll->viewport()->setAutoFillBackground(false);
    outer->addWidget(m_scroll);
    // At the least the header stays in sight.
    m_scroll->setMinimumHeight(m_toggle->sizeHint().height() + layout->contentsMargins().top() +
                               layout->contentsMargins().bottom());

    connect(m_model, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex &, int first, int last) { addRows(first, last); });
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, &QueueView::refreshRows);
    connect(m_model, &QAbstractItemModel::rowsMoved, this, &QueueView::refreshRows);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &QueueView::refreshRows);
    for (auto signal :
         {&TransferQueue::runningChanged, &TransferQueue::bytesChanged, &TransferQueue::totalChanged,
          &TransferQueue::bytesPerSecondChanged, &TransferQueue::detailChanged})
        connect(&m_queue, signal, this, &QueueView::updateProgress);
    connect(&m_queue, &TransferQueue::itemsChanged, this, [this] {
        updateSummary();
        restoreFocus();
        followRunning();
    });
    connect(&m_queue, &TransferQueue::itemCountChanged, this, &QueueView::updateProgress);
    connect(&m_queue, &TransferQueue::bytesPerSecondChanged, this, &QueueView::updateSummary);

    setExpanded(true);
    addRows(0, m_model->rowCount() - 1);
    updateProgress();
}

void QueueView::buildHeader(QVBoxLayout *layout)
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
    layout->addLayout(header);
}

void QueueView::setExpanded(bool expanded)
{
    m_expanded = expanded;
    m_toggle->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
    m_list->setVisible(expanded);
    m_scroll->updateGeometry();
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

QString QueueView::itemsLine(std::int64_t done, std::int64_t total)
{
    const QLocale locale;
    return locale.toString(qlonglong(done)) + QStringLiteral(" of ") + locale.toString(qlonglong(total)) +
           QStringLiteral(" items done") + separator +
           locale.toString(qlonglong(std::max<std::int64_t>(total - done, 0))) + QStringLiteral(" left");
}

void QueueView::updateProgress()
{
    const bool running = m_queue.running();
    if (m_progressBlock->isVisibleTo(this) != running) {
        m_progressBlock->setVisible(running);
        m_scroll->updateGeometry();
    }
    if (!running)
        return;
    // Empty files and folders move no bytes: their count is the progress.
    const bool byItems = m_queue.total() < 1 && m_queue.itemsTotal() > 0;
    const std::int64_t done = byItems ? m_queue.itemsDone() : m_queue.bytes();
    const std::int64_t total = std::max<std::int64_t>(byItems ? m_queue.itemsTotal() : m_queue.total(), 1);
    const double fraction = std::clamp(double(done) / double(total), 0.0, 1.0);
    m_progressBar->setValue(int(fraction * progressSteps));
    m_progressLine->setText(byItems ? itemsLine(m_queue.itemsDone(), m_queue.itemsTotal())
                                    : progressLine(m_queue.bytes(), m_queue.total(), m_queue.bytesPerSecond(),
                                                   m_queue.secondsLeft()));
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
        widget->showJob(index.data().toString(), index.data(QueueListModel::CarriesRole).toString(), state,
                        index.data(QueueListModel::StateTextRole).toString(), above, below);
        colourSecondary(widget->carriesLabel());
        QLabel *label = widget->stateLabel();
        // Inside the list the label draws with the Text role (its parent's
        // background is Base), elsewhere with WindowText: both are set.
        QPalette palette = label->palette();
        const QColor colour = state == JobState::failed ? failureColour : m_secondary;
        palette.setColor(QPalette::WindowText, colour);
        palette.setColor(QPalette::Text, colour);
        label->setPalette(palette);
    }
    // As tall as the rows, up to a few of them; more scroll. In a short window
    // it gives way down to one row, so that the file lists keep theirs.
    const int wanted = rows * m_rowHeight + 2;
    m_list->setMaximumHeight(std::min(wanted, listedRows * m_rowHeight + 2));
    m_list->setMinimumHeight(std::min(wanted, m_rowHeight + 2));
    m_scroll->updateGeometry();
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

bool QueueView::holdsFocus(const QWidget *widget) const
{
    return widget && widget->isVisible() && widget->isEnabled() && widget->focusPolicy() != Qt::NoFocus &&
           isAncestorOf(widget);
}

void QueueView::rememberFocus()
{
    m_focus.reset();
    QWidget *focus = QApplication::focusWidget();
    if (!focus || !isAncestorOf(focus))
        return;
    FocusMark mark{focus, {}, -1};
    for (QWidget *widget = focus; widget && widget != this; widget = widget->parentWidget())
        if (auto *row = qobject_cast<QueueRow *>(widget)) {
            mark.row = row->id();
            break;
        }
    if (focus == m_list && m_list->currentIndex().isValid())
        mark.row = m_model->idAt(m_list->currentIndex().row());
    if (!mark.row.isNull())
        mark.index = m_model->rowOf(mark.row);
    m_focus = mark;
}

void QueueView::restoreFocus()
{
    if (!m_focus)
        return;
    const FocusMark mark = *std::exchange(m_focus, std::nullopt);
    QWidget *target = nullptr;
    if (holdsFocus(mark.widget)) {
        target = mark.widget; // Qt may have moved it on while a neighbour was hidden
    } else if (!isVisible()) {
        // The queue was emptied: the panel is gone and the keyboard goes back to the panes.
        if (auto *window = qobject_cast<QMainWindow *>(this->window()); window && window->centralWidget())
            target = window->centralWidget();
    } else if (m_expanded && m_model->rowCount() > 0 && !mark.row.isNull()) {
        const int row = m_model->rowOf(mark.row);
        auto *widget = row < 0 ? nullptr : qobject_cast<QueueRow *>(m_list->indexWidget(m_model->index(row)));
        if (QPushButton *other = widget ? widget->replacementFor(mark.widget.data()) : nullptr) {
            target = other;
        } else {
            // The job's row, or the one that took the place of a removed row.
            const int at = row >= 0 ? row : std::clamp(mark.index, 0, m_model->rowCount() - 1);
            m_list->setCurrentIndex(m_model->index(at));
            target = m_list;
        }
    } else {
        target = m_toggle;
    }
    if (target && QApplication::focusWidget() != target)
        target->setFocus(Qt::OtherFocusReason);
}

void QueueView::followRunning()
{
    const auto &items = m_queue.items();
    const auto active =
        std::find_if(items.begin(), items.end(), [](const QueueItem &item) { return item.isActive(); });
    if (active == items.end()) {
        m_followed = QUuid();
        return;
    }
    if (std::exchange(m_followed, active->id) == active->id)
        return;
    // A user who is in the list keeps the place they are at.
    const QWidget *focus = QApplication::focusWidget();
    if (focus && (focus == m_list || m_list->isAncestorOf(focus)))
        return;
    m_list->scrollTo(m_model->index(m_model->rowOf(active->id)), QAbstractItemView::PositionAtTop);
}

void QueueView::watchKeys(QWidget *widget)
{
    widget->installEventFilter(this);
}

bool QueueView::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn) {
        // A stop reached with Tab comes into sight, in the panel and in the list.
        auto *widget = static_cast<QWidget *>(watched);
        for (QWidget *row = widget; row && row != this; row = row->parentWidget())
            if (auto *queueRow = qobject_cast<QueueRow *>(row);
                queueRow && m_model->rowOf(queueRow->id()) >= 0)
                m_list->scrollTo(m_model->index(m_model->rowOf(queueRow->id())));
        m_scroll->ensureWidgetVisible(widget, 0, 0);
    }
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const auto *key = static_cast<QKeyEvent *>(event);
    const Qt::KeyboardModifiers modifiers = key->modifiers() & ~Qt::KeypadModifier;
    if (watched == m_list && modifiers == Qt::AltModifier &&
        (key->key() == Qt::Key_Up || key->key() == Qt::Key_Down)) {
        moveCurrent(key->key() == Qt::Key_Up ? -1 : 1);
        return true;
    }
    if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) && modifiers == Qt::NoModifier) {
        // The focused button, and never the panes' Open behind the panel.
        if (auto *button = qobject_cast<QAbstractButton *>(watched); button && !key->isAutoRepeat())
            button->click();
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
