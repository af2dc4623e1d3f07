#include "app/application.h"

#include "app/commanderview.h"
#include "quillorn/version.h"

#include <QApplication>
#include <QStyleFactory>

namespace quillorn {

int runApplication(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName("Quillorn");
    QApplication::setApplicationName("Quillorn");
    QApplication::setApplicationVersion(kVersion);
    // Fusion draws every widget from the palette, so the themes look the same on
    // every desktop.
    if (QStyle *fusion = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(fusion);

    CommanderView window;
    window.show();
    return QApplication::exec();
}

} // namespace quillorn
