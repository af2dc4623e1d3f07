#pragma once

#include "platform/core/desktopservices.h"

#include <QPointer>
#include <functional>

namespace quillorn {

class TransferQueue;

// The quit guard. Quitting is refused while the text editor holds unsaved
// changes or the transfer queue still has waiting, running or paused jobs; the user is
// told why and nothing else changes: jobs keep running, the editor keeps its
// text. The two fields are used on the interface thread only; besides them the
// process holds the shared log writer and the standard preferences store.
class CommanderAppDelegate {
public:
    enum class TerminateReply { terminateNow, terminateCancel };
    using ShowAlert = std::function<void(const AlertRequest &)>;

    // Held weakly: the guard never keeps the queue alive, and a queue that is
    // gone has no work.
    static inline QPointer<TransferQueue> queue;
    // True while the open editor has unsaved or still-saving changes.
    static inline bool unsavedEditor = false;

    // Decides at once; when it refuses, it first shows the reason with showAlert.
    static TerminateReply applicationShouldTerminate(const ShowAlert &showAlert);

    static AlertRequest editorAlert();
    static AlertRequest queueAlert();
};

} // namespace quillorn
