#include "messaging/SwitchboardSubscriber.h"

#include "SwitchboardSubscribingAdaptor.h"
#include "exception/KSException.h"
#include "logging/Logger.h"
#include "messaging/InterfaceNames.h"
#include "messaging/RemoteProxy.h"
#include "messaging/SerializableDictionaryAdditions.h"
#include "messaging/SwitchboardNames.h"

SwitchboardSubscriber::SwitchboardSubscriber(QObject* parent)
    : ServedObject(parent)
{
    new SwitchboardSubscribingAdaptor(this);
}

void SwitchboardSubscriber::addObserver(const QString& observerID, LocalObserver observer)
{
    QMutexLocker locker(&m_mutex);
    m_observers.insert(observerID, std::move(observer));
}

void SwitchboardSubscriber::removeLocalObserver(const QString& observerID)
{
    QMutexLocker locker(&m_mutex);
    m_observers.remove(observerID);
}

void SwitchboardSubscriber::removeAllLocalObservers()
{
    QMutexLocker locker(&m_mutex);
    m_observers.clear();
}

QStringList SwitchboardSubscriber::registeredObserverIDs() const
{
    QMutexLocker locker(&m_mutex);
    return m_observers.keys();
}

void SwitchboardSubscriber::reregisterObserversWithSwitchboard(const RemoteProxy& switchboard) const
{
    const QString& interface = InterfaceNames::kSwitchboardingPrivate;
    QMutexLocker locker(&m_mutex);
    for (auto it = m_observers.cbegin(); it != m_observers.cend(); ++it) {
        switchboard.send(interface, QStringLiteral("addProxyObserver"),
                         {it.key(), it->notificationName, it->sourceID});
    }
}

void SwitchboardSubscriber::forwardToObserver(const QString& observerID, const QString& name,
                                              const QString& source, const QByteArray& info)
{
    Block block;
    {
        QMutexLocker locker(&m_mutex);
        const auto found = m_observers.constFind(observerID);
        if (found == m_observers.cend()) {
            return;
        }
        block = found->block;
    }
    QVariantMap userInfo;
    try {
        userInfo = SerializableDictionaryAdditions::dictionaryFromArchive(info);
    } catch (const KSException& failure) {
        const LogLine line = Logger::log(
            4,
            QStringLiteral("undecodable user info of notification %1 from %2").arg(name, source));
        Logger::log(7, line, failure);
        return;
    }
    if (block) {
        block(source, userInfo);
    }
}
