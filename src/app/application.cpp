#include "app/application.h"

#include "quillorn/version.h"

#include <QApplication>
#include <QMainWindow>

namespace quillorn {

int runApplication(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName("Quillorn");
    QApplication::setApplicationName("Quillorn");
    QApplication::setApplicationVersion(kVersion);

    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
    window.resize(1180, 740);
    window.show();
    return QApplication::exec();
}

} // namespace quillorn
