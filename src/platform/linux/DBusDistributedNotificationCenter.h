#pragma once

#include "platform/DistributedNotificationCenter.h"

#include <QDBusConnection>
#include <QHash>
#include <QMutex>
#include <QThread>
#include <memory>

class QObject;

// Distributed notifications as the session-bus broadcast signal
// com.kestrom.Distributed.Posted(s name, s object) at /com/kestrom/Distributed.
class DBusDistributedNotificationCenter final : public DistributedNotificationCenter
{
public:
    static inline const QString kPath = QStringLiteral("/com/kestrom/Distributed");
    static inline const QString kInterface = QStringLiteral("com.kestrom.Distributed");
    static inline const QString kSignal = QStringLiteral("Posted");

    explicit DBusDistributedNotificationCenter(
        QDBusConnection::BusType bus = QDBusConnection::SessionBus);
    ~DBusDistributedNotificationCenter() override;
    DBusDistributedNotificationCenter(const DBusDistributedNotificationCenter&) = delete;
    DBusDistributedNotificationCenter& operator=(const DBusDistributedNotificationCenter&) = delete;

    bool isConnected() const;
    // No notification is observed after this; posting still works.
    void stop();
    void postNotification(const QString& name, const QString& object) override;
    int addObserver(const QString& name, const QString& object, Observer observer) override;
    void removeObserver(int token) override;

    // Called on the centre's thread for every signal received.
    void dispatch(const QString& name, const QString& object);

private:
    void roundTripToBus();

    struct Entry
    {
        QString name;
        QString object;
        Observer observer;
    };

    QString m_connectionName;
    QDBusConnection m_connection;
    QThread m_thread;
    QObject* m_receiver = nullptr;
    mutable QMutex m_mutex;
    QHash<int, Entry> m_observers;
    int m_nextToken = 1;
};
