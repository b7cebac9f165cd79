#include "tracking/ActivityProgressManager.h"

#include "FakeCommand.h"
#include "PeerBus.h"
#include "RecordingLogger.h"
#include "errors/ContextualAlertInfo.h"
#include "exception/KSException.h"
#include "fakes/RecordingCaptureHistory.h"
#include "fakes/RecordingProgressPane.h"
#include "fakes/RecordingUserNotifier.h"
#include "foundation/NotificationCenter.h"
#include "messaging/MessagingThread.h"
#include "tracking/CommandListenerService.h"
#include "tracking/CommandOnXPCConnection.h"
#include "tracking/ProgressServices.h"

#include <QCoreApplication>
#include <QTest>
#include <gtest/gtest.h>

namespace {
const QDateTime kStart = QDateTime(QDate(2024, 3, 1), QTime(22, 0), Qt::UTC);

CommandListenerService& service()
{
    return CommandListenerService::sharedService();
}

// Queued main-thread work, including work that queues more, is done.
void drainMainQueue()
{
    for (int turn = 0; turn < 4; ++turn) {
        QCoreApplication::sendPostedEvents();
    }
}
} // namespace

// A manager with a recording pane, the process's collaborators replaced by recorders, a clock
// the test moves, and the wake-up and end notifications counted in one list of events with the
// pane's calls.
class ActivityProgressTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_log = RecordingLogger::install();
        ProgressServices::setUserNotifier(&m_notifier);
        ProgressServices::setCaptureHistory(&m_history);
        CommandListener::setClock([this] { return m_now; });
        observe(ActivityProgressManager::kMonitorWakeUpCall, m_wakeObjects, u"wake");
        observe(ActivityProgressManager::kMonitorProgressDidEnd, m_endObjects, u"end");
    }

    void TearDown() override
    {
        service().removeAllListeners();
        drainMainQueue();
        for (const int token : std::as_const(m_tokens)) {
            NotificationCenter::defaultCenter().removeObserver(token);
        }
        ProgressServices::setUserNotifier(nullptr);
        ProgressServices::setCaptureHistory(nullptr);
        ProgressServices::setPaneFactory({});
        CommandListener::setClock({});
        Logger::releaseDefaultLogger();
    }

    void observe(const QString& name, QList<const void*>& objects, QStringView event)
    {
        m_tokens.append(NotificationCenter::defaultCenter().addObserver(
            name, nullptr,
            [this, &objects, event](const QString&, const void* object, const QVariantMap&) {
                objects.append(object);
                m_events.append(event.toString());
            }));
    }

    // A manager whose command cannot be asked anything.
    std::shared_ptr<ActivityProgressManager> makeManager()
    {
        m_pane = std::make_shared<RecordingProgressPane>();
        m_pane->onCall = [this](const QString& call) {
            m_events.append(call);
        };
        auto manager = std::make_shared<ActivityProgressManager>(m_pane);
        manager->setDelayedCall(
            [this](std::chrono::milliseconds delay, std::function<void()> work) {
                m_delays.append(delay);
                m_delayed.append(std::move(work));
            });
        return manager;
    }

    void runDelayed()
    {
        for (const auto& job : std::exchange(m_delayed, {})) {
            job();
        }
    }

    QStringList paneCalls() const { return m_pane->calls(); }

    std::shared_ptr<RecordingLogger> m_log;
    RecordingUserNotifier m_notifier;
    RecordingCaptureHistory m_history;
    QDateTime m_now = kStart;
    QList<int> m_tokens;
    QList<const void*> m_wakeObjects;
    QList<const void*> m_endObjects;
    QStringList m_events;
    std::shared_ptr<RecordingProgressPane> m_pane;
    QList<std::chrono::milliseconds> m_delays;
    QList<std::function<void()>> m_delayed;
};

TEST_F(ActivityProgressTest, ACommandThatCannotBeAskedIsUnknown)
{
    auto manager = makeManager();
    EXPECT_EQ(manager->liveStatus(), ActivityProgressManager::LiveStatus{});

    manager->commandDidStart();

    EXPECT_EQ(manager->humanReadableCommandName(), QStringLiteral("Unknown"));
    EXPECT_EQ(manager->displayTitle(), QStringLiteral("Unknown Action"));
    EXPECT_TRUE(manager->actionUUID().isNull());
    EXPECT_EQ(paneCalls(),
              (QStringList{QStringLiteral("setProgressManager"), QStringLiteral("setActionID:"),
                           QStringLiteral("didBeginStatus")}));
    ASSERT_EQ(m_notifier.notices().size(), 1);
    EXPECT_EQ(m_notifier.notices().at(0).type, UserNotifier::kActionStarted);
    EXPECT_EQ(m_notifier.notices().at(0).title, QStringLiteral("Unknown"));
    EXPECT_EQ(m_notifier.notices().at(0).details, QStringLiteral("Unknown Action"));
    EXPECT_EQ(manager->displayRunTime(), QStringLiteral("00:00"));
    EXPECT_EQ(manager->startTime(), kStart);
    EXPECT_EQ(m_wakeObjects, QList<const void*>{nullptr});
    EXPECT_TRUE(manager->repositoryRef().isEmpty());

    manager->commandDidStopWithException(nullptr);
    EXPECT_EQ(manager->liveStatus(), ActivityProgressManager::LiveStatus{});
    auto unstarted = makeManager();
    unstarted.reset();
    EXPECT_EQ(m_pane->manager(), nullptr);
    EXPECT_EQ(paneCalls().last(), QStringLiteral("setProgressManager:none"));
}

TEST_F(ActivityProgressTest, ProgressIsInterpretedBeforeThePaneSeesItAndAnyWakeWakes)
{
    const auto manager = makeManager();
    manager->commandDidStart();
    m_wakeObjects.clear();
    const QVariantMap counters = {{QStringLiteral("task"), QStringLiteral("Capturing")},
                                  {QStringLiteral("bytes"), 4096},
                                  {QStringLiteral("time"), 61}};

    manager->commandProgressDidUpdate(counters);
    manager->commandProgressDidUpdate({{QStringLiteral("wake"), false}});
    manager->commandProgressDidUpdate({{QStringLiteral("wake"), QVariant::fromValue(nullptr)}});
    manager->commandProgressDidUpdate({{QStringLiteral("wake"), QStringLiteral("now")}});

    ASSERT_EQ(m_pane->updates().size(), 4);
    EXPECT_EQ(m_pane->updates().at(0).progress, counters);
    EXPECT_EQ(m_pane->updates().at(0).primaryDescription, QStringLiteral("Capturing"));
    EXPECT_EQ(m_pane->updates().at(0).displayRunTime, QStringLiteral("01:01"));
    EXPECT_EQ(m_wakeObjects.size(), 2);
}

TEST_F(ActivityProgressTest, ASuccessfulStopEndsThePaneThenAnnouncesTheEndOnce)
{
    const auto manager = makeManager();
    service().addListener(manager, QStringLiteral("cap-success"));
    manager->commandDidStart();
    manager->commandProgressDidUpdate({{QStringLiteral("time"), 5}});
    ASSERT_TRUE(manager->commandIsWorking());
    m_events.clear();
    m_now = kStart.addSecs(5);

    manager->commandDidStopWithException(nullptr);

    EXPECT_FALSE(manager->commandIsWorking());
    EXPECT_EQ(manager->stopTime(), kStart.addSecs(5));
    EXPECT_FALSE(service().hasListenerForCommandIdentifier(QStringLiteral("cap-success")));
    EXPECT_TRUE(m_events.isEmpty()) << m_events.join(u',').toStdString();
    drainMainQueue();

    EXPECT_EQ(m_events, (QStringList{QStringLiteral("didEndStatusWithException:none"),
                                     QStringLiteral("wake"), QStringLiteral("end")}));
    EXPECT_EQ(m_endObjects, QList<const void*>{manager.get()});
    EXPECT_EQ(m_pane->endDescription(), QStringLiteral("Unknown complete"));
    EXPECT_FALSE(manager->showingAlternateDescription());
    EXPECT_EQ(m_delays, QList<std::chrono::milliseconds>{std::chrono::milliseconds(1000)});
    EXPECT_EQ(m_history.updates(), 0);
}

TEST_F(ActivityProgressTest, EveryKindOfStopIsShownNotifiedAndEndsOnce)
{
    auto hard = std::make_shared<KSException>(QStringLiteral("IO"), QStringLiteral("disk gone"));
    hard->setPOSIXErr(5);
    auto soft = std::make_shared<KSException>(QStringLiteral("IO"), QStringLiteral("skipped"));
    soft->setSoft(true);
    auto null = std::make_shared<KSException>(QStringLiteral("Bug"), QStringLiteral("none"));
    null->setFlag(QStringLiteral(".Null"));
    const struct
    {
        std::shared_ptr<KSException> exception;
        const char* description;
        const char* runTime;
        const char* paneEnd;
        int notice;
    } cases[] = {
        {nullptr, "Unknown complete", "complete", "none", UserNotifier::kActionCompleted},
        {hard, "Unknown stopped", "stopped", "IO", UserNotifier::kActionIncomplete},
        {soft, "Unknown stopped", "complete", "IO", UserNotifier::kActionIncomplete},
        {null, "Unknown complete", "complete", "none", UserNotifier::kActionCompleted},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.paneEnd);
        m_endObjects.clear();
        const int updates = m_history.updates();
        const auto manager = makeManager();
        manager->commandDidStart();

        manager->commandDidStopWithException(c.exception);
        drainMainQueue();

        EXPECT_EQ(manager->primaryDescription(), QString::fromLatin1(c.description));
        EXPECT_EQ(manager->displayRunTime(), QString::fromLatin1(c.runTime));
        EXPECT_EQ(paneCalls().last(),
                  QStringLiteral("didEndStatusWithException:") + QString::fromLatin1(c.paneEnd));
        EXPECT_EQ(m_notifier.notices().last().type, c.notice);
        EXPECT_EQ(m_endObjects, QList<const void*>{manager.get()});
        runDelayed();
        EXPECT_EQ(m_history.updates(), updates + 1);
        if (c.exception == hard) {
            ASSERT_TRUE(m_pane->endException());
            EXPECT_EQ(m_pane->endException()->reason(), QStringLiteral("disk gone"));
            EXPECT_EQ(m_notifier.notices().last().info, hard->userInfo());
        }
    }
}

TEST_F(ActivityProgressTest, ProgressAfterTheStopIsAPostMortemThatResignsThePane)
{
    const auto manager = makeManager();
    manager->commandDidStart();
    manager->commandDidStopWithException(nullptr);
    drainMainQueue();
    const QString ended = manager->primaryDescription();
    m_events.clear();

    manager->commandProgressDidUpdate(
        {{QStringLiteral("task"), QStringLiteral("Zombie")}, {QStringLiteral("wake"), true}});
    EXPECT_TRUE(m_events.isEmpty());
    drainMainQueue();

    EXPECT_EQ(m_events, QStringList{QStringLiteral("resign")});
    EXPECT_EQ(manager->primaryDescription(), ended);
    EXPECT_TRUE(m_pane->updates().isEmpty());
    EXPECT_EQ(m_log
                  ->linesContaining(QStringLiteral("received post-mortum: discarding dead "
                                                   "monitor for connection"))
                  .size(),
              1);
    EXPECT_EQ(m_endObjects.size(), 1);
}

TEST_F(ActivityProgressTest, ACommandRemovedWhileRunningHasLostItsConnection)
{
    const auto never = makeManager();
    service().addListener(never, QStringLiteral("cap-never"));
    const auto neverPane = m_pane;
    const auto running = makeManager();
    service().addListener(running, QStringLiteral("cap-lost"));
    running->commandDidStart();
    m_now = kStart.addSecs(242);

    service().removeAllListeners();
    drainMainQueue();

    EXPECT_EQ(running->stopTime(), kStart.addSecs(242));
    EXPECT_EQ(running->runTime(), 242.0);
    ASSERT_TRUE(running->exception());
    EXPECT_EQ(running->exception()->name(), QStringLiteral("IPC"));
    EXPECT_EQ(running->exception()->reason(), QStringLiteral("lost connection with command"));
    EXPECT_EQ(running->exception()->userInfo().value(QStringLiteral(".Explain")),
              QStringLiteral("disconnect"));
    EXPECT_EQ(paneCalls().last(), QStringLiteral("didEndStatusWithException:IPC"));
    EXPECT_EQ(running->displayRunTime(), QStringLiteral("stopped"));
    EXPECT_EQ(m_endObjects, QList<const void*>{running.get()}) << "not the one never started";
    EXPECT_FALSE(never->hasStopped());
    EXPECT_EQ(neverPane->calls(), QStringList{QStringLiteral("setProgressManager")});
}

TEST_F(ActivityProgressTest, AlertsComeFromTheCanceledRuleThenTheRuleForAnyCommand)
{
    const auto manager = makeManager();
    KSException canceled(QStringLiteral("Cancel"), QStringLiteral("user canceled"));
    canceled.setDetail(QStringLiteral("capture"), QStringLiteral(".Command"));
    const KSException failed(QStringLiteral("IO"), QStringLiteral("disk gone"));

    const auto canceledAlert = manager->chooseAlertForException(&canceled);
    const auto failedAlert = manager->chooseAlertForException(&failed);

    ASSERT_TRUE(canceledAlert);
    EXPECT_EQ(canceledAlert->message(), QStringLiteral("Capture Stopped"));
    ASSERT_TRUE(failedAlert);
    EXPECT_NE(failedAlert->message(), canceledAlert->message());
    EXPECT_FALSE(manager->chooseAlertForException(nullptr));
}

TEST(PaneTableTest, CommandNamesChooseThePaneAndOnlyThoseGetAManager)
{
    using Kind = ProgressPane::Kind;
    const QList<std::pair<QString, Kind>> table = {
        {QStringLiteral("capture"), Kind::File},    {QStringLiteral("recall"), Kind::File},
        {QStringLiteral("restore"), Kind::File},    {QStringLiteral("merge"), Kind::Details},
        {QStringLiteral("combine"), Kind::Details}, {QStringLiteral("delete"), Kind::Details},
        {QStringLiteral("erase"), Kind::Details},   {QStringLiteral("compact"), Kind::Compact},
        {QStringLiteral("verify"), Kind::Index},    {QStringLiteral("reindex"), Kind::Index},
        {QStringLiteral("repair"), Kind::Index},
    };
    for (const auto& [name, kind] : table) {
        EXPECT_EQ(ProgressPane::umbrellaControllerForCommand(name), kind) << name.toStdString();
    }
    for (const QString& name :
         {QStringLiteral("dump"), QStringLiteral("install"), QStringLiteral("Capture"),
          QStringLiteral("correction"), QString()}) {
        EXPECT_FALSE(ProgressPane::umbrellaControllerForCommand(name)) << name.toStdString();
    }

    const auto capture = ActivityProgressManager::initWithCommand(QStringLiteral("capture"));
    ASSERT_TRUE(capture) << "without a pane factory too";
    EXPECT_TRUE(capture->viewController());
    QList<Kind> kinds;
    ProgressServices::setPaneFactory([&kinds](Kind kind) {
        kinds.append(kind);
        return std::make_shared<RecordingProgressPane>();
    });
    const auto compact = ActivityProgressManager::initWithCommand(QStringLiteral("compact"));
    const auto dump = ActivityProgressManager::initWithCommand(QStringLiteral("dump"));
    ProgressServices::setPaneFactory({});
    ASSERT_TRUE(compact);
    EXPECT_FALSE(dump);
    EXPECT_EQ(kinds, QList<Kind>{Kind::Compact});
    const auto pane = std::dynamic_pointer_cast<RecordingProgressPane>(compact->viewController());
    ASSERT_TRUE(pane);
    EXPECT_EQ(pane->manager(), compact.get());
}

// A manager connected the way the monitor connects one, to a command played by a peer
// connection of this process, which counts every question.
class ConnectedProgressTest : public ActivityProgressTest
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(MessagingThread::instance().connection().isConnected())
            << "no session bus: run the tests through scripts/headless";
        ASSERT_TRUE(m_peer.isConnected());
        ActivityProgressTest::SetUp();
        service().setSwitchboardName(QStringLiteral("com.kestrom.monitor"));
        m_command = new FakeCommand;
        m_endpoint = m_peer.serve(m_command, QStringLiteral("/test/progress"));
    }

    std::shared_ptr<ActivityProgressManager>
    connectedManager(const QString& identifier, std::optional<FakeCommand::Answers> answers = {})
    {
        if (answers) {
            m_command->setAnswers(*answers);
        }
        auto manager = makeManager();
        manager->connectToCommand(std::make_shared<CommandOnXPCConnection>(
            QStringLiteral("capture"), m_endpoint, identifier));
        return manager;
    }

    PeerBus m_peer{QStringLiteral("peer-progress")};
    FakeCommand* m_command = nullptr;
    Endpoint m_endpoint;
};

TEST_F(ConnectedProgressTest, StartAsksTheCommandOnceWhatItIsAndTellsThePane)
{
    const auto manager = connectedManager(QStringLiteral("cap-start"));

    manager->commandDidStart();

    EXPECT_EQ(paneCalls(), (QStringList{QStringLiteral("setProgressManager"),
                                        QStringLiteral("setActionID:6F1C2A40-action"),
                                        QStringLiteral("didBeginStatus")}));
    ASSERT_EQ(m_notifier.notices().size(), 1);
    const RecordingUserNotifier::Notice notice = m_notifier.notices().at(0);
    EXPECT_EQ(QStringList({notice.title, notice.details, notice.identifier}),
              (QStringList{QStringLiteral("Capture"), QStringLiteral("Nightly capture"),
                           QStringLiteral("6F1C2A40-action")}));
    EXPECT_EQ(manager->repositoryRef(), QByteArrayLiteral("archived reference"));
    EXPECT_TRUE(manager->beginProgressSent());

    manager->humanReadableCommandName();
    manager->displayTitle();
    manager->actionUUID();
    for (const QString& member :
         {QStringLiteral("queryNameWithReply"), QStringLiteral("queryDisplayDescriptionWithReply"),
          QStringLiteral("queryActionUUIDWithReply"), QStringLiteral("querySupportsProperty"),
          QStringLiteral("queryRepositoryRefWithReply")}) {
        EXPECT_EQ(m_command->count(member), 1) << member.toStdString();
    }
}

TEST_F(ConnectedProgressTest, ACommandOfNoActionOrArchiveIsNotAskedForOneNorRescheduled)
{
    FakeCommand::Answers answers;
    answers.supportsRepositoryRef = false;
    answers.actionUUID.clear();
    answers.canCancel = true;
    const auto manager = connectedManager(QStringLiteral("cap-noref"), answers);
    manager->commandDidStart();

    EXPECT_TRUE(manager->repositoryRef().isEmpty());
    EXPECT_EQ(m_command->count(QStringLiteral("querySupportsProperty")), 1);
    EXPECT_EQ(m_command->count(QStringLiteral("queryRepositoryRefWithReply")), 0);
    EXPECT_TRUE(manager->liveStatus().canCancel);
    EXPECT_FALSE(manager->liveStatus().canReschedule);
    EXPECT_EQ(m_pane->actionID(), QString());
}

TEST_F(ConnectedProgressTest, RunningBeginsProgressBeforeTheCommandIsToldToRun)
{
    const auto manager = connectedManager(QStringLiteral("cap-run"));

    manager->runCommand();
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_command->count(QStringLiteral("run")) == 1; }));
    manager->commandDidStart();

    const QStringList calls = m_command->calls();
    EXPECT_LT(calls.indexOf(QStringLiteral("queryActionUUIDWithReply")),
              calls.indexOf(QStringLiteral("run")));
    EXPECT_EQ(paneCalls().count(QStringLiteral("didBeginStatus")), 1);
    EXPECT_EQ(m_notifier.notices().size(), 1);
}

TEST_F(ConnectedProgressTest, LiveStatusIsAskedOnceUntilTheNextMessage)
{
    FakeCommand::Answers answers;
    answers.canCancel = true;
    answers.isPaused = true;
    answers.canPause = true;
    const auto manager = connectedManager(QStringLiteral("cap-status"), answers);
    manager->commandDidStart();

    const ActivityProgressManager::LiveStatus first = manager->liveStatus();
    const ActivityProgressManager::LiveStatus second = manager->liveStatus();

    const ActivityProgressManager::LiveStatus expected{true, true, false, true, true, true};
    EXPECT_EQ(first, expected);
    EXPECT_EQ(second, expected);
    EXPECT_EQ(m_command->count(QStringLiteral("queryCanCancelWithReply")), 1);
    EXPECT_EQ(m_command->count(QStringLiteral("queryIsHeldWithReply")), 1);

    answers.isHeld = true;
    m_command->setAnswers(answers);
    manager->commandProgressDidUpdate({{QStringLiteral("time"), 3}});
    EXPECT_TRUE(manager->liveStatus().isHeld);
    EXPECT_EQ(m_command->count(QStringLiteral("queryIsPausedWithReply")), 2);
}

TEST_F(ConnectedProgressTest, ADeadCommandIsUnknownAndItsStatusStaysToBeAsked)
{
    auto manager = makeManager();
    auto connection = std::make_shared<CommandOnXPCConnection>(
        QStringLiteral("capture"), m_peer.nowhere(), QStringLiteral("cap-dead"));
    connection->setTolerance(0);
    // Registered before the command is told, so the failure to tell it leaves the manager
    // connected to nobody.
    EXPECT_THROW(manager->connectToCommand(connection), KSException);

    manager->commandDidStart();

    EXPECT_EQ(manager->humanReadableCommandName(), QStringLiteral("Unknown"));
    EXPECT_EQ(manager->displayTitle(), QStringLiteral("Unknown Action"));
    EXPECT_EQ(m_notifier.notices().at(0).title, QStringLiteral("Unknown"));
    for (const QString& message : {QStringLiteral("command name query failed"),
                                   QStringLiteral("command description query failed"),
                                   QStringLiteral("Action ID query failed"),
                                   QStringLiteral("cap-dead: repositoryRef query failed")}) {
        const auto lines = m_log->linesContaining(message);
        ASSERT_FALSE(lines.isEmpty()) << message.toStdString();
        EXPECT_EQ(lines.at(0).classification, 9);
    }
    EXPECT_THROW(manager->liveStatus(), KSException);
    EXPECT_THROW(manager->liveStatus(), KSException);
}
