#include "MonitorCompositionRoot.h"

#include "activity/MonitorWindowController.h"
#include "core/MonitorActivityWindow.h"
#include "core/MonitorDelegateScheduler.h"
#include "core/MonitorDelegateStatusItem.h"
#include "core/MonitorStatusWindow.h"
#include "core/MonitorUserNotifier.h"
#include "core/RecentArchives.h"
#include "core/SessionCommandRequests.h"
#include "core/SessionDesktopEvents.h"
#include "core/UnavailableShutdownSheet.h"
#include "core/UnavailableUpdateController.h"
#include "core/WorkerPool.h"
#include "errors/ContextualAlertInfo.h"
#include "foundation/RelativeDate.h"
#include "logging/Logger.h"
#include "messaging/ActionRunSummary.h"
#include "platform/ClientApplication.h"
#include "platform/linux/DBusClientApplication.h"
#include "platform/linux/DBusUserNotificationCenter.h"
#include "platform/linux/DesktopApplicationSession.h"
#include "platform/linux/FreedesktopFileViewer.h"
#include "platform/linux/LibsecretSecretStore.h"
#include "platform/linux/LogindSleepWatcher.h"
#include "platform/linux/MountTable.h"
#include "platform/linux/ProcMountTableWatcher.h"
#include "platform/linux/SessionBusApplicationWatcher.h"
#include "platform/linux/UnityLauncherDockBadge.h"
#include "platform/linux/UnsupportedWorkspacePlacement.h"
#include "platform/linux/WindowTaskbarPresence.h"
#include "platform/linux/X11WorkspacePlacement.h"
#include "preferences/MonitorDefaults.h"
#include "references/BookmarkPath.h"
#include "status/RecentCaptures.h"
#include "status/RepositoryStatus.h"
#include "statusmenu/HoldSchedulesUntilController.h"
#include "tracking/CommandInfo.h"
#include "tracking/ProgressServices.h"

#include <QGuiApplication>
#include <QPalette>

namespace {
// Only X11 lets an application ask for workspaces; elsewhere the log says so once.
std::unique_ptr<WorkspacePlacement> makeWorkspacePlacement()
{
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb")) {
        if (const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
            return std::make_unique<X11WorkspacePlacement>(x11->connection());
        }
    }
    return std::make_unique<UnsupportedWorkspacePlacement>(
        platform, [](const QString& message) { Logger::log(3, message); });
}
} // namespace

MonitorCompositionRoot::MonitorCompositionRoot()
{
    // The client is reached over the session bus; it lives as long as the process.
    static DBusClientApplication client;
    ClientApplication::setDefaultClient(&client);
    // Alerts name commands as the command table does; scheduler replies may carry summaries.
    ContextualAlertInfo::setCommandNamer(&CommandInfo::humanReadableNameForCommandName);
    ActionRunSummary::registerArchivableClass();
    BookmarkPath::registerArchivableClass();
    // Every window the monitor makes asks for its workspaces this way, for the process's life.
    static const std::unique_ptr<WorkspacePlacement> workspaces = makeWorkspacePlacement();
    MonitorWindowController::setWorkspacePlacement(workspaces.get());
}

MonitorApplicationDelegate::Subsystems MonitorCompositionRoot::makeSubsystems() const
{
    MonitorApplicationDelegate::Subsystems subsystems;
    const auto onWorkers = [](std::function<void()> job) {
        WorkerPool::shared().start(std::move(job));
    };
    subsystems.session = std::make_unique<DesktopApplicationSession>();
    // Not built yet: stand-ins that say so once.
    subsystems.statusItem = std::make_unique<MonitorDelegateStatusItem>([] {
        // A dark window colour is a dark desktop style.
        return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
    });
    subsystems.scheduler = makeScheduler();
    subsystems.updateController = std::make_unique<UnavailableUpdateController>();
    subsystems.shutdownSheet = std::make_unique<UnavailableShutdownSheet>();
    subsystems.commandRequests =
        std::make_unique<SessionCommandRequests>(SessionCommandRequests::Parts{
            SessionCommandRequests::Switchboard::processHub(),
            std::make_shared<LibsecretSecretStore>(),
            [](const QByteArray& data) -> SessionCommandRequests::Resolution {
                const auto bookmark = BookmarkPath::fromBookmarkData(data);
                if (!bookmark) {
                    return {{}, QStringLiteral("the data is no bookmark")};
                }
                const QUrl url = bookmark->resolveQuietly();
                if (url.isEmpty()) {
                    return {{}, QStringLiteral("the file it records cannot be found")};
                }
                return {url, {}};
            },
            RepeatingTimer::mainThreadFactory()});
    subsystems.statusWindow = std::make_unique<MonitorStatusWindow>(MonitorStatusWindow::Parts{
        std::make_unique<FreedesktopFileViewer>(), std::make_unique<LogindSleepWatcher>(),
        onWorkers, RepositoryStatus::statusFolder()});
    subsystems.makeActivityWindow = [](MonitorApplicationDelegate& delegate,
                                       ActivityWindow::Factory factory) {
        return std::make_unique<MonitorActivityWindow>(delegate, std::move(factory));
    };
    subsystems.recentArchives = std::make_unique<RecentArchives>(std::make_shared<RecentCaptures>(
        RecentCaptures::defaultFolder(), [] { return QDateTime::currentDateTimeUtc(); },
        onWorkers));
    ProgressServices::setCaptureHistory(subsystems.recentArchives->captureHistory());
    subsystems.desktopEvents = makeDesktopEvents(*subsystems.recentArchives);
    return subsystems;
}

std::unique_ptr<SchedulerClient> MonitorCompositionRoot::makeScheduler() const
{
    // The delegate exists by the time any of these is called; it is made after the subsystems.
    const auto delegate = [] {
        return MonitorApplicationDelegate::sharedDelegate();
    };
    MonitorDelegateScheduler::Hooks hooks;
    hooks.showStatusItemStates = [delegate](bool show, quint64 states) {
        if (auto* shared = delegate()) {
            shared->showStatusItemStates(show, states);
        }
    };
    hooks.refreshRunningApplications = [delegate] {
        if (auto* shared = delegate()) {
            shared->refreshRunningApplications();
        }
    };
    hooks.runHoldDialog = [] {
        if (HoldSchedulesUntilController* hold =
                HoldSchedulesUntilController::sharedHoldController()) {
            hold->setHelpButtonHidden(true);
            hold->runHoldDialog();
        }
    };
    // A question to the scheduler never holds the menu up for longer than this.
    constexpr int kQueryTimeoutMs = 250;
    auto scheduler = std::make_unique<MonitorDelegateScheduler>(
        std::move(hooks), &RelativeDate::now, kQueryTimeoutMs);
    // The hold dialog asks and tells this scheduler client for the life of the process.
    HoldSchedulesUntilController::setSharedScheduleControl(scheduler.get());
    return scheduler;
}

std::unique_ptr<DesktopEvents>
MonitorCompositionRoot::makeDesktopEvents(RecentArchives& recentArchives) const
{
    SessionDesktopEvents::Services services;
    services.volumes = std::make_unique<ProcMountTableWatcher>(MountTable::kMountInfoPath);
    services.applications = std::make_unique<SessionBusApplicationWatcher>();
    services.dockBadge =
        std::make_unique<UnityLauncherDockBadge>(QStringLiteral("com.kestrom.monitor.desktop"));
    services.taskbar =
        std::make_unique<WindowTaskbarPresence>(WindowTaskbarPresence::Policy::Regular);
    services.notifications =
        std::make_unique<DBusUserNotificationCenter>(DBusUserNotificationCenter::Application{
            QStringLiteral("Kestrom Activity Monitor"), QStringLiteral("com.kestrom.monitor"),
            QStringLiteral("com.kestrom.monitor")});
    // The delegate exists by the time any of these is called; it is made after the subsystems.
    SessionDesktopEvents::Hooks hooks;
    hooks.updateHistoryNotification = [&recentArchives](const QVariantMap&) {
        recentArchives.volumeDidMount();
    };
    hooks.orderMonitorWindowFront = [] {
        if (auto* delegate = MonitorApplicationDelegate::sharedDelegate()) {
            delegate->orderMonitorWindowFront();
        }
    };
    hooks.orderStatusWindowFront = [] {
        if (auto* delegate = MonitorApplicationDelegate::sharedDelegate()) {
            delegate->orderStatusWindowFront();
        }
    };
    hooks.setClientAppRunning = [](bool running) {
        if (auto* delegate = MonitorApplicationDelegate::sharedDelegate()) {
            delegate->updateController().setClientAppRunning(running);
        }
    };
    hooks.noteActivationPolicyChange = [](bool regular,
                                          const QString& previouslyActiveApplication) {
        if (auto* delegate = MonitorApplicationDelegate::sharedDelegate()) {
            delegate->noteActivationPolicyChange(regular, previouslyActiveApplication);
        }
    };
    auto events = std::make_unique<SessionDesktopEvents>(MonitorDefaults::standardUserDefaults(),
                                                         std::move(services), std::move(hooks));
    ProgressServices::setUserNotifier(&events->userNotifier());
    // Nothing runs yet: the monitor starts as an accessory until a pane or a setting asks more.
    events->updateDockMode();
    return events;
}
