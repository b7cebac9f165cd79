#pragma once

#include <QHash>
#include <QMutex>
#include <QString>
#include <QVariantMap>
#include <functional>

// The process-local notification centre. Observers are called on the posting thread.
class NotificationCenter
{
public:
    using Observer =
        std::function<void(const QString& name, const void* object, const QVariantMap& userInfo)>;

    static NotificationCenter& defaultCenter();

    // A null object matches every object. Returns a token for removeObserver.
    int addObserver(const QString& name, const void* object, Observer observer);
    void removeObserver(int token);
    void post(const QString& name, const void* object, const QVariantMap& userInfo = {});

private:
    struct Entry
    {
        QString name;
        const void* object;
        Observer observer;
    };

    QMutex m_mutex;
    QHash<int, Entry> m_observers;
    int m_nextToken = 1;
};
