#include "messaging/AnonymousListener.h"

#include "messaging/MessagingThread.h"

#include <QObject>
#include <atomic>

namespace {
std::atomic<quint64> s_nextListener{1};
} // namespace

AnonymousListener::AnonymousListener(QObject* served, const QString& path)
    : m_served(served)
    , m_path(path.isEmpty()
                 ? QStringLiteral("/com/kestrom/listener/%1").arg(s_nextListener.fetch_add(1))
                 : path)
{
    if (served != nullptr && served->thread() != MessagingThread::instance().thread()) {
        served->moveToThread(MessagingThread::instance().thread());
    }
}

AnonymousListener::~AnonymousListener()
{
    invalidate();
    if (m_served) {
        QMetaObject::invokeMethod(m_served.data(), &QObject::deleteLater, Qt::QueuedConnection);
    }
}

Endpoint AnonymousListener::endpoint() const
{
    return Endpoint(MessagingThread::instance().uniqueName(), m_path);
}

bool AnonymousListener::resume()
{
    if (m_registered || !m_served) {
        return m_registered;
    }
    QObject* served = m_served.data();
    const QString path = m_path;
    bool registered = false;
    MessagingThread::instance().runAndWait([&registered, served, path] {
        registered = MessagingThread::instance().connection().registerObject(
            path, served, QDBusConnection::ExportAdaptors);
    });
    m_registered = registered;
    return registered;
}

void AnonymousListener::invalidate()
{
    if (!m_registered) {
        return;
    }
    m_registered = false;
    const QString path = m_path;
    MessagingThread::instance().runAndWait(
        [path] { MessagingThread::instance().connection().unregisterObject(path); });
}
