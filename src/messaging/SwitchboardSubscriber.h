#pragma once

#include "messaging/ServedObject.h"

#include <QHash>
#include <QMutex>
#include <QStringList>
#include <QVariantMap>
#include <functional>

class RemoteProxy;

// What this process exports to the hub: the table of its observers, by observer id. The hub
// calls forwardToObserver; the block runs on the messaging thread, outside the lock.
class SwitchboardSubscriber : public ServedObject
{
    Q_OBJECT
public:
    using Block = std::function<void(const QString& source, const QVariantMap& info)>;

    struct LocalObserver
    {
        QString notificationName;
        QString sourceID; // empty: any source
        Block block;
    };

    explicit SwitchboardSubscriber(QObject* parent = nullptr);

    void addObserver(const QString& observerID, LocalObserver observer);
    void removeLocalObserver(const QString& observerID);
    void removeAllLocalObservers();
    QStringList registeredObserverIDs() const;
    void reregisterObserversWithSwitchboard(const RemoteProxy& switchboard) const;

    Q_INVOKABLE void forwardToObserver(const QString& observerID, const QString& name,
                                       const QString& source, const QByteArray& info);

private:
    mutable QMutex m_mutex;
    QHash<QString, LocalObserver> m_observers;
};
