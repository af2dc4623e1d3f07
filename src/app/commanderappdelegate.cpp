#include "app/commanderappdelegate.h"

#include "services/transferqueue.h"

namespace quillorn {

CommanderAppDelegate::TerminateReply
CommanderAppDelegate::applicationShouldTerminate(const ShowAlert &showAlert)
{
    if (unsavedEditor) {
        showAlert(editorAlert());
        return TerminateReply::terminateCancel;
    }
    if (!queue || !queue->hasWork())
        return TerminateReply::terminateNow;
    showAlert(queueAlert());
    return TerminateReply::terminateCancel;
}

AlertRequest CommanderAppDelegate::editorAlert()
{
    return {QStringLiteral("The editor has unsaved changes"),
            QStringLiteral("Save or discard your edits before quitting."),
            {}};
}

AlertRequest CommanderAppDelegate::queueAlert()
{
    return {
        QStringLiteral("File operations are still queued or running"),
        QStringLiteral("Finish or cancel operations before quitting. Completed items will remain in place."),
        {QStringLiteral("Keep running")}};
}

} // namespace quillorn
