#pragma once

#include "services/queueitem.h"

#include <QUuid>
#include <QWidget>
#include <functional>

class QLabel;
class QPushButton;

namespace quillorn {

// The widget over one row of the queue list: the job's title, what it carries
// under it, its state text and the buttons its state allows (Pause or Resume
// and Cancel for the running job, Move up, Move down and Cancel for a waiting
// one, Resume and Discard for an interrupted one). Made once per job and
// updated in place. Pause and Resume are one button whose label and action
// follow the state, so the keyboard stays on it when it is pressed.
class QueueRow : public QWidget {
    Q_OBJECT
public:
    enum class Action { pause, resume, moveUp, moveDown, cancel, discard };

    QueueRow(const QUuid &id, std::function<void(Action)> act, QWidget *parent = nullptr);

    const QUuid &id() const { return m_id; }
    // Shows the job as it stands; canRaise and canLower tell whether a waiting
    // job has a waiting one above or below it to swap with.
    void showJob(const QString &title, const QString &carries, JobState state, const QString &stateText,
                 bool canRaise, bool canLower);
    // The buttons shown, left to right: the row's part of the Tab order.
    QList<QPushButton *> buttons() const;
    QLabel *stateLabel() const { return m_state; }
    QLabel *carriesLabel() const { return m_carries; }
    // Where the keyboard goes when `lost`, one of this row's buttons, is
    // hidden or disabled: the other arrow of a waiting job, or nothing.
    QPushButton *replacementFor(const QWidget *lost) const;

private:
    QPushButton *addButton(const QString &text, const char *name, std::function<Action()> action,
                           const QString &help = {});

    QUuid m_id;
    std::function<void(Action)> m_act;
    JobState m_jobState = JobState::waiting;
    QLabel *m_title;
    QLabel *m_carries;
    QLabel *m_state;
    QPushButton *m_pauseResume, *m_up, *m_down, *m_cancel, *m_discard;
};

} // namespace quillorn
