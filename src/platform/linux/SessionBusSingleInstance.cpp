#include "platform/linux/SessionBusSingleInstance.h"

#include "platform/PeerUser.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {
const QString kApplicationInterface = QStringLiteral("org.freedesktop.Application");
constexpr int kActivateTimeoutMs = 5000;
} // namespace

SessionBusSingleInstance::SessionBusSingleInstance(QDBusConnection bus, QString name, QString path,
                                                   QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_name(std::move(name))
    , m_path(std::move(path))
{}

SessionBusSingleInstance::Claim SessionBusSingleInstance::claim()
{
    QDBusConnectionInterface* daemon = m_bus.isConnected() ? m_bus.interface() : nullptr;
    if (daemon == nullptr) {
        return Claim::Failed;
    }
    // The object is there before the name, so an activation racing the claim finds it.
    if (!m_bus.objectRegisteredAt(m_path) &&
        !m_bus.registerObject(m_path, this, QDBusConnection::ExportAllSlots)) {
        return Claim::Failed;
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        daemon->registerService(m_name, QDBusConnectionInterface::DontQueueService,
                                QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid()) {
        m_bus.unregisterObject(m_path);
        return Claim::Failed;
    }
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        m_bus.unregisterObject(m_path);
        return Claim::HeldByAnother;
    }
    return Claim::Owned;
}

bool SessionBusSingleInstance::activateOwner() const
{
    QDBusMessage activate = QDBusMessage::createMethodCall(m_name, m_path, kApplicationInterface,
                                                           QStringLiteral("Activate"));
    activate << QVariantMap();
    const QDBusMessage reply = m_bus.call(activate, QDBus::Block, kActivateTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

void SessionBusSingleInstance::Activate(const QVariantMap& /*platformData*/)
{
    if (calledFromDBus()) {
        const std::optional<uint> uid = PeerUser::uidOf(connection(), message().service());
        if (!uid || !PeerUser::allowsUid(*uid)) {
            sendErrorReply(QDBusError::AccessDenied,
                           QStringLiteral("%1 answers only peers of its own user").arg(m_name));
            return;
        }
    }
    Q_EMIT activationRequested();
}
