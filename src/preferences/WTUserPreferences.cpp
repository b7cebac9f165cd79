#include "preferences/WTUserPreferences.h"

#include "preferences/PreferenceStore.h"
#include "preferences/PropertyList.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QTimer>
#include <algorithm>
#include <utility>

WTUserPreferences::WTUserPreferences(std::shared_ptr<PreferenceStore> store, Scheduler scheduler)
    : m_store(std::move(store))
    , m_scheduler(std::move(scheduler))
{}

WTUserPreferences::~WTUserPreferences() = default;

WTUserPreferences& WTUserPreferences::sharedPreferences()
{
    static WTUserPreferences s_shared(std::make_shared<PreferenceStore>());
    return s_shared;
}

WTUserPreferences::Scheduler WTUserPreferences::mainThreadScheduler()
{
    return [](std::chrono::milliseconds delay, Task task) {
        QCoreApplication* application = QCoreApplication::instance();
        if (!application) {
            return;
        }
        // The timer must be started by the thread that runs it, and a write may come from any.
        QMetaObject::invokeMethod(application, [delay, task = std::move(task)] {
            QTimer::singleShot(delay, QCoreApplication::instance(), task);
        });
    };
}

QVariant WTUserPreferences::valueForKey(const QString& key, const QString& domain) const
{
    return m_store->value(key, domain);
}

QVariant WTUserPreferences::valueForKey(const QString& key, const QString& domain,
                                        const QVariant& defaultValue) const
{
    const QVariant value = valueForKey(key, domain);
    return value.isValid() ? value : defaultValue;
}

bool WTUserPreferences::boolForKey(const QString& key, const QString& domain) const
{
    return boolForKey(key, domain, false);
}

bool WTUserPreferences::boolForKey(const QString& key, const QString& domain,
                                   bool defaultValue) const
{
    return PropertyList::boolValue(valueForKey(key, domain)).value_or(defaultValue);
}

qint64 WTUserPreferences::integerForKey(const QString& key, const QString& domain) const
{
    return integerForKey(key, domain, 0);
}

qint64 WTUserPreferences::integerForKey(const QString& key, const QString& domain,
                                        qint64 defaultValue) const
{
    return PropertyList::integerValue(valueForKey(key, domain)).value_or(defaultValue);
}

qint64 WTUserPreferences::integerForKey(const QString& key, const QString& domain,
                                        qint64 defaultValue, qint64 min, qint64 max) const
{
    // Not std::clamp: a range given upside down must not be undefined behaviour.
    return std::max(min, std::min(integerForKey(key, domain, defaultValue), max));
}

double WTUserPreferences::doubleForKey(const QString& key, const QString& domain) const
{
    return doubleForKey(key, domain, 0.0);
}

double WTUserPreferences::doubleForKey(const QString& key, const QString& domain,
                                       double defaultValue) const
{
    return PropertyList::doubleValue(valueForKey(key, domain)).value_or(defaultValue);
}

double WTUserPreferences::doubleForKey(const QString& key, const QString& domain,
                                       double defaultValue, double min, double max) const
{
    return std::max(min, std::min(doubleForKey(key, domain, defaultValue), max));
}

bool WTUserPreferences::setValue(const QVariant& value, const QString& key, const QString& domain)
{
    if (!m_store->setValue(key, value, domain)) {
        return false;
    }
    domainNeedsSynchronization(domain);
    return true;
}

bool WTUserPreferences::setBool(bool value, const QString& key, const QString& domain)
{
    return setValue(value, key, domain);
}

bool WTUserPreferences::setInteger(qint64 value, const QString& key, const QString& domain)
{
    return setValue(QVariant::fromValue(value), key, domain);
}

bool WTUserPreferences::setDouble(double value, const QString& key, const QString& domain)
{
    return setValue(value, key, domain);
}

void WTUserPreferences::domainNeedsSynchronization(const QString& domain)
{
    bool first = false;
    {
        QMutexLocker locker(&m_syncLock);
        if (!m_modifiedDomains) {
            m_modifiedDomains.emplace();
            first = true;
        }
        m_modifiedDomains->insert(domain);
    }
    // Scheduled outside the lock, so that a scheduler may run the task at once.
    if (first && m_scheduler) {
        m_scheduler(kSynchronizationDelay, [this, alive = std::weak_ptr<int>(m_lifetime)] {
            if (alive.lock()) {
                synchronize();
            }
        });
    }
}

void WTUserPreferences::synchronize()
{
    QSet<QString> domains;
    {
        QMutexLocker locker(&m_syncLock);
        if (m_modifiedDomains) {
            domains = std::move(*m_modifiedDomains);
            m_modifiedDomains.reset();
        }
        domains.unite(std::exchange(m_failedDomains, {}));
    }
    QSet<QString> failed;
    for (const QString& domain : std::as_const(domains)) {
        if (!m_store->synchronize(domain)) {
            failed.insert(domain);
        }
    }
    if (!failed.isEmpty()) {
        // The store has logged why and kept the changes. Retrying on a timer would log the same
        // failure every few seconds; the next flush, or the one at exit, tries again.
        QMutexLocker locker(&m_syncLock);
        m_failedDomains.unite(failed);
    }
}
