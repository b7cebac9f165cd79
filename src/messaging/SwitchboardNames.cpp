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
    // The user who asked for the privileges: through sudo, or through polkit's pkexec.
    for (const char* variable : {"SUDO_UID", "PKEXEC_UID"}) {
        bool ok = false;
        const uint requester = qEnvironmentVariable(variable).toUInt(&ok);
        if (ok) {
            return requester;
        }
    }
    return 0;
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
