#include "messaging/PlatformConnection.h"

#include "messaging/MessagingThread.h"

#include <QDBusServiceWatcher>

namespace {
const QString kBusService = QStringLiteral("org.freedesktop.DBus");
const QString kSystemConnectionName = QStringLiteral("kestrom-messaging-system");
} // namespace

PlatformConnection::PlatformConnection(QString service, QString path, quint64 options)
    : m_service(std::move(service))
    , m_path(std::move(path))
    , m_options(options)
{}

PlatformConnection::~PlatformConnection()
{
    invalidate();
}

QDBusConnection PlatformConnection::bus() const
{
    if ((m_options & kPrivilegedOption) != 0) {
        // The system-wide service lives on the system bus; made on first use only.
        static const QDBusConnection system =
            QDBusConnection::connectToBus(QDBusConnection::SystemBus, kSystemConnectionName);
        return system;
    }
    return MessagingThread::instance().connection();
}

void PlatformConnection::setInvalidationHandler(std::function<void()> handler)
{
    QMutexLocker locker(&m_mutex);
    m_invalidationHandler = std::move(handler);
    if (m_lostUnheard && m_invalidationHandler) {
        m_lostUnheard = false;
        const std::weak_ptr<PlatformConnection> weak = weak_from_this();
        MessagingThread::instance().post([weak] {
            if (const auto alive = weak.lock()) {
                alive->lost();
            }
        });
    }
}

void PlatformConnection::resume()
{
    if (m_resumed.exchange(true) || !m_valid->load()) {
        return;
    }
    const std::weak_ptr<PlatformConnection> weak = weak_from_this();
    const QDBusConnection connection = bus();
    const QString service = m_service;
    MessagingThread::instance().runAndWait([this, weak, connection, service] {
        auto* watcher = new QDBusServiceWatcher(service, connection,
                                                QDBusServiceWatcher::WatchForUnregistration |
                                                    QDBusServiceWatcher::WatchForOwnerChange,
                                                MessagingThread::instance().context());
        QObject::connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, watcher, [weak] {
            if (const auto alive = weak.lock()) {
                alive->lost();
            }
        });
        QMutexLocker locker(&m_mutex);
        m_watcher = watcher;
    });
    // A watch set up after the owner went away never fires: ask once whether there is one.
    QDBusMessage hasOwner =
        QDBusMessage::createMethodCall(kBusService, QStringLiteral("/org/freedesktop/DBus"),
                                       kBusService, QStringLiteral("NameHasOwner"));
    hasOwner << service;
    RemoteProxy::callAsync(connection, hasOwner,
                           [weak](const QDBusMessage& reply) {
                               const auto alive = weak.lock();
                               if (alive && !reply.arguments().value(0).toBool()) {
                                   alive->lost();
                               }
                           },
                           {});
}

void PlatformConnection::invalidate()
{
    if (!m_valid->exchange(false)) {
        return;
    }
    QDBusServiceWatcher* watcher = nullptr;
    {
        QMutexLocker locker(&m_mutex);
        std::swap(watcher, m_watcher);
        m_invalidationHandler = nullptr;
    }
    if (watcher != nullptr) {
        QMetaObject::invokeMethod(watcher, &QObject::deleteLater, Qt::QueuedConnection);
    }
}

void PlatformConnection::lost()
{
    std::function<void()> handler;
    {
        QMutexLocker locker(&m_mutex);
        handler = m_invalidationHandler;
        m_lostUnheard = !handler;
    }
    if (m_valid->load() && handler) {
        handler();
    }
}

std::shared_ptr<RemoteProxy>
PlatformConnection::remoteObjectProxy(RemoteProxy::ErrorHandler errorHandler) const
{
    return std::make_shared<RemoteProxy>(bus(), m_service, m_path, std::move(errorHandler),
                                         m_valid);
}
