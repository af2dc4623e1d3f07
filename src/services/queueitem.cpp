#include "services/queueitem.h"

namespace quillorn {

QString QueueItem::text(JobState state, const QString &failure)
{
    switch (state) {
    case JobState::waiting:
        return QStringLiteral("Waiting");
    case JobState::running:
        return QStringLiteral("Running");
    case JobState::paused:
        return QStringLiteral("Paused");
    case JobState::interrupted:
        return QStringLiteral("Interrupted");
    case JobState::complete:
        return QStringLiteral("Complete");
    case JobState::cancelled:
        return QStringLiteral("Cancelled");
    case JobState::cancelledWhileRunning:
        return QStringLiteral("Cancelled \u2014 previously completed items remain");
    case JobState::failed:
        return QStringLiteral("Failed: ") + failure;
    }
    return {};
}

} // namespace quillorn
