#pragma once

#include "services/queueitem.h"
#include "tools/detail/queuerow.h"

#include <QColor>
#include <QPointer>
#include <QUuid>
#include <QWidget>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

class QLabel;
class QListView;
class QProgressBar;
class QPushButton;
class QScrollArea;
class QVBoxLayout;
class QToolButton;

namespace quillorn {

struct CommanderThemeColours;
class QueueListModel;
class TransferQueue;

// The collapsible panel under the panes that lists the queue's jobs, shows the
// running job's progress, speed and time left, and lets the user pause, resume,
// reorder and cancel jobs, resume or discard the ones a crash interrupted,
// clear the finished ones and reveal the log file. The job list is a list view
// over a QueueListModel with one QueueRow widget per job, made when the job
// appears and updated in place. Keyboard: Tab and Shift+Tab go round the
// panel's buttons and the list; Alt+Up and Alt+Down move the current waiting
// job; Return presses the button that has the keyboard; Escape gives the
// keyboard back to the panes. A pressed button keeps the keyboard; when a
// button that has it goes away (its job ended, was cancelled or cleared) the
// keyboard stays in the panel, on the job's row in the list, and never lands
// on a Cancel by itself.
class QueueView : public QWidget {
    Q_OBJECT
public:
    // Shows the log file to the user; the default reveals it in the file browser,
    // or says where it is when nothing can show it.
    using RevealLog = std::function<void(const std::filesystem::path &)>;

    explicit QueueView(TransferQueue &queue, QWidget *parent = nullptr);

    bool expanded() const { return m_expanded; }
    void setExpanded(bool expanded);
    void setRevealLog(RevealLog reveal) { m_revealLog = std::move(reveal); }
    // The panel's surface, its buttons and texts in the colours of a theme.
    void setColours(const CommanderThemeColours &palette);
    QListView *list() const { return m_list; }
    // The panel's keyboard stops, in Tab order.
    QList<QWidget *> tabOrder() const;

    // "<bytes> of <total>  •  x.x% transferred  •  y.y% left  •  <speed>/s",
    // then "  •  About 2 min left" when the time left is known.
    static QString progressLine(std::int64_t bytes, std::int64_t total, double bytesPerSecond,
                                std::optional<double> secondsLeft = std::nullopt);
    // The header's summary of the waiting jobs: "Waiting: 1.2 GB  •  About 3 min left".
    static QString waitingLine(std::int64_t bytes, std::optional<double> secondsLeft);
    // For a job whose items hold no bytes (empty files, folders):
    // "12,345 of 100,000 items done  •  87,655 left".
    static QString itemsLine(std::int64_t done, std::int64_t total);

    static inline const QColor failureColour{255, 149, 0};

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildHeader(QVBoxLayout *layout);
    void addRows(int first, int last);
    void refreshRows();
    void updateProgress();
    void updateSummary();
    void act(const QUuid &id, QueueRow::Action action);
    bool moveCurrent(int direction);
    void styleButton(QPushButton *button) const;
    void colourSecondary(QLabel *label) const;
    void watchKeys(QWidget *widget);
    // Around every change of the queue: what had the keyboard before, and
    // where it goes when that went away.
    void rememberFocus();
    void restoreFocus();
    void followRunning();
    bool holdsFocus(const QWidget *widget) const;

    TransferQueue &m_queue;
    QueueListModel *m_model = nullptr;
    bool m_expanded = true;
    RevealLog m_revealLog;
    QColor m_accent{91, 207, 250};
    QColor m_button{45, 67, 101};
    QColor m_secondary{178, 199, 219};
    int m_rowHeight = 0;

    QScrollArea *m_scroll = nullptr;
    QToolButton *m_toggle = nullptr;
    QLabel *m_summary = nullptr;
    QPushButton *m_showLog = nullptr;
    QPushButton *m_clear = nullptr;
    QWidget *m_progressBlock = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QLabel *m_progressLine = nullptr;
    QLabel *m_detail = nullptr;
    QListView *m_list = nullptr;

    struct FocusMark {
        QPointer<QWidget> widget;
        QUuid row; // the job whose row holds the widget, if any
        int index = -1;
    };
    std::optional<FocusMark> m_focus;
    QUuid m_followed;
};

} // namespace quillorn
