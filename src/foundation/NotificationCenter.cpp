#include "foundation/NotificationCenter.h"

#include <QList>

NotificationCenter& NotificationCenter::defaultCenter()
{
    static auto* center = new NotificationCenter; // observers may post from static destructors
    return *center;
}

int NotificationCenter::addObserver(const QString& name, const void* object, Observer observer)
{
    QMutexLocker locker(&m_mutex);
    const int token = m_nextToken++;
    m_observers.insert(token, {name, object, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(int token)
{
    QMutexLocker locker(&m_mutex);
    m_observers.remove(token);
}

void NotificationCenter::post(const QString& name, const void* object, const QVariantMap& userInfo)
{
    QList<Observer> matching;
    {
        QMutexLocker locker(&m_mutex);
        for (const Entry& entry : std::as_const(m_observers)) {
            if (entry.name == name && (entry.object == nullptr || entry.object == object)) {
                matching.append(entry.observer);
            }
        }
    }
    for (const Observer& observer : matching) {
        observer(name, object, userInfo);
    }
}
