#pragma once

#include "services/queuejob.h"
#include "services/syncplan.h"

#include <QString>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

class QButtonGroup;
class QCheckBox;
class QLabel;
class QPushButton;
class QTreeWidget;

namespace quillorn {

class OperationControl;

// The synchronisation plan for the compare sheet's two folders: the options,
// then every action the plan would take with a checkbox and the bytes it
// copies. A plan is made in the background each time an option changes;
// nothing runs until "Synchronize" hands the checked actions to the queue.
// Conflicts stay unchecked until the user settles them with "Use left" or
// "Use right".
class SyncPanel : public QWidget {
    Q_OBJECT
public:
    using Path = std::filesystem::path;
    using Enqueue = std::function<void(const QString &title, Job job)>;

    SyncPanel(Path left, Path right, Enqueue enqueue, QWidget *parent = nullptr);
    ~SyncPanel() override;

    // Makes a new plan with the options as they are now.
    void replan();
    const std::optional<SyncPlan> &plan() const { return m_plan; }
    const QString &status() const { return m_status; }
    bool planning() const { return m_planning; }

    static inline const QString note =
        QStringLiteral("Replaced and trashed items go to the Trash. On network shares without Trash support, "
                       "confirmed items are permanently removed. An item that changes before its turn is "
                       "skipped.");

Q_SIGNALS:
    // "Back": the comparison again.
    void back();
    // The plan went to the queue.
    void queued();

private:
    SyncOptions options() const;
    void present(SyncPlan plan);
    void fill();
    void updateSummary();
    void settle(SyncSide winner);
    void confirm();
    void setStatus(const QString &status);

    Path m_left, m_right;
    Enqueue m_enqueue;
    std::optional<SyncPlan> m_plan;
    std::shared_ptr<OperationControl> m_control;
    int m_generation = 0;
    bool m_planning = false;
    bool m_filling = false;
    QString m_status;

    QButtonGroup *m_direction = nullptr;
    QButtonGroup *m_comparison = nullptr;
    QCheckBox *m_trashExtras = nullptr;
    QLabel *m_statusLabel = nullptr;
    QTreeWidget *m_list = nullptr;
    QPushButton *m_useLeft = nullptr;
    QPushButton *m_useRight = nullptr;
    QPushButton *m_run = nullptr;
};

} // namespace quillorn
