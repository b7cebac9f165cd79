#pragma once

#include "messaging/Endpoint.h"

#include <QDBusConnection>
#include <QObject>
#include <QThread>
#include <vector>

// A second bus connection of the test process that plays a command: the objects it serves live
// on a thread of their own, so they answer while the main thread waits on a synchronous call,
// exactly as a separate process would.
class PeerBus
{
public:
    explicit PeerBus(const QString& name)
        : m_name(name)
        , m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, name))
    {
        m_thread.start();
    }
    ~PeerBus()
    {
        for (const QString& path : m_paths) {
            m_bus.unregisterObject(path);
        }
        for (QObject* object : m_objects) {
            QMetaObject::invokeMethod(
                object, [object] { delete object; }, Qt::BlockingQueuedConnection);
        }
        QDBusConnection::disconnectFromBus(m_name);
        m_thread.quit();
        m_thread.wait();
    }
    PeerBus(const PeerBus&) = delete;
    PeerBus& operator=(const PeerBus&) = delete;

    QDBusConnection bus() const { return m_bus; }

    // Takes the object (no parent) and serves it at the path.
    Endpoint serve(QObject* object, const QString& path)
    {
        // Registered while still here, so that what the bus hangs on the object moves with it.
        m_bus.registerObject(path, object,
                             QDBusConnection::ExportAdaptors | QDBusConnection::ExportAllSlots);
        object->moveToThread(&m_thread);
        m_objects.push_back(object);
        m_paths.push_back(path);
        return Endpoint(m_bus.baseService(), path);
    }

    // An endpoint of this peer where nothing is served.
    Endpoint nowhere() const { return Endpoint(m_bus.baseService(), QStringLiteral("/nothing")); }

private:
    QString m_name;
    QDBusConnection m_bus;
    QThread m_thread;
    std::vector<QObject*> m_objects;
    std::vector<QString> m_paths;
};
