#include "tools/detail/queuerow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillorn {

namespace {

bool shown(const QPushButton *button)
{
    return !button->isHidden() && button->isEnabled();
}

} // namespace

QueueRow::QueueRow(const QUuid &id, std::function<void(Action)> act, QWidget *parent)
    : QWidget(parent), m_id(id), m_act(std::move(act))
{
    setObjectName(QStringLiteral("queueRow"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 1, 4, 1);
    // The title alone does not tell two copies into one folder apart: what the
    // job carries stands under it.
    auto *names = new QVBoxLayout;
    names->setSpacing(0);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("rowTitle"));
    m_carries = new QLabel(this);
    m_carries->setObjectName(QStringLiteral("rowCarries"));
    m_carries->setProperty("secondaryText", true);
    names->addWidget(m_title);
    names->addWidget(m_carries);
    m_state = new QLabel(this);
    m_state->setObjectName(QStringLiteral("rowState"));
    m_state->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_state->setWordWrap(true);
    layout->addLayout(names, 2);
    layout->addWidget(m_state, 3);
    m_pauseResume = addButton(QStringLiteral("Pause"), "rowPause", [this] {
        return m_jobState == JobState::running ? Action::pause : Action::resume;
    });
    m_up = addButton(
        QStringLiteral("\u2191"), "rowUp", [] { return Action::moveUp; }, QStringLiteral("Move up (Alt+Up)"));
    m_down = addButton(
        QStringLiteral("\u2193"), "rowDown", [] { return Action::moveDown; },
        QStringLiteral("Move down (Alt+Down)"));
    m_cancel = addButton(QStringLiteral("Cancel"), "rowCancel", [] { return Action::cancel; });
    m_discard = addButton(QStringLiteral("Discard"), "rowDiscard", [] { return Action::discard; });
}

QPushButton *QueueRow::addButton(const QString &text, const char *name, std::function<Action()> action,
                                 const QString &help)
{
    auto *button = new QPushButton(text, this);
    button->setObjectName(QString::fromLatin1(name));
    button->setAutoDefault(false);
    // Reached with Tab, but a click leaves the keyboard where it was (the panes).
    button->setFocusPolicy(Qt::TabFocus);
    if (!help.isEmpty()) {
        button->setToolTip(help);
        button->setAccessibleName(help);
    }
    connect(button, &QPushButton::clicked, this, [this, action = std::move(action)] { m_act(action()); });
    layout()->addWidget(button);
    return button;
}

void QueueRow::showJob(const QString &title, const QString &carries, JobState state, const QString &stateText,
                       bool canRaise, bool canLower)
{
    m_jobState = state;
    m_title->setText(title);
    m_carries->setText(carries);
    m_state->setText(stateText);
    m_state->setToolTip(stateText); // a long remark may not fit the row
    const bool waiting = state == JobState::waiting;
    const bool resumable = state == JobState::paused || state == JobState::interrupted;
    m_pauseResume->setText(resumable ? QStringLiteral("Resume") : QStringLiteral("Pause"));
    m_pauseResume->setObjectName(resumable ? QStringLiteral("rowResume") : QStringLiteral("rowPause"));
    m_pauseResume->setVisible(state == JobState::running || resumable);
    m_up->setVisible(waiting);
    m_down->setVisible(waiting);
    m_up->setEnabled(canRaise);
    m_down->setEnabled(canLower);
    m_cancel->setVisible(waiting || state == JobState::running || state == JobState::paused);
    m_discard->setVisible(state == JobState::interrupted);
}

QList<QPushButton *> QueueRow::buttons() const
{
    QList<QPushButton *> list;
    for (QPushButton *button : {m_pauseResume, m_up, m_down, m_cancel, m_discard})
        if (shown(button))
            list << button;
    return list;
}

QPushButton *QueueRow::replacementFor(const QWidget *lost) const
{
    if (lost == m_up && shown(m_down))
        return m_down;
    if (lost == m_down && shown(m_up))
        return m_up;
    return nullptr;
}

} // namespace quillorn
