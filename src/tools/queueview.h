#pragma once

#include "services/queueitem.h"

#include <QColor>
#include <QWidget>
#include <cstdint>
#include <filesystem>
#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class QScrollArea;

namespace quillorn {

struct CommanderThemeColours;
class TransferQueue;

// The collapsible panel under the panes that lists the queue's jobs, shows the
// running job's progress and speed, and lets the user cancel jobs, clear the
// finished ones and reveal the log file. It holds no state of its own but the
// expanded flag: everything else is redrawn from the queue's published fields.
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

    // "<bytes> of <total>  •  x.x% transferred  •  y.y% left  •  <speed>/s"
    static QString progressLine(std::int64_t bytes, std::int64_t total, double bytesPerSecond);

    static inline const QColor failureColour{255, 149, 0};

private:
    void rebuildRows();
    void updateProgress();
    void updateVisibility();
    void styleButton(QPushButton *button) const;
    void colourSecondary(QLabel *label) const;
    QWidget *makeRow(const QueueItem &item);

    TransferQueue &m_queue;
    bool m_expanded = true;
    RevealLog m_revealLog;
    QColor m_accent{91, 207, 250};
    QColor m_button{45, 67, 101};
    QColor m_secondary{178, 199, 219};

    QToolButton *m_toggle = nullptr;
    QPushButton *m_showLog = nullptr;
    QPushButton *m_clear = nullptr;
    QWidget *m_progressBlock = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QLabel *m_progressLine = nullptr;
    QLabel *m_detail = nullptr;
    QScrollArea *m_scroll = nullptr;
    QVBoxLayout *m_rows = nullptr;
};

} // namespace quillorn
