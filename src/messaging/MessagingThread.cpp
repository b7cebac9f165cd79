#include "messaging/MessagingThread.h"

#include "messaging/Endpoint.h"

#include <QCoreApplication>

MessagingThread& MessagingThread::instance()
{
    // Lives until the process ends, as the bus connection it serves.
    static auto* messaging = new MessagingThread;
    return *messaging;
}

MessagingThread::MessagingThread()
{
    Endpoint::registerMetaType();
    m_thread.setObjectName(QStringLiteral("messaging"));
    m_context = new QObject;
    m_context->moveToThread(&m_thread);
    m_thread.start();
    // The connection is made on the messaging thread: the first use of a bus connection from
    // the main thread would hold back incoming calls until the main event loop ran.
    runAndWait([] { QDBusConnection::connectToBus(QDBusConnection::SessionBus, kConnectionName); });
}

QDBusConnection MessagingThread::connection() const
{
    return QDBusConnection(kConnectionName);
}

QString MessagingThread::uniqueName() const
{
    return connection().baseService();
}

void MessagingThread::post(std::function<void()> work) const
{
    QMetaObject::invokeMethod(m_context, std::move(work), Qt::QueuedConnection);
}

void MessagingThread::runAndWait(std::function<void()> work) const
{
    if (isCurrent()) {
        work();
        return;
    }
    QMetaObject::invokeMethod(m_context, std::move(work), Qt::BlockingQueuedConnection);
}
