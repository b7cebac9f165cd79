#pragma once

#include "messaging/RemoteProxy.h"

#include <QDBusConnection>
#include <QMutex>
#include <atomic>
#include <functional>
#include <memory>

class QDBusServiceWatcher;

// One conversation with one object of one peer: a bus name (well-known or unique) and an
// object path. Resuming starts watching the name's owner; when it goes away or changes, the
// invalidation handler runs (on the messaging thread); a handler installed after the loss
// still hears of it. Invalidating stops the watch, and its
// proxies refuse every later message.
class PlatformConnection : public std::enable_shared_from_this<PlatformConnection>
{
public:
    static constexpr quint64 kPrivilegedOption = 4096;

    PlatformConnection(QString service, QString path, quint64 options);
    ~PlatformConnection();
    PlatformConnection(const PlatformConnection&) = delete;
    PlatformConnection& operator=(const PlatformConnection&) = delete;

    const QString& serviceName() const { return m_service; }
    const QString& path() const { return m_path; }
    quint64 options() const { return m_options; }
    QDBusConnection bus() const;

    void setInvalidationHandler(std::function<void()> handler);
    void resume();
    void invalidate();
    bool isValid() const { return m_valid->load(); }

    std::shared_ptr<RemoteProxy> remoteObjectProxy(RemoteProxy::ErrorHandler errorHandler) const;

private:
    void lost();

    QString m_service;
    QString m_path;
    quint64 m_options;
    // Shared with the proxies made here, which refuse to send once it is false.
    std::shared_ptr<std::atomic<bool>> m_valid = std::make_shared<std::atomic<bool>>(true);
    std::atomic<bool> m_resumed{false};
    mutable QMutex m_mutex;
    std::function<void()> m_invalidationHandler;
    bool m_lostUnheard = false;               // lost before any handler was there to hear it
    QDBusServiceWatcher* m_watcher = nullptr; // lives on the messaging thread
};
