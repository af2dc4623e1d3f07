#include "app/application.h"

#include "app/commanderview.h"
#include "app/quillornapp.h"
#include "operations/stagingjournal.h"
#include "quillorn/version.h"

#include <QApplication>
#include <string>
#include <thread>
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
    // Staging items of a Quillorn killed during a copy; a large one must not hold up the window.
    std::thread([] { StagingJournal::shared().recover(); }).detach();
    QuillornApp app(arguments);
    app.window().show();
    return QApplication::exec();
}

} // namespace quillorn
