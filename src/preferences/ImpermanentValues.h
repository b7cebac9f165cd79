#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>
#include <functional>

class MonitorDefaults;

// Small per-object records in the monitor's defaults that expire when nobody touches them:
// name space -> object identifier -> record (value key -> value, plus the record's last write
// under "_timestamp"). A record read long after its last write is stamped again; one untouched
// for half a year is culled at start-up. Main thread only.
class ImpermanentValues
{
public:
    using Clock = std::function<QDateTime()>;

    static inline const QString kDefaultNameSpace = QStringLiteral("KSImpermanent");
    static inline const QString kTimestampKey = QStringLiteral("_timestamp");
    static constexpr qint64 kRestampAge = 2'419'200; // 28 days, in seconds
    static constexpr qint64 kCullAge = 15'724'800;   // 182 days, in seconds

    explicit ImpermanentValues(MonitorDefaults& defaults, Clock clock = {});

    QVariant impermanentValueForKey(const QString& key, const QString& identifier,
                                    const QString& nameSpace = kDefaultNameSpace);
    // An invalid value removes the key; a value equal to the current one changes nothing, not
    // even the record's timestamp.
    void setImpermanentValue(const QVariant& value, const QString& key, const QString& identifier,
                             const QString& nameSpace = kDefaultNameSpace);
    // An empty name space means the default one.
    void cullOrphanedImpermanentValuesInNameSpace(const QString& nameSpace = {});

private:
    QVariantMap records(const QString& nameSpace) const;
    qint64 ageInSeconds(const QVariantMap& record) const;

    MonitorDefaults& m_defaults;
    Clock m_clock;
};
