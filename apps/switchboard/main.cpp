// kestrom-switchboard: the per-user hub through which the product's processes find each other
// and exchange notifications.
#include "SwitchboardHub.h"
#include "logging/Logger.h"
#include "messaging/AnonymousListener.h"
#include "messaging/MessagingThread.h"
#include "messaging/SwitchboardNames.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/UnixSignalWatcher.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <csignal>
#include <cstdio>

namespace {
constexpr quint64 kApplicationCode = 3;
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kestrom-switchboard"));
    Logger::setApplicationCode(kApplicationCode);
    Logger::logStartProcess(SwitchboardHub::kComponentVersion);

    const QString serviceName = SwitchboardNames::perUserServiceName();
    const QString busName = SwitchboardNames::busName(serviceName);
    MessagingThread& messaging = MessagingThread::instance();
    if (!messaging.connection().isConnected()) {
        std::fprintf(stderr, "kestrom-switchboard: no session bus to serve on\n");
        Logger::log(5, QStringLiteral("switchboard cannot reach the session bus"));
        return 1;
    }

    AnonymousListener hub(new SwitchboardHub, SwitchboardNames::kSwitchboardPath);
    if (!hub.resume()) {
        Logger::log(5, QStringLiteral("switchboard cannot serve its object"));
        return 1;
    }
    const auto registration = messaging.connection().interface()->registerService(
        busName, QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    if (registration.value() != QDBusConnectionInterface::ServiceRegistered) {
        const QString why =
            QStringLiteral("another switchboard already serves %1 on this bus").arg(busName);
        std::fprintf(stderr, "kestrom-switchboard: %s\n", qPrintable(why));
        Logger::log(5, why);
        return 1;
    }
    DistributedNotificationCenter::defaultCenter().postNotification(
        SwitchboardNames::startedNotificationName(), serviceName);
    Logger::log(0, QStringLiteral("switchboard serving %1").arg(busName));

    UnixSignalWatcher stopSignals({SIGTERM, SIGINT});
    QObject::connect(&stopSignals, &UnixSignalWatcher::unixSignal, &app, &QCoreApplication::quit);
    const int status = QCoreApplication::exec();
    Logger::logStopProcess(SwitchboardHub::kComponentVersion, status);
    return status;
}
