#include "app/application.h"

#include "app/commanderview.h"
#include "app/commandline.h"
#include "app/quillornapp.h"
#include "model/commandermodel.h"
#include "operations/savebackupjournal.h"
#include "operations/stagingjournal.h"
#include "platform/desktop/filemanager1.h"
#include "platform/desktop/singleinstance.h"
#include "quillorn/version.h"
#include "services/jobjournal.h"

#include <QApplication>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

int runApplication(int argc, char *argv[])
{
    // Read before any display is needed, so that --help works on a console.
    // The arguments as the system's bytes: a folder name need not be UTF-8.
    std::error_code error;
    const CommandLine line = CommandLine::parse(std::vector<std::string>(argv + 1, argv + argc),
                                                std::filesystem::current_path(error));
    if (line.exitNow) {
        std::fputs(line.output.toLocal8Bit().constData(), stdout);
        std::fputs(line.errorOutput.toLocal8Bit().constData(), stderr);
        return line.status;
    }

    QApplication application(argc, argv);
    QApplication::setOrganizationName("Quillorn");
    QApplication::setApplicationName("Quillorn");
    QApplication::setApplicationVersion(kVersion);
    QApplication::setDesktopFileName(QStringLiteral("quillorn"));

    // One Quillorn per session; release previews (the screenshots' setup) run
    // on their own.
    const bool single = !QuillornApp::releasePreview();
    const QString token =
        qEnvironmentVariable("XDG_ACTIVATION_TOKEN", qEnvironmentVariable("DESKTOP_STARTUP_ID"));
    if (single && SingleInstance::handOver(line.targets, token))
        return 0;
    QuillornApp app(line.targets);
    SingleInstance instance;
    // Two started at the same moment: the one that lost the name hands over.
    if (single && !instance.claim() && SingleInstance::handOver(line.targets, token))
        return 0;
    QObject::connect(&instance, &SingleInstance::openRequested, &app,
                     [&app](const std::vector<std::filesystem::path> &items, const QString &activation) {
                         app.open(items);
                         app.present(activation);
                     });
    FileManager1 fileManager;
    const auto show = [&app](auto what) {
        return [&app, what](const std::vector<std::filesystem::path> &items, const QString &activation) {
            what(items);
            app.present(activation);
        };
    };
    QObject::connect(&fileManager, &FileManager1::showFolders, &app,
                     show([&app](const auto &folders) { app.open(folders); }));
    QObject::connect(&fileManager, &FileManager1::showItems, &app,
                     show([&app](const auto &items) { app.open(items); }));
    QObject::connect(&fileManager, &FileManager1::showItemProperties, &app,
                     show([&app](const auto &items) { app.showInfo(items.front()); }));
    if (single)
        FileManager1::isDefaultFolderHandler(
            &app, [&fileManager](bool isDefault) { fileManager.claim(isDefault); });
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
