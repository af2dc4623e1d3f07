#include "platform/desktop/singleinstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>

namespace quillorn {

namespace {

const QString interfaceName = QStringLiteral("io.quillorn.Quillorn");

void registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<QList<QByteArray>>();
        return true;
    }();
    (void)registered;
}

} // namespace

// Open(aay items, s activationToken): paths travel as bytes, so a name that is
// not valid UTF-8 reaches the running Quillorn unchanged.
class SingleInstance::Object : public QDBusVirtualObject {
public:
    explicit Object(SingleInstance &owner) : QDBusVirtualObject(&owner), m_owner(owner) {}

    QString introspect(const QString &) const override
    {
        return QStringLiteral("<interface name=\"io.quillorn.Quillorn\">"
                              "<method name=\"Open\"><arg name=\"items\" type=\"aay\" direction=\"in\"/>"
                              "<arg name=\"activationToken\" type=\"s\" direction=\"in\"/></method>"
                              "</interface>");
    }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (message.interface() != interfaceName || message.member() != QLatin1String("Open"))
            return false;
        const QList<QVariant> arguments = message.arguments();
        if (arguments.size() != 2 || message.signature() != QLatin1String("aays")) {
            connection.send(
                message.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("expected (aay, s)")));
            return true;
        }
        const auto bytes = qdbus_cast<QList<QByteArray>>(arguments[0]);
        std::vector<std::filesystem::path> items;
        for (const QByteArray &item : bytes)
            if (item.startsWith('/'))
                items.emplace_back(item.toStdString());
        connection.send(message.createReply());
        Q_EMIT m_owner.openRequested(items, arguments[1].toString());
        return true;
    }

private:
    SingleInstance &m_owner;
};

SingleInstance::SingleInstance(QObject *parent) : QObject(parent), m_object(new Object(*this))
{
}

SingleInstance::~SingleInstance()
{
    if (m_registered)
        QDBusConnection::sessionBus().unregisterObject(QString::fromLatin1(objectPath));
}

bool SingleInstance::handOver(const std::vector<std::filesystem::path> &items, const QString &activationToken)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(QString::fromLatin1(serviceName)))
        return false;
    registerTypes();
    QList<QByteArray> bytes;
    for (const auto &item : items)
        bytes << QByteArray::fromStdString(item.native());
    QDBusMessage call =
        QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), QString::fromLatin1(objectPath),
                                       interfaceName, QStringLiteral("Open"));
    call << QVariant::fromValue(bytes) << activationToken;
    // A running Quillorn answers at once; one that hangs is not waited for long.
    const QDBusMessage reply = bus.call(call, QDBus::Block, 10000);
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool SingleInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    registerTypes();
    if (!bus.registerVirtualObject(QString::fromLatin1(objectPath), m_object))
        return false;
    m_registered = true;
    return bus.registerService(QString::fromLatin1(serviceName));
}

} // namespace quillorn
