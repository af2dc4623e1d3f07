#pragma once

#include "operations/operationcontrol.h"

#include <QString>
#include <QUuid>
#include <functional>
#include <memory>

namespace quillorn {

// One job of the transfer queue. The control is shared with the job's work
// while it runs on its background thread; everything else is read and written
// on the interface thread only.
struct QueueItem {
    using Work = std::function<void(OperationControl &)>;

    // The state texts a queue row shows; a failure is failedPrefix + the error's message.
    static inline const QString waiting = QStringLiteral("Waiting");
    static inline const QString running = QStringLiteral("Running");
    static inline const QString complete = QStringLiteral("Complete");
    static inline const QString cancelled = QStringLiteral("Cancelled");
    static inline const QString cancelledWhileRunning =
        QStringLiteral("Cancelled — previously completed items remain");
    static inline const QString failedPrefix = QStringLiteral("Failed: ");

    QUuid id;
    QString title;
    std::shared_ptr<OperationControl> control;
    QString state;
    Work work;

    // Waiting and running jobs are unfinished; every other state is final.
    bool isFinished() const { return state != waiting && state != running; }
};

} // namespace quillorn
