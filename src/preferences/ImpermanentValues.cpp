#include "preferences/ImpermanentValues.h"

#include "preferences/MonitorDefaults.h"
#include "preferences/PropertyList.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimeZone>
#include <limits>
#include <utility>

namespace {
QDateTime systemNow()
{
    return QDateTime::currentDateTimeUtc();
}

void assertMainThread()
{
    Q_ASSERT(!QCoreApplication::instance() ||
             QThread::currentThread() == QCoreApplication::instance()->thread());
}

QVariantMap asMap(const QVariant& value)
{
    return PropertyList::kindOf(value) == PropertyList::Kind::Dictionary ? value.toMap()
                                                                         : QVariantMap();
}
} // namespace

ImpermanentValues::ImpermanentValues(MonitorDefaults& defaults, Clock clock)
    : m_defaults(defaults)
    , m_clock(clock ? std::move(clock) : Clock(systemNow))
{}

QVariant ImpermanentValues::impermanentValueForKey(const QString& key, const QString& identifier,
                                                   const QString& nameSpace)
{
    assertMainThread();
    const QVariantMap record = asMap(records(nameSpace).value(identifier));
    const QVariant value = record.value(key);
    if (ageInSeconds(record) > kRestampAge) {
        // Removing the timestamp is a change, and every change stamps the record anew.
        setImpermanentValue(QVariant(), kTimestampKey, identifier, nameSpace);
    }
    return value;
}

void ImpermanentValues::setImpermanentValue(const QVariant& value, const QString& key,
                                            const QString& identifier, const QString& nameSpace)
{
    assertMainThread();
    QVariantMap all = records(nameSpace);
    QVariantMap record = asMap(all.value(identifier));
    if (PropertyList::isEqual(record.value(key), value)) {
        return;
    }
    if (value.isValid()) {
        record.insert(key, value);
    } else {
        record.remove(key);
    }
    record.insert(kTimestampKey, m_clock().toTimeZone(QTimeZone::utc()));
    all.insert(identifier, record);
    m_defaults.setObject(all, nameSpace);
}

void ImpermanentValues::cullOrphanedImpermanentValuesInNameSpace(const QString& nameSpace)
{
    assertMainThread();
    const QString space = nameSpace.isEmpty() ? kDefaultNameSpace : nameSpace;
    QVariantMap all = records(space);
    bool culled = false;
    for (auto it = all.begin(); it != all.end();) {
        if (ageInSeconds(asMap(it.value())) > kCullAge) {
            it = all.erase(it);
            culled = true;
        } else {
            ++it;
        }
    }
    if (culled) {
        m_defaults.setObject(all, space);
    }
}

QVariantMap ImpermanentValues::records(const QString& nameSpace) const
{
    return asMap(m_defaults.objectForKey(nameSpace));
}

// A record without a readable timestamp has no age: it is neither stamped again nor culled.
qint64 ImpermanentValues::ageInSeconds(const QVariantMap& record) const
{
    const QVariant stamp = record.value(kTimestampKey);
    if (PropertyList::kindOf(stamp) != PropertyList::Kind::Date) {
        return std::numeric_limits<qint64>::min();
    }
    return stamp.toDateTime().secsTo(m_clock());
}
