#include "platform/PeerUser.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QHash>
#include <QMutex>
#include <unistd.h>

namespace {
// Enough for every peer of a long session; past it the table starts again rather than grow.
constexpr qsizetype kMaximumRemembered = 4096;

struct Remembered
{
    QMutex mutex;
    QHash<QString, uint> uids; // bus name + sender -> uid
    PeerUser::Lookup lookup;
};

Remembered& remembered()
{
    static Remembered table;
    return table;
}

std::optional<uint> askTheBus(const QDBusConnection& bus, const QString& sender)
{
    // The bus daemon answers this itself, so waiting for it cannot close a circle of waits.
    const QDBusReply<uint> reply = bus.interface()->serviceUid(sender);
    if (!reply.isValid()) {
        return std::nullopt;
    }
    return reply.value();
}
} // namespace

bool PeerUser::allowsUid(uint uid)
{
    return uid == geteuid() || uid == 0;
}

std::optional<uint> PeerUser::uidOf(const QDBusConnection& bus, const QString& sender)
{
    Remembered& table = remembered();
    const QString key = bus.name() + QLatin1Char('\n') + sender;
    Lookup lookup;
    {
        QMutexLocker locker(&table.mutex);
        if (const auto found = table.uids.constFind(key); found != table.uids.cend()) {
            return *found;
        }
        lookup = table.lookup;
    }
    const std::optional<uint> uid = lookup ? lookup(bus, sender) : askTheBus(bus, sender);
    if (uid) {
        QMutexLocker locker(&table.mutex);
        if (table.uids.size() >= kMaximumRemembered) {
            table.uids.clear();
        }
        table.uids.insert(key, *uid);
    }
    return uid;
}

void PeerUser::setLookup(Lookup lookup)
{
    Remembered& table = remembered();
    QMutexLocker locker(&table.mutex);
    table.lookup = std::move(lookup);
    table.uids.clear();
}
