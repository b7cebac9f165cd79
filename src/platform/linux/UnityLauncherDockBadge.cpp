#include "platform/linux/UnityLauncherDockBadge.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

UnityLauncherDockBadge::UnityLauncherDockBadge(const QString& desktopEntry)
    : m_applicationUri(QStringLiteral("application://") + desktopEntry)
{}

void UnityLauncherDockBadge::setBadgeCount(quint64 count)
{
    QDBusMessage update = QDBusMessage::createSignal(kPath, kInterface, QStringLiteral("Update"));
    update << m_applicationUri
           << QVariantMap{{QStringLiteral("count"), qint64(count)},
                          {QStringLiteral("count-visible"), count != 0}};
    QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                  QStringLiteral("kestrom-launcher-entry"))
        .send(update);
}
