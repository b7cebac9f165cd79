#include "platform/linux/SessionBusApplicationWatcher.h"

#include <QDBusConnectionInterface>
#include <QStandardPaths>

namespace {
const QString kBusService = QStringLiteral("org.freedesktop.DBus");
} // namespace

SessionBusApplicationWatcher::SessionBusApplicationWatcher(ApplicationTest isApplication,
                                                           QObject* parent)
    : QObject(parent)
    , m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                          QStringLiteral("kestrom-application-watcher")))
    , m_isApplication(isApplication ? std::move(isApplication) : ApplicationTest(&hasDesktopEntry))
{}

void SessionBusApplicationWatcher::startWatching(Handler launched, Handler terminated)
{
    m_launched = std::move(launched);
    m_terminated = std::move(terminated);
    m_bus.connect(kBusService, QStringLiteral("/org/freedesktop/DBus"), kBusService,
                  QStringLiteral("NameOwnerChanged"), this,
                  SLOT(nameOwnerChanged(QString, QString, QString)));
}

QStringList SessionBusApplicationWatcher::runningApplications() const
{
    QStringList running;
    if (QDBusConnectionInterface* bus = m_bus.interface()) {
        for (const QString& name : bus->registeredServiceNames().value()) {
            if (isApplication(name)) {
                running.append(name);
            }
        }
    }
    return running;
}

bool SessionBusApplicationWatcher::hasDesktopEntry(const QString& name)
{
    return !QStandardPaths::locate(QStandardPaths::ApplicationsLocation,
                                   name + QStringLiteral(".desktop"))
                .isEmpty();
}

void SessionBusApplicationWatcher::nameOwnerChanged(const QString& name, const QString& oldOwner,
                                                    const QString& newOwner)
{
    if (!isApplication(name)) {
        return;
    }
    if (oldOwner.isEmpty() && !newOwner.isEmpty() && m_launched) {
        m_launched(name);
    } else if (!oldOwner.isEmpty() && newOwner.isEmpty() && m_terminated) {
        m_terminated(name);
    }
}

bool SessionBusApplicationWatcher::isApplication(const QString& name) const
{
    // Unique names (":1.42") and the bus itself are never applications.
    return !name.startsWith(QLatin1Char(':')) && name != kBusService && m_isApplication(name);
}
