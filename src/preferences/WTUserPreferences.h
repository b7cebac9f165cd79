#pragma once

#include <QMutex>
#include <QSet>
#include <QString>
#include <QVariant>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class PreferenceStore;

// Values in the preference domains of the product's components. Any thread. Every write that
// changes something marks its domain; the first mark after a flush schedules one flush of all
// marked domains a little later, so that a burst of writes costs one file write per domain.
class WTUserPreferences
{
public:
    using Task = std::function<void()>;
    using Scheduler = std::function<void(std::chrono::milliseconds delay, Task task)>;

    static inline const QString kMonitorDomain = QStringLiteral("com.kestrom.monitor");
    static inline const QString kHelperDomain = QStringLiteral("com.kestrom.helper");
    static inline const QString kClientDomain = QStringLiteral("com.kestrom.client");
    static constexpr std::chrono::milliseconds kSynchronizationDelay{2000};

    explicit WTUserPreferences(std::shared_ptr<PreferenceStore> store,
                               Scheduler scheduler = mainThreadScheduler());
    ~WTUserPreferences();
    WTUserPreferences(const WTUserPreferences&) = delete;
    WTUserPreferences& operator=(const WTUserPreferences&) = delete;

    // Created on first use, on the store of the user's configuration folder.
    static WTUserPreferences& sharedPreferences();
    // Runs the task on the application's main thread after the delay; without an application
    // object the task is dropped, and the flush at exit writes what it would have written.
    static Scheduler mainThreadScheduler();

    PreferenceStore& store() const { return *m_store; }

    QVariant valueForKey(const QString& key, const QString& domain) const;
    QVariant valueForKey(const QString& key, const QString& domain,
                         const QVariant& defaultValue) const;
    bool boolForKey(const QString& key, const QString& domain) const;
    bool boolForKey(const QString& key, const QString& domain, bool defaultValue) const;
    qint64 integerForKey(const QString& key, const QString& domain) const;
    qint64 integerForKey(const QString& key, const QString& domain, qint64 defaultValue) const;
    qint64 integerForKey(const QString& key, const QString& domain, qint64 defaultValue, qint64 min,
                         qint64 max) const;
    double doubleForKey(const QString& key, const QString& domain) const;
    double doubleForKey(const QString& key, const QString& domain, double defaultValue) const;
    double doubleForKey(const QString& key, const QString& domain, double defaultValue, double min,
                        double max) const;

    // Writes only a value that differs from the stored one (in kind or in value); an invalid
    // value removes the key. Answers whether it wrote.
    bool setValue(const QVariant& value, const QString& key, const QString& domain);
    bool setBool(bool value, const QString& key, const QString& domain);
    bool setInteger(qint64 value, const QString& key, const QString& domain);
    bool setDouble(double value, const QString& key, const QString& domain);

    void domainNeedsSynchronization(const QString& domain);
    // Flushes every marked domain; also called directly when the monitor exits.
    void synchronize();

private:
    std::shared_ptr<PreferenceStore> m_store;
    Scheduler m_scheduler;
    // Guards the sets only; flushes run outside it.
    QMutex m_syncLock;
    std::optional<QSet<QString>> m_modifiedDomains;
    QSet<QString> m_failedDomains;
    // A scheduled flush that outlives this object does nothing.
    std::shared_ptr<int> m_lifetime = std::make_shared<int>(0);
};
