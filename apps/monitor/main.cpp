// kestrom-monitor: the per-user activity monitor of the product.
#include "MonitorCompositionRoot.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "platform/UnixSignalWatcher.h"
#include "tracking/CommandListenerService.h"

#include <QApplication>
#include <QCommandLineParser>
#include <csignal>
#include <cstdlib>

namespace {
constexpr quint64 kApplicationCode = 4;

void applyOptions(const QApplication& app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Kestrom Activity Monitor"));
    parser.addHelpOption();
    const QCommandLineOption cull(QStringLiteral("cull-interval"),
                                  QStringLiteral("Seconds between checks for silent commands "
                                                 "(default 121)."),
                                  QStringLiteral("seconds"));
    parser.addOption(cull);
    parser.process(app);
    if (parser.isSet(cull)) {
        const double seconds = parser.value(cull).toDouble();
        if (seconds > 0) {
            CommandListenerService::setCullInterval(
                std::chrono::milliseconds(qint64(seconds * 1000)));
        }
    }
}
} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("kestrom-monitor"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestrom Activity Monitor"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.kestrom.monitor"));
    QApplication::setQuitOnLastWindowClosed(false);
    Logger::setApplicationCode(kApplicationCode);
    applyOptions(app);

    const MonitorCompositionRoot root;
    MonitorApplicationDelegate::initializeClass();
    MonitorApplicationDelegate delegate(root.makeSubsystems());
    MainQueue::dispatchMainAsync([&delegate] { delegate.applicationDidFinishLaunching(); });

    UnixSignalWatcher stopSignals({SIGTERM, SIGINT});
    QObject::connect(&stopSignals, &UnixSignalWatcher::unixSignal, &delegate,
                     &MonitorApplicationDelegate::terminate);
    QObject::connect(&app, &QGuiApplication::applicationStateChanged, &delegate,
                     [&delegate](Qt::ApplicationState state) {
                         if (state == Qt::ApplicationActive) {
                             delegate.applicationDidBecomeActive();
                         }
                     });
    const int status = QApplication::exec();
    // A quit that was not a log-out, restart or shut-down always ends with 75.
    if (!delegate.terminateCleanly()) {
        std::_Exit(MonitorApplicationDelegate::kAbnormalExit);
    }
    return status;
}
