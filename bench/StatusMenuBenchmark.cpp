// What opening the status menu costs a busy monitor: twenty running commands, each one's live
// state asked over the bus (a progress message since the last opening makes every answer
// stale) and its control menu copied, then the scheduler's fifty actions fetched synchronously
// and listed, as the menu does while it opens. The scheduler is kestromctl's, a process of its
// own behind the real hub; the commands are served on a second bus connection of this process.
// Every question is a real round trip through the bus daemon.
#include "FakeCommand.h"
#include "PeerBus.h"
#include "activity/ActivityWindowController.h"
#include "activity/ActivityWindowHost.h"
#include "foundation/KeyedArchive.h"
#include "messaging/MessagingThread.h"
#include "messaging/SwitchboardNames.h"
#include "preferences/PropertyList.h"
#include "statusmenu/MonitorStatusMenuDelegate.h"
#include "statusmenu/StatusMenuHost.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QAction>
#include <QApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <benchmark/benchmark.h>
#include <cstdio>

namespace {

constexpr int kPanes = 20;
constexpr int kActions = 50;

QString actionID(int index)
{
    return QStringLiteral("ACTION-%1").arg(index, 3, 10, QLatin1Char('0'));
}

// Where kestromctl's scheduler serves, once it has said so.
Endpoint s_scheduler;

// The scheduler's actions, as its property list: a few cannot run, twenty belong to the
// running commands, so the menu lists them disabled.
QByteArray actionsPropertyList()
{
    QVariantList actions;
    for (int index = 0; index < kActions; ++index) {
        actions.append(QVariantMap{
            {QStringLiteral("title"), QStringLiteral("Capture Archive %1").arg(kActions - index)},
            {QStringLiteral("uuid"), actionID(index)},
            {QStringLiteral("repname"), QStringLiteral("Archive %1").arg(index)},
            {QStringLiteral("runnable"), index % 7 != 0},
            {QStringLiteral("time"), QDateTime::currentDateTimeUtc().addSecs(3600 * (index + 1))}});
    }
    return PropertyList::xmlData(actions).data;
}

// The application as the menu sees it: the activity window is real, the scheduler is asked
// over the bus and its keyed archive read as the monitor reads it.
class BenchMenuHost final : public StatusMenuHost
{
public:
    BenchMenuHost(ActivityWindowController& window, const Endpoint& scheduler)
        : m_window(window)
        , m_scheduler(scheduler)
    {}

    QList<CommandUmbrellaViewController*> orderedViewControllers() override
    {
        return m_window.orderedViewControllers();
    }
    NextAction nextAction() override { return {}; }
    ArchiveStates archiveStates() override { return {true, true, false}; }
    bool showStatusInStatusItem() override { return true; }
    QDateTime now() override { return QDateTime::currentDateTime(); }
    bool schedulerConnected() override { return true; }
    std::optional<QDateTime> holdDate() override { return std::nullopt; }
    std::optional<QVariantList> queryActionsInfo() override
    {
        const QDBusMessage reply = MessagingThread::instance().connection().call(
            QDBusMessage::createMethodCall(m_scheduler.service(), m_scheduler.path(),
                                           QStringLiteral("com.kestrom.StromScheduling"),
                                           QStringLiteral("queryActionsInfoWithReply")),
            QDBus::Block, 5000);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            return std::nullopt;
        }
        const QVariant actions = KeyedArchive::unarchivedObject(
            reply.arguments().value(0).toByteArray(), KeyedArchive::propertyListClasses());
        return actions.toList();
    }
    void runActionNow(const QString&) override {}
    void holdSchedules(int) override {}
    void resumeSchedules() override {}
    void orderMonitorWindowFront() override {}
    void orderStatusWindowFront() override {}
    void launchClient() override {}
    void quit() override {}

private:
    ActivityWindowController& m_window;
    Endpoint m_scheduler;
};

// Twenty commands in the activity window, the scheduler, and the menu over them.
class BusyMonitor
{
public:
    BusyMonitor()
        : m_window(&m_activityHost)
        , m_host(m_window, s_scheduler)
        , m_menu(m_host)
    {
        CommandListenerService::sharedService().setSwitchboardName(
            QStringLiteral("com.kestrom.monitor"));
        for (int index = 0; index < kPanes; ++index) {
            start(index);
        }
    }
    ~BusyMonitor()
    {
        CommandListenerService::sharedService().removeAllListeners();
        for (int turn = 0; turn < 4; ++turn) {
            QCoreApplication::sendPostedEvents();
        }
    }

    MonitorStatusMenuDelegate& menu() { return m_menu; }
    // How often the commands were asked whether they can be stopped: once per live state.
    int statusQuestions() const
    {
        int asked = 0;
        for (const FakeCommand* command : m_commands) {
            asked += command->count(QStringLiteral("queryCanCancelWithReply"));
        }
        return asked;
    }

    // Every command reports once more, as they do every second or so between two openings.
    void progress()
    {
        ++m_seconds;
        for (const auto& manager : m_managers) {
            manager->commandProgressDidUpdate({{QStringLiteral("time"), m_seconds}});
        }
    }

private:
    void start(int index)
    {
        auto* played = new FakeCommand(QStringLiteral("capture"));
        played->setAnswers({.displayDescription = QStringLiteral("Capture Archive %1").arg(index),
                            .actionUUID = actionID(index),
                            .supportsRepositoryRef = false,
                            .canCancel = true,
                            .canPause = true});
        m_commands.push_back(played);
        const Endpoint endpoint =
            m_peer.serve(played, QStringLiteral("/bench/command/%1").arg(index));
        auto manager = ActivityProgressManager::initWithCommand(QStringLiteral("capture"));
        m_window.willAddListener(manager.get());
        manager->connectToCommand(std::make_shared<CommandOnXPCConnection>(
            QStringLiteral("capture"), endpoint, QStringLiteral("bench-%1").arg(index)));
        manager->commandDidStart();
        manager->commandProgressDidUpdate({{QStringLiteral("task"), QStringLiteral("Capturing")},
                                           {QStringLiteral("max"), 100},
                                           {QStringLiteral("value"), index},
                                           {QStringLiteral("time"), m_seconds}});
        m_managers.push_back(std::move(manager));
    }

    PeerBus m_peer{QStringLiteral("statusmenu-bench-commands")};
    ActivityWindowHost m_activityHost;
    ActivityWindowController m_window;
    BenchMenuHost m_host;
    MonitorStatusMenuDelegate m_menu;
    std::vector<std::shared_ptr<ActivityProgressManager>> m_managers;
    // Owned by the peer.
    std::vector<const FakeCommand*> m_commands;
    int m_seconds = 60;
};

// After an opening the menu lists every command, and the scheduler's actions minus none.
bool filledAsExpected(MonitorStatusMenuDelegate& menu)
{
    const QList<QAction*> items = menu.menu()->actions();
    const qsizetype panes = items.size() - items.indexOf(menu.itemWithTag(7)) - 1;
    return panes == kPanes && menu.itemWithTag(6)->menu()->actions().size() == kActions;
}

// Opening the menu; with a range of 1 every command has reported since the last opening, so
// each is asked its state again, as in a monitor at work.
void BM_OpenMenu(benchmark::State& state)
{
    const bool reported = state.range(0) != 0;
    BusyMonitor monitor;
    const int askedBefore = monitor.statusQuestions();
    for (auto _ : state) {
        if (reported) {
            state.PauseTiming();
            monitor.progress();
            state.ResumeTiming();
        }
        monitor.menu().menuNeedsUpdate();
        state.PauseTiming();
        if (!filledAsExpected(monitor.menu())) {
            state.SkipWithError("the menu does not list every command and action");
            break;
        }
        // What the menu's closing does, and the items of this opening freed.
        monitor.menu().menuCleanup();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        state.ResumeTiming();
    }
    state.counters["panes"] = kPanes;
    state.counters["actions"] = kActions;
    state.counters["states_asked"] = benchmark::Counter(monitor.statusQuestions() - askedBefore,
                                                        benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_OpenMenu)
    ->ArgName("reported")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The hub, then the scheduler with its actions; false when either does not come up.
bool startPeers(QProcess& hub, QProcess& scheduler, const QTemporaryDir& home)
{
    hub.start(QStringLiteral(SWITCHBOARD_PROGRAM), {});
    const QString hubName = SwitchboardNames::busName(SwitchboardNames::perUserServiceName());
    const bool hubUp = QTest::qWaitFor(
        [&] {
            return MessagingThread::instance().connection().interface()->isServiceRegistered(
                hubName);
        },
        30000);
    if (!hubUp) {
        std::fprintf(stderr, "the hub did not come up\n");
        return false;
    }
    QFile actions(home.filePath(QStringLiteral("actions.plist")));
    if (!actions.open(QIODevice::WriteOnly) || actions.write(actionsPropertyList()) < 0) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(actions.fileName()));
        return false;
    }
    actions.close();
    // It prints every request: into a file, since a pipe nobody reads would stop it.
    QFile output(home.filePath(QStringLiteral("scheduler.out")));
    scheduler.setStandardOutputFile(output.fileName());
    scheduler.start(QStringLiteral(KESTROMCTL_PROGRAM),
                    {QStringLiteral("scheduler"), QStringLiteral("--actions"), actions.fileName()});
    // "scheduler serving 50 actions at :1.7/com/kestrom/listener/1"
    QByteArray said;
    const bool serving = QTest::qWaitFor(
        [&] {
            if (output.open(QIODevice::ReadOnly)) {
                said = output.readLine();
                output.close();
            }
            return said.endsWith('\n');
        },
        30000);
    const QString at = QString::fromUtf8(said.trimmed()).section(u' ', -1);
    const qsizetype slash = at.indexOf(u'/');
    if (!serving || slash <= 0) {
        std::fprintf(stderr, "the scheduler did not say where it serves: %s\n", said.constData());
        return false;
    }
    s_scheduler = Endpoint(at.left(slash), at.mid(slash));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    // The offscreen platform reports every window call it ignores; none matters here.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (!message.startsWith(QLatin1String("This plugin does not support"))) {
            std::fprintf(stderr, "%s%s\n", type >= QtWarningMsg ? "warning: " : "",
                         qPrintable(message));
        }
    });
    QApplication app(argc, argv);
    if (!MessagingThread::instance().connection().isConnected()) {
        std::fprintf(stderr, "no session bus: run it through scripts/headless\n");
        return 1;
    }
    QTemporaryDir home;
    qputenv("XDG_STATE_HOME", home.path().toLocal8Bit());
    QProcess hub;
    QProcess scheduler;
    if (!startPeers(hub, scheduler, home)) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    scheduler.terminate();
    scheduler.waitForFinished();
    hub.terminate();
    hub.waitForFinished();
    return 0;
}
