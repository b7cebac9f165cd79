#include "messaging/ServedObject.h"

#include "KSComponentMessagingAdaptor.h"
#include "foundation/MainQueue.h"

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
    setDelayedReply(true);
    const QDBusMessage call = message();
    const QDBusConnection connection = this->connection();
    MainQueue::dispatchMainAsync(
        [call, connection, work = std::move(work)] { connection.send(call.createReply(work())); });
}
