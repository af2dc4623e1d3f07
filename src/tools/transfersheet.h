#pragma once

#include "operations/conflictpolicy.h"
#include "services/queueitem.h"

#include <QWidget>
#include <filesystem>
#include <functional>
#include <vector>

class QComboBox;
class QPushButton;

namespace quillorn {

class TransferQueue;

// Confirms a copy or move that the user started: shows what goes where, lets the
// user pick what happens to names that exist, and adds one job to the queue. It
// checks nothing itself; the engine validates when the job runs and the queue
// row shows why it failed.
class TransferSheet : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    TransferSheet(std::vector<Path> sources, Path destination, bool move, TransferQueue &queue,
                  std::function<void()> dismiss, QWidget *parent = nullptr);

    ConflictPolicy policy() const;
    void setPolicy(ConflictPolicy policy);

    // Queues the job with the policy chosen now, then closes the sheet.
    void addToQueue();
    void cancel();

    // "Copy 3 item(s)" / "Move 1 item(s)"
    static QString heading(std::size_t count, bool move);
    // "Copy 3 → Photos": the queue row's title.
    static QString queueTitle(std::size_t count, const Path &destination, bool move);

    static inline const QString note =
        QStringLiteral("Cancellation keeps completed items. Moves and replacements use Trash when available. "
                       "On network shares without Trash support, confirmed items are permanently removed.");

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    std::vector<Path> m_sources;
    Path m_destination;
    bool m_move;
    TransferQueue &m_queue;
    std::function<void()> m_dismiss;
    QComboBox *m_policy = nullptr;
    QPushButton *m_add = nullptr;
};

} // namespace quillorn
