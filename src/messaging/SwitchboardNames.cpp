#include "messaging/SwitchboardNames.h"

#include <QFile>
#include <QStringList>
#include <unistd.h>

QString SwitchboardNames::perUserServiceName()
{
    static const QString name = QStringLiteral("com.kestrom.switchboard.%1").arg(processUserID());
    return name;
}

QString SwitchboardNames::systemWideServiceName()
{
    return QStringLiteral("com.kestrom.switchboard");
}

QString SwitchboardNames::startedNotificationName()
{
    return QStringLiteral("com.kestrom.switchboard.started");
}

uint SwitchboardNames::processUserID()
{
    static const uint user = [] {
        const uid_t effective = geteuid();
        if (effective != 0) {
            return uint(effective);
        }
        // The user whose login the process descends from, as the kernel recorded it: sudo and
        // pkexec keep it, and unlike their environment variables nobody can set it afterwards.
        QFile loginUid(QStringLiteral("/proc/self/loginuid"));
        bool ok = false;
        const uint login =
            loginUid.open(QIODevice::ReadOnly) ? loginUid.readAll().trimmed().toUInt(&ok) : 0;
        return ok && login != kNoLoginUser ? login : 0u;
    }();
    return user;
}

QString SwitchboardNames::busName(const QString& serviceName)
{
    QStringList elements = serviceName.split(QLatin1Char('.'));
    for (QString& element : elements) {
        if (!element.isEmpty() && element.at(0).isDigit()) {
            element.prepend(QLatin1Char('_'));
        }
    }
    return elements.join(QLatin1Char('.'));
}
