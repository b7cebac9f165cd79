#include "messaging/SwitchboardNames.h"

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
    const uid_t effective = geteuid();
    if (effective != 0) {
        return effective;
    }
    bool ok = false;
    const uint requester = qEnvironmentVariable("SUDO_UID").toUInt(&ok);
    return ok ? requester : 0;
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

QString SwitchboardNames::interfaceName(const QString& protocol)
{
    return QStringLiteral("com.kestrom.") + protocol;
}
