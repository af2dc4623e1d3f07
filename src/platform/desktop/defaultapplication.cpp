#include "platform/desktop/defaultapplication.h"

#include "platform/desktop/fileurl.h"

#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>

namespace quillorn {

void openWithDefaultApplication(const std::filesystem::path &file, std::function<void(bool opened)> done)
{
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (opener.isEmpty()) {
        const bool opened = QDesktopServices::openUrl(fileUrl(file));
        if (done)
            done(opened);
        return;
    }
    auto *process = new QProcess;
    process->setProgram(opener);
    process->setArguments({QString::fromLatin1(encodedFileUrl(file))});
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    auto finish = [process, done = std::move(done)](bool opened) {
        process->deleteLater();
        if (done)
            done(opened);
    };
    QObject::connect(process, &QProcess::finished, process,
                     [process, finish](int code, QProcess::ExitStatus status) {
                         finish(status == QProcess::NormalExit && code == 0);
                         process->disconnect();
                     });
    QObject::connect(process, &QProcess::errorOccurred, process,
                     [process, finish](QProcess::ProcessError error) {
                         if (error != QProcess::FailedToStart)
                             return;
                         finish(false);
                         process->disconnect();
                     });
    process->start();
}

} // namespace quillorn
