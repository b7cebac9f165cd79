#include "messaging/MessagingThread.h"

#include "messaging/Endpoint.h"

#include <QCoreApplication>

namespace {
MessagingThread* s_instance = nullptr;

// The thread stops with the application object, before static destructors run: otherwise it
// would go on handling messages while the process tears down what it uses.
void stopMessagingThread()
{
    if (s_instance != nullptr) {
        s_instance->thread()->quit();
        s_instance->thread()->wait();
    }
}
} // namespace

MessagingThread& MessagingThread::instance()
{
    // Lives until the process ends, as the bus connection it serves.
    static auto* messaging = [] {
        s_instance = new MessagingThread;
        qAddPostRoutine(stopMessagingThread);
        return s_instance;
    }();
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
    // Once the thread has stopped (the process is ending), nothing else runs there.
    if (isCurrent() || !m_thread.isRunning()) {
        work();
        return;
    }
    QMetaObject::invokeMethod(m_context, std::move(work), Qt::BlockingQueuedConnection);
}
