#include "messaging/ServedObject.h"

#include "KSComponentMessagingAdaptor.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "platform/PeerUser.h"

#include <QDBusConnection>
#include <QDBusMessage>

ServedObject::ServedObject(QObject* parent)
    : QObject(parent)
{
    new KSComponentMessagingAdaptor(this);
}

void ServedObject::barrierWithCompletion()
{
    if (m_barrierOnMainThread && calledFromDBus()) {
        replyFromMainThread([] { return QVariantList(); });
    }
}

void ServedObject::replyFromMainThread(std::function<QVariantList()> work)
{
    replyThrough([](std::function<void()> job) { MainQueue::dispatchMainAsync(std::move(job)); },
                 std::move(work));
}

void ServedObject::replyThrough(const Runner& run, std::function<QVariantList()> work)
{
    setDelayedReply(true);
    const QDBusMessage call = message();
    const QDBusConnection connection = this->connection();
    run([call, connection, work = std::move(work)] { connection.send(call.createReply(work())); });
}

bool ServedObject::refusesCaller(const char* member)
{
    if (!calledFromDBus()) {
        return false;
    }
    const QString sender = message().service();
    const std::optional<uint> uid = PeerUser::uidOf(connection(), sender);
    if (uid && PeerUser::allowsUid(*uid)) {
        return false;
    }
    const QString who =
        uid ? QStringLiteral("uid %1").arg(*uid) : QStringLiteral("an unknown user");
    Logger::log(4, QStringLiteral("refused %1 from %2, a peer of %3")
                       .arg(QString::fromLatin1(member), sender, who));
    sendErrorReply(QDBusError::AccessDenied,
                   QStringLiteral("%1 serves only peers of its own user")
                       .arg(QString::fromLatin1(metaObject()->className())));
    return true;
}
