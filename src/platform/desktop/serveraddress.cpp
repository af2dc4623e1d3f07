#include "platform/desktop/serveraddress.h"

#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

namespace quillorn {

bool handServerAddressToDesktop(const QUrl &address)
{
    if (QDesktopServices::openUrl(address))
        return true;
    // A platform plugin without desktop services (offscreen, minimal, some
    // remote sessions) opens nothing itself; the desktop's opener still can.
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    return !opener.isEmpty() && QProcess::startDetached(opener, {QString::fromLatin1(address.toEncoded())});
}

} // namespace quillorn
