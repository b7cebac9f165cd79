// kestrom-monitor: the per-user activity monitor of the product.
#include "MonitorCompositionRoot.h"
#include "foundation/MainQueue.h"
#include "logging/Logger.h"
#include "messaging/MessagingThread.h"
#include "platform/UnixSignalWatcher.h"
#include "platform/linux/SessionBusSingleInstance.h"
#include "tracking/CommandListenerService.h"

#include <QApplication>
#include <QCommandLineParser>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <sys/prctl.h>

namespace {
constexpr quint64 kApplicationCode = 4;
const QString kApplicationID = QStringLiteral("com.kestrom.monitor");
const QString kApplicationPath = QStringLiteral("/com/kestrom/monitor");

const QCommandLineOption& cullOption()
{
    static const QCommandLineOption cull(QStringLiteral("cull-interval"),
                                         QStringLiteral("Seconds between checks for silent "
                                                        "commands (default 121)."),
                                         QStringLiteral("seconds"));
    return cull;
}

void describeOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(QStringLiteral("Kestrom Activity Monitor"));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption(cullOption());
}

// Help and version are answered before the GUI application exists, so they work where there is
// no display (a terminal over ssh, a package's check). Nothing else is decided here.
std::optional<int> answerWithoutDisplay(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLocal8Bit(argv[i]));
    }
    QCommandLineParser parser;
    describeOptions(parser);
    // The toolkit's own options (-platform, ...) are unknown here; they are not our business.
    static_cast<void>(parser.parse(arguments));
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        const QString version = MonitorApplicationDelegate::kComponentVersion.section(u'-', 1);
        std::printf("kestrom-monitor %s\n", qPrintable(version));
        return 0;
    }
    return std::nullopt;
}

void applyOptions(const QApplication& app)
{
    QCommandLineParser parser;
    describeOptions(parser);
    parser.process(app);
    const QCommandLineOption& cull = cullOption();
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
    if (const std::optional<int> answered = answerWithoutDisplay(argc, argv)) {
        return *answered;
    }
    // Passwords pass through this process: no core file and no other process of the user may
    // read its memory.
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("kestrom-monitor"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kestrom Activity Monitor"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.kestrom.monitor"));
    QApplication::setQuitOnLastWindowClosed(false);
    Logger::setApplicationCode(kApplicationCode);
    applyOptions(app);

    // One monitor per user: claimed before anything is published, so commands and scripts
    // never meet two.
    SessionBusSingleInstance instance(MessagingThread::instance().connection(), kApplicationID,
                                      kApplicationPath);
    const SessionBusSingleInstance::Claim claim = instance.claim();
    if (claim == SessionBusSingleInstance::Claim::HeldByAnother) {
        const bool asked = instance.activateOwner();
        std::printf("kestrom-monitor: already running for this user; %s\n",
                    asked ? "its window was brought forward" : "it did not answer");
        return asked ? 0 : 1;
    }
    if (claim == SessionBusSingleInstance::Claim::Failed) {
        Logger::log(4, QStringLiteral("could not claim %1 on the session bus; running anyway")
                           .arg(kApplicationID));
    }

    const MonitorCompositionRoot root;
    MonitorApplicationDelegate::initializeClass();
    std::unique_ptr<MonitorApplicationDelegate> made;
    try {
        made = std::make_unique<MonitorApplicationDelegate>(root.makeSubsystems());
    } catch (const std::invalid_argument& error) {
        Logger::log(5, QStringLiteral("cannot start: %1").arg(QString::fromUtf8(error.what())));
        std::fprintf(stderr, "kestrom-monitor: cannot start: %s\n", error.what());
        return 70;
    }
    MonitorApplicationDelegate& delegate = *made;
    MainQueue::dispatchMainAsync([&delegate] { delegate.applicationDidFinishLaunching(); });

    QObject::connect(&instance, &SessionBusSingleInstance::activationRequested, &delegate,
                     [&delegate] {
                         Logger::log(0, QStringLiteral("asked to come forward by a second start"));
                         delegate.orderMonitorWindowFront();
                     });

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
    MainQueue::runPendingWork();
    // A quit that was not a log-out, restart or shut-down always ends with 75.
    if (!delegate.terminateCleanly()) {
        std::_Exit(MonitorApplicationDelegate::kAbnormalExit);
    }
    return status;
}
