#include "app/application.h"

#include "app/commanderview.h"
#include "app/quillornapp.h"
#include "model/commandermodel.h"
#include "operations/savebackupjournal.h"
#include "operations/stagingjournal.h"
#include "quillorn/version.h"
#include "services/jobjournal.h"

#include <QApplication>
#include <string>
#include <vector>

namespace quillorn {

int runApplication(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName("Quillorn");
    QApplication::setApplicationName("Quillorn");
    QApplication::setApplicationVersion(kVersion);
    QApplication::setDesktopFileName(QStringLiteral("quillorn"));

    // The arguments as the system's bytes: a folder name need not be UTF-8.
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    QuillornApp app(arguments);
    // Jobs a killed Quillorn left unfinished come back as "Interrupted", but
    // only after its half-written saves have their old bytes back and its
    // staging items are gone; all on a background thread, so a large leftover
    // never holds up the window.
    TransferQueue &queue = app.window().model().queue();
    queue.setJournal(JobJournal::open());
    queue.recoverInterrupted([] {
        SaveBackupJournal::shared().recover();
        StagingJournal::shared().recover();
    });
    app.window().show();
    return QApplication::exec();
}

} // namespace quillorn
