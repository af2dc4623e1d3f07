#include "tools/detail/queuerow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace quillorn {

QueueRow::QueueRow(const QUuid &id, std::function<void(Action)> act, QWidget *parent)
    : QWidget(parent), m_id(id), m_act(std::move(act))
{
    setObjectName(QStringLiteral("queueRow"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 1, 4, 1);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("rowTitle"));
    m_state = new QLabel(this);
    m_state->setObjectName(QStringLiteral("rowState"));
    m_state->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_title);
    layout->addWidget(m_state, 1);
    m_pause = addButton(QStringLiteral("Pause"), "rowPause", Action::pause);
    m_resume = addButton(QStringLiteral("Resume"), "rowResume", Action::resume);
    m_up = addButton(QStringLiteral("\u2191"), "rowUp", Action::moveUp, QStringLiteral("Move up (Alt+Up)"));
    m_down = addButton(QStringLiteral("\u2193"), "rowDown", Action::moveDown,
                       QStringLiteral("Move down (Alt+Down)"));
    m_cancel = addButton(QStringLiteral("Cancel"), "rowCancel", Action::cancel);
    m_discard = addButton(QStringLiteral("Discard"), "rowDiscard", Action::discard);
}

QPushButton *QueueRow::addButton(const QString &text, const char *name, Action action, const QString &help)
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
    connect(button, &QPushButton::clicked, this, [this, action] { m_act(action); });
    layout()->addWidget(button);
    return button;
}

void QueueRow::showJob(const QString &title, JobState state, const QString &stateText, bool canRaise,
                       bool canLower)
{
    m_title->setText(title);
    m_state->setText(stateText);
    const bool waiting = state == JobState::waiting;
    m_pause->setVisible(state == JobState::running);
    m_resume->setVisible(state == JobState::paused || state == JobState::interrupted);
    m_up->setVisible(waiting);
    m_down->setVisible(waiting);
    m_up->setEnabled(canRaise);
    m_down->setEnabled(canLower);
    m_cancel->setVisible(waiting || state == JobState::running || state == JobState::paused);
    m_discard->setVisible(state == JobState::interrupted);
}

QList<QPushButton *> QueueRow::buttons() const
{
    QList<QPushButton *> shown;
    for (QPushButton *button : {m_pause, m_resume, m_up, m_down, m_cancel, m_discard})
        if (!button->isHidden() && button->isEnabled())
            shown << button;
    return shown;
}

} // namespace quillorn
