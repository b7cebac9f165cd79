#include "platform/linux/DBusClientApplication.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {
constexpr int kCallTimeoutMs = 10000;

// A connection of its own: the default session connection is left to the messaging thread,
// whose incoming calls would otherwise wait on this thread's event loop.
QDBusConnection clientBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                         QStringLiteral("kestrom-client-application"));
}
} // namespace

int DBusClientApplication::locate()
{
    const QDBusConnection connection = clientBus();
    QDBusConnectionInterface* bus = connection.interface();
    if (bus == nullptr) {
        return kApplicationNotFound;
    }
    if (bus->isServiceRegistered(kClientIdentifier).value()) {
        return kNoError;
    }
    const QStringList activatable = bus->activatableServiceNames().value();
    return activatable.contains(kClientIdentifier) ? kNoError : kApplicationNotFound;
}

int DBusClientApplication::activateAction(const QString& action, const QVariantList& parameters)
{
    return send(QStringLiteral("ActivateAction"),
                {action, QVariant::fromValue(parameters), QVariantMap()});
}

int DBusClientApplication::launch()
{
    return send(QStringLiteral("Activate"), {QVariantMap()});
}

int DBusClientApplication::send(const QString& member, const QVariantList& arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        kClientIdentifier, kObjectPath, QStringLiteral("org.freedesktop.Application"), member);
    call.setArguments(arguments);
    const QDBusMessage reply = clientBus().call(call, QDBus::Block, kCallTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage ? kNoError : kRequestFailed;
}
