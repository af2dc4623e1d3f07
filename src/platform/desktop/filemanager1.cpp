#include "platform/desktop/filemanager1.h"

#include "platform/desktop/fileurl.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QPointer>
#include <QProcess>

namespace quillorn {

namespace {

const QString interfaceName = QStringLiteral("org.freedesktop.FileManager1");

} // namespace

class FileManager1::Object : public QDBusVirtualObject {
public:
    explicit Object(FileManager1 &owner) : QDBusVirtualObject(&owner), m_owner(owner) {}

    QString introspect(const QString &) const override
    {
        QString methods;
        for (const char *name : {"ShowFolders", "ShowItems", "ShowItemProperties"})
            methods += QStringLiteral("<method name=\"%1\"><arg name=\"URIs\" type=\"as\" direction=\"in\"/>"
                                      "<arg name=\"StartupId\" type=\"s\" direction=\"in\"/></method>")
                           .arg(QLatin1String(name));
        return QStringLiteral("<interface name=\"org.freedesktop.FileManager1\">") + methods +
               QStringLiteral("</interface>");
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.interface() != interfaceName)
            return false;
        const QString member = message.member();
        void (FileManager1::*signal)(const std::vector<std::filesystem::path> &, const QString &) = nullptr;
        if (member == QLatin1String("ShowFolders"))
            signal = &FileManager1::showFolders;
        else if (member == QLatin1String("ShowItems"))
            signal = &FileManager1::showItems;
        else if (member == QLatin1String("ShowItemProperties"))
            signal = &FileManager1::showItemProperties;
        else
            return false;
        if (message.signature() != QLatin1String("ass")) {
            connection.send(
                message.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("expected (as, s)")));
            return true;
        }
        std::vector<std::filesystem::path> items;
        for (const QString &uri : message.arguments().at(0).toStringList())
            if (const auto path = pathFromFileUrl(uri.toUtf8()))
                items.push_back(*path);
        connection.send(message.createReply());
        if (!items.empty())
            Q_EMIT(m_owner.*signal)(items, message.arguments().at(1).toString());
        return true;
    }

private:
    FileManager1 &m_owner;
};

FileManager1::FileManager1(QObject *parent) : QObject(parent), m_object(new Object(*this))
{
}

FileManager1::~FileManager1()
{
    if (m_registered)
        QDBusConnection::sessionBus().unregisterObject(QString::fromLatin1(objectPath));
}

bool FileManager1::claim(bool isDefault)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    if (!bus.registerVirtualObject(QString::fromLatin1(objectPath), m_object))
        return false;
    m_registered = true;
    // Another file manager that the user did not prefer keeps the name; and
    // unless Quillorn is the default it gives the name up to one that asks.
    const auto reply =
        bus.interface()->registerService(QString::fromLatin1(serviceName),
                                         isDefault ? QDBusConnectionInterface::ReplaceExistingService
                                                   : QDBusConnectionInterface::DontQueueService,
                                         isDefault ? QDBusConnectionInterface::DontAllowReplacement
                                                   : QDBusConnectionInterface::AllowReplacement);
    return reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

void FileManager1::isDefaultFolderHandler(QObject *context, std::function<void(bool)> done)
{
    auto *query = new QProcess(context);
    QObject::connect(query, &QProcess::finished, context, [query, done] {
        query->deleteLater();
        done(query->exitStatus() == QProcess::NormalExit && query->exitCode() == 0 &&
             query->readAllStandardOutput().trimmed() == desktopEntry);
    });
    QObject::connect(query, &QProcess::errorOccurred, context, [query, done](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            query->deleteLater();
            done(false);
        }
    });
    query->start(QStringLiteral("xdg-mime"),
                 {QStringLiteral("query"), QStringLiteral("default"), QStringLiteral("inode/directory")});
}

} // namespace quillorn
