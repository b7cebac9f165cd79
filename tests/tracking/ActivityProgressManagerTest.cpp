#include "tracking/ActivityProgressManager.h"

#include "CommandPeerFixture.h"
#include "errors/ContextualAlertInfo.h"
#include "fakes/RecordingCaptureHistory.h"
#include "fakes/RecordingProgressPane.h"
#include "fakes/RecordingUserNotifier.h"
#include "foundation/KeyedArchive.h"
#include "foundation/NotificationCenter.h"
#include "support/ChildProcess.h"
#include "tracking/ProgressServices.h"

#include <QDBusPendingCallWatcher>
#include <QTest>
#include <gmock/gmock.h>

using namespace Qt::StringLiterals;

static const QDateTime kStart = QDateTime(QDate(2024, 3, 1), QTime(22, 0), Qt::UTC);

// A manager with a recording pane, the process's collaborators replaced by recorders, a clock
// the test moves, and the wake-up and end notifications counted in one list of events with the
// pane's calls. A connected manager talks to the peer's command, which counts every question.
class ActivityProgressTest : public CommandPeerFixture
{
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(CommandPeerFixture::SetUp());
        ProgressServices::setUserNotifier(&m_notifier);
        ProgressServices::setCaptureHistory(&m_history);
        CommandListener::setClock([this] { return m_now; });
        for (const auto& [name, event] :
             {std::pair(ActivityProgressManager::kMonitorWakeUpCall, u"wake"_s),
              std::pair(ActivityProgressManager::kMonitorProgressDidEnd, u"end"_s)}) {
            m_tokens.append(NotificationCenter::defaultCenter().addObserver(
                name, nullptr,
                [this, event](const QString&, const void* object, const QVariantMap&) {
                    m_events.append(event);
                    (event == u"wake" ? m_wakeObjects : m_endObjects).append(object);
                }));
        }
    }

    void TearDown() override
    {
        service().removeAllListeners();
        drainMainQueue();
        // A stopped command's manager and its pane hold each other until the pane resigns.
        for (const auto& pane : std::as_const(m_panes)) {
            pane->holdManagerUntilResigned(nullptr);
        }
        for (const int token : std::as_const(m_tokens)) {
            NotificationCenter::defaultCenter().removeObserver(token);
        }
        ProgressServices::setUserNotifier(nullptr);
        ProgressServices::setCaptureHistory(nullptr);
        ProgressServices::setPaneFactory({});
        CommandListener::setClock({});
        CommandPeerFixture::TearDown();
    }

    // A manager whose command cannot be asked anything, registered when an identifier is given.
    std::shared_ptr<ActivityProgressManager> makeManager(const QString& identifier = {})
    {
        m_pane = m_panes.emplace_back(std::make_shared<RecordingProgressPane>());
        m_pane->onCall = [this](const QString& call) {
            m_events.append(call);
        };
        auto manager = std::make_shared<ActivityProgressManager>(m_pane);
        manager->setDelayedCall(
            [this](std::chrono::milliseconds delay, std::function<void()> work) {
                m_delays.append(delay);
                m_delayed.append(std::move(work));
            });
        if (!identifier.isNull()) {
            service().addListener(manager, identifier);
        }
        return manager;
    }

    // Ended as a command whose connection is gone: state, pane and log.
    void expectLost(ActivityProgressManager& manager) const
    {
        ASSERT_TRUE(manager.exception());
        EXPECT_EQ(manager.exception()->name(), u"IPC"_s);
        EXPECT_EQ(manager.exception()->reason(), u"lost connection with command"_s);
        EXPECT_EQ(manager.exception()->userInfo().value(u".Explain"_s), u"disconnect"_s);
        EXPECT_EQ(manager.primaryDescription(), manager.humanReadableCommandName() + u" stopped"_s);
        EXPECT_EQ(manager.displayRunTime(), u"stopped"_s);
        EXPECT_EQ(m_pane->calls().last(), u"didEndStatusWithException:IPC"_s);
        EXPECT_EQ(m_notifier.notices().last().type, UserNotifier::kActionIncomplete);
        EXPECT_FALSE(m_log->linesContaining(u"command returned exception"_s).isEmpty());
    }

    RecordingUserNotifier m_notifier;
    RecordingCaptureHistory m_history;
    QDateTime m_now = kStart;
    QList<int> m_tokens;
    QList<const void*> m_wakeObjects;
    QList<const void*> m_endObjects;
    QStringList m_events;
    std::shared_ptr<RecordingProgressPane> m_pane;
    QList<std::shared_ptr<RecordingProgressPane>> m_panes;
    QList<std::chrono::milliseconds> m_delays;
    QList<std::function<void()>> m_delayed;
};

// Progress begins once whether the command starts on its own or is run from here, and a run
// begins it before the command is told to run. Progress is interpreted before the pane sees
// it, and any wake value but false or nil wakes.
TEST_F(ActivityProgressTest, StartOrRunAsksTheCommandOnceWhatItIsAndTellsThePane)
{
    for (const int pass : {1, 2}) {
        SCOPED_TRACE(pass);
        auto manager = connected(makeManager(), u"cap-start"_s);
        EXPECT_EQ(manager->liveStatus(), ActivityProgressManager::LiveStatus{}) << "nothing asked";
        const qsizetype notices = m_notifier.notices().size();
        m_wakeObjects.clear();
        if (pass == 2) {
            manager->runCommand();
            ASSERT_TRUE(QTest::qWaitFor([this] { return m_command->count(u"run"_s) == 1; }));
            const QStringList calls = m_command->calls();
            EXPECT_LT(calls.lastIndexOf(u"queryActionUUIDWithReply"_s), calls.indexOf(u"run"_s));
        }
        manager->commandDidStart();

        EXPECT_EQ(m_pane->calls(),
                  (QStringList{u"setProgressManager"_s, u"setActionID:6F1C2A40-action"_s,
                               u"didBeginStatus"_s}));
        ASSERT_EQ(m_notifier.notices().size(), notices + 1);
        EXPECT_THAT(m_notifier.notices().last(),
                    testing::FieldsAre(UserNotifier::kActionStarted, u"Capture"_s,
                                       u"Nightly capture"_s, u"6F1C2A40-action"_s, testing::_));
        EXPECT_EQ(manager->repositoryRef(), QByteArrayLiteral("archived reference"));
        EXPECT_EQ(manager->displayRunTime(), u"00:00"_s);
        EXPECT_EQ(manager->startTime(), kStart);
        EXPECT_EQ(m_wakeObjects, QList<const void*>{nullptr});

        manager->humanReadableCommandName();
        manager->displayTitle();
        manager->actionUUID();
        for (const QString& member :
             {u"queryNameWithReply"_s, u"queryDisplayDescriptionWithReply"_s,
              u"queryActionUUIDWithReply"_s, u"querySupportsProperty"_s,
              u"queryRepositoryRefWithReply"_s}) {
            EXPECT_EQ(m_command->count(member), pass) << member.toStdString();
        }

        const QVariantMap counters = {
            {u"task"_s, u"Capturing"_s}, {u"bytes"_s, 4096}, {u"time"_s, 61}};
        manager->commandProgressDidUpdate(counters);
        for (const QVariant& wake :
             {QVariant(false), QVariant::fromValue(nullptr), QVariant(u"now"_s)}) {
            manager->commandProgressDidUpdate({{u"wake"_s, wake}});
        }
        ASSERT_EQ(m_pane->updates().size(), 4);
        EXPECT_THAT(m_pane->updates().at(0),
                    testing::FieldsAre(counters, u"Capturing"_s, u"01:01"_s));
        EXPECT_EQ(m_wakeObjects.size(), 3);

        manager->commandDidStopWithException(nullptr);
        EXPECT_EQ(manager->liveStatus(), ActivityProgressManager::LiveStatus{});
        manager.reset();
        m_pane->resign(); // the stopped command's pane held its manager until now
        drainMainQueue();
        EXPECT_EQ(m_pane->calls().last(), u"setProgressManager:none"_s);
    }
}

TEST_F(ActivityProgressTest, EveryKindOfStopEndsThePaneAfterTheStopThenNotifiesAndEndsOnce)
{
    auto hard = std::make_shared<KSException>(u"IO"_s, u"disk gone"_s);
    hard->setPOSIXErr(5);
    auto soft = std::make_shared<KSException>(u"IO"_s, u"skipped"_s);
    soft->setSoft(true);
    auto null = std::make_shared<KSException>(u"Bug"_s, u"none"_s);
    null->setFlag(u".Null"_s);
    // The stop, then what the pane and the manager show, the exception the pane is told of
    // (none: empty) and the notice.
    const std::tuple<std::shared_ptr<KSException>, QStringList, QString, int> cases[] = {
        {nullptr,
         {u"none"_s, u"Unknown complete"_s, u"complete"_s},
         {},
         UserNotifier::kActionCompleted},
        {hard,
         {u"IO"_s, u"Unknown stopped"_s, u"stopped"_s},
         u"disk gone"_s,
         UserNotifier::kActionIncomplete},
        {soft,
         {u"IO"_s, u"Unknown stopped"_s, u"complete"_s},
         u"skipped"_s,
         UserNotifier::kActionIncomplete},
        {null,
         {u"none"_s, u"Unknown complete"_s, u"complete"_s},
         {},
         UserNotifier::kActionCompleted},
    };
    for (const auto& [exception, shown, paneReason, notice] : cases) {
        SCOPED_TRACE(shown.join(u' ').toStdString());
        m_endObjects.clear();
        m_delays.clear();
        const int updates = m_history.updates();
        const auto manager = makeManager(u"cap-stop"_s);
        manager->commandDidStart();
        manager->commandProgressDidUpdate({{u"time"_s, 5}, {u"alt"_s, true}});
        ASSERT_TRUE(manager->commandIsWorking());
        m_events.clear();
        m_now = kStart.addSecs(5);

        manager->commandDidStopWithException(exception);
        EXPECT_FALSE(manager->commandIsWorking());
        EXPECT_EQ(manager->stopTime(), kStart.addSecs(5));
        EXPECT_FALSE(service().hasListenerForCommandIdentifier(u"cap-stop"_s));
        EXPECT_TRUE(m_events.isEmpty()) << m_events.join(u',').toStdString();
        drainMainQueue();

        // Progress after the stop is a post-mortem: not shown, and the pane resigns.
        manager->commandProgressDidUpdate({{u"task"_s, u"Zombie"_s}, {u"wake"_s, true}});
        drainMainQueue();
        EXPECT_EQ(m_events, (QStringList{u"didEndStatusWithException:"_s + shown.at(0), u"wake"_s,
                                         u"end"_s, u"resign"_s}));
        EXPECT_EQ(QStringList({m_pane->endException() ? m_pane->endException()->name() : u"none"_s,
                               m_pane->endDescription(), manager->displayRunTime()}),
                  shown);
        EXPECT_EQ(manager->primaryDescription(), m_pane->endDescription());
        EXPECT_FALSE(manager->showingAlternateDescription());
        EXPECT_EQ(m_notifier.notices().last().type, notice);
        EXPECT_EQ(m_endObjects, QList<const void*>{manager.get()});
        EXPECT_EQ(m_delays, QList<std::chrono::milliseconds>{std::chrono::milliseconds(1000)});
        EXPECT_EQ(m_history.updates(), updates);
        for (const auto& job : std::exchange(m_delayed, {})) {
            job();
        }
        EXPECT_EQ(m_history.updates(), updates + 1);
        EXPECT_EQ(m_pane->endException() ? m_pane->endException()->reason() : QString(),
                  paneReason);
        if (exception == hard) {
            EXPECT_EQ(m_notifier.notices().last().info, hard->userInfo());
        }
        m_now = kStart;
    }
    const QString postMortem = u"received post-mortum: discarding dead monitor for connection"_s;
    EXPECT_EQ(m_log->linesContaining(postMortem).size(), 4);
}

// A real command process that is killed is lost through its connection's invalidation, at once,
// with the cull still a whole interval away.
TEST_F(ActivityProgressTest, ARunningCommandWhoseConnectionIsLostThatIsRemovedOrKilledIsLost)
{
    const auto never = makeManager(u"cap-never"_s);
    const auto neverPane = m_pane;
    never->connectionToCommandWasLost();
    drainMainQueue();
    EXPECT_TRUE(service().hasListenerForCommandIdentifier(u"cap-never"_s))
        << "before its start the cull decides";
    for (const QString& how : {u"connection"_s, u"removal"_s, u"kill"_s}) {
        SCOPED_TRACE(how.toStdString());
        m_now = kStart;
        const auto running = makeManager(how == u"kill" ? QString() : u"cap-lost"_s);
        std::optional<ChildProcess> command;
        if (how == u"kill") {
            const Endpoint listener = running->endpoint();
            command.emplace(QStringLiteral(DYING_COMMAND_PROGRAM),
                            QStringList{listener.service(), listener.path()});
            ASSERT_TRUE(command->waitForOutput(u"/test/dying"_s));
            const QStringList served = command->output().section(u'\n', 0, 0).split(u' ');
            ASSERT_EQ(served.size(), 3) << command->output().toStdString();
            running->connectToCommand(std::make_shared<CommandOnXPCConnection>(
                u"capture"_s, Endpoint(served.at(1), served.at(2)), u"cap-lost"_s));
            ASSERT_TRUE(QTest::qWaitFor(
                [&] { return running->primaryDescription() == u"Capturing"_s; }, 30000));
            ASSERT_EQ(service().cullTimer()->interval(), 121000);
        } else {
            running->commandDidStart();
        }
        ASSERT_TRUE(running->commandIsRunning());
        m_now = kStart.addSecs(242);
        m_endObjects.clear();

        if (how == u"connection") {
            running->connectionToCommandWasLost();
        } else if (how == u"removal") {
            service().removeListener(running.get());
        } else {
            ASSERT_TRUE(command->stop(SIGKILL));
            ASSERT_TRUE(QTest::qWaitFor([&] { return running->hasStopped(); }, 30000));
        }
        drainMainQueue();

        EXPECT_EQ(running->runTime(), 242.0);
        expectLost(*running);
        EXPECT_EQ(running->primaryDescription(),
                  how == u"kill" ? u"Capture stopped"_s : u"Unknown stopped"_s);
        EXPECT_FALSE(service().hasListenerForCommandIdentifier(u"cap-lost"_s));
        EXPECT_EQ(m_endObjects, QList<const void*>{running.get()});
        running->connectionToCommandWasLost();
        drainMainQueue();
        EXPECT_EQ(m_endObjects.size(), 1) << "after the stop there is nothing left to end";
    }
    EXPECT_TRUE(m_log->linesContaining(u"culling dead listener"_s).isEmpty());
    service().removeAllListeners();
    drainMainQueue();
    EXPECT_FALSE(never->hasStopped());
    EXPECT_EQ(neverPane->calls(), QStringList{u"setProgressManager"_s});
}

// A command's last progress may cross its stop on the bus: until the pane resigns, the manager
// and its endpoint are still there to hear it as a post-mortem, and then both go.
TEST_F(ActivityProgressTest, ProgressAfterTheStopIsAPostMortemUntilThePaneResigns)
{
    auto manager = makeManager(u"cap-late"_s);
    const Endpoint listener = manager->endpoint();
    const std::weak_ptr<ActivityProgressManager> watched = manager;
    manager.reset();
    const auto call = [&](const QString& member, const QVariantList& arguments) {
        QDBusPendingCallWatcher watcher(
            m_peer.bus().asyncCall(listenerMessage(listener, member, arguments)));
        EXPECT_TRUE(QTest::qWaitFor([&] { return watcher.isFinished(); }, 30000));
        return watcher.reply();
    };
    call(u"commandStarted"_s, {});
    EXPECT_EQ(call(u"commandStoppedWithExceptionData"_s, {QByteArray()}).type(),
              QDBusMessage::ReplyMessage);
    drainMainQueue();
    ASSERT_FALSE(watched.expired()) << "the stopped command's manager went before its pane";

    const QDBusMessage late =
        call(u"progressUpdate"_s, {KeyedArchive::archivedData(QVariantMap{{u"task"_s, u"x"_s}})});
    EXPECT_EQ(late.type(), QDBusMessage::ReplyMessage) << late.errorMessage().toStdString();
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_pane->calls().contains(u"resign"_s); }, 30000));
    EXPECT_EQ(m_log->classesOf(u"received post-mortum: discarding dead monitor"_s), QList<int>{9});
    drainMainQueue();
    EXPECT_TRUE(watched.expired()) << "the resigned pane still holds the manager";
}

TEST_F(ActivityProgressTest, LiveStatusIsAskedOnceUntilTheNextMessageAndReschedulingNeedsAnAction)
{
    FakeCommand::Answers answers{.canCancel = true, .isPaused = true, .canPause = true};
    m_command->setAnswers(answers);
    const auto manager = connected(makeManager(), u"cap-status"_s);
    manager->commandDidStart();

    const ActivityProgressManager::LiveStatus expected{true, true, false, true, true, true};
    EXPECT_EQ(manager->liveStatus(), expected);
    EXPECT_EQ(manager->liveStatus(), expected);
    EXPECT_EQ(m_command->count(u"queryCanCancelWithReply"_s), 1);
    EXPECT_EQ(m_command->count(u"queryIsHeldWithReply"_s), 1);

    answers.isHeld = true;
    m_command->setAnswers(answers);
    manager->commandProgressDidUpdate({{u"time"_s, 3}});
    EXPECT_TRUE(manager->liveStatus().isHeld);
    EXPECT_EQ(m_command->count(u"queryIsPausedWithReply"_s), 2);

    answers.supportsRepositoryRef = false;
    answers.actionUUID.clear();
    m_command->setAnswers(answers);
    const auto plain = connected(makeManager(), u"cap-plain"_s);
    plain->commandDidStart();
    EXPECT_TRUE(plain->repositoryRef().isEmpty());
    EXPECT_EQ(m_command->count(u"queryRepositoryRefWithReply"_s), 1) << "only the first asked";
    answers.supportsRepositoryRef = true;
    answers.repositoryRef = QByteArray("\xf6", 1); // an archived nil
    m_command->setAnswers(answers);
    const auto none = connected(makeManager(), u"cap-none"_s);
    none->commandDidStart();
    EXPECT_EQ(m_command->count(u"queryRepositoryRefWithReply"_s), 2);
    EXPECT_TRUE(none->repositoryRef().isNull()) << "nil stays nil";
    EXPECT_TRUE(plain->liveStatus().canCancel);
    EXPECT_FALSE(plain->liveStatus().canReschedule);
    EXPECT_EQ(m_pane->actionID(), QString());
}

// Its name, title and status cannot be asked; the alert follows the canceled rule, then the
// rule for any command.
TEST_F(ActivityProgressTest, ADeadCommandIsUnknownItsStatusStaysToBeAskedAndItsAlertIsChosen)
{
    const auto manager = makeManager();
    connectToNothing(*manager, u"cap-dead"_s);
    manager->commandDidStart();

    EXPECT_EQ(manager->humanReadableCommandName(), u"Unknown"_s);
    EXPECT_EQ(manager->displayTitle(), u"Unknown Action"_s);
    EXPECT_EQ(m_notifier.notices().at(0).title, u"Unknown"_s);
    for (const QString& message :
         {u"command name query failed"_s, u"command description query failed"_s,
          u"Action ID query failed"_s, u"cap-dead: repositoryRef query failed"_s}) {
        EXPECT_EQ(m_log->classesOf(message).value(0), 9) << message.toStdString();
    }
    EXPECT_THROW(manager->liveStatus(), KSException);
    EXPECT_THROW(manager->liveStatus(), KSException);

    KSException canceled(u"Cancel"_s, u"user canceled"_s);
    canceled.setDetail(u"capture"_s, u".Command"_s);
    const KSException failed(u"IO"_s, u"disk gone"_s);
    const auto canceledAlert = manager->chooseAlertForException(&canceled);
    const auto failedAlert = manager->chooseAlertForException(&failed);
    ASSERT_TRUE(canceledAlert && failedAlert);
    EXPECT_EQ(canceledAlert->message(), u"Capture Stopped"_s);
    EXPECT_NE(failedAlert->message(), canceledAlert->message());
    EXPECT_FALSE(manager->chooseAlertForException(nullptr));
}

TEST(PaneTableTest, CommandNamesChooseThePaneAndOnlyThoseGetAManager)
{
    using Kind = ProgressPane::Kind;
    const QList<std::pair<QString, Kind>> table = {
        {u"capture"_s, Kind::File},  {u"recall"_s, Kind::File},     {u"restore"_s, Kind::File},
        {u"merge"_s, Kind::Details}, {u"combine"_s, Kind::Details}, {u"delete"_s, Kind::Details},
        {u"erase"_s, Kind::Details}, {u"compact"_s, Kind::Compact}, {u"verify"_s, Kind::Index},
        {u"reindex"_s, Kind::Index}, {u"repair"_s, Kind::Index},
    };
    for (const auto& [name, kind] : table) {
        EXPECT_EQ(ProgressPane::umbrellaControllerForCommand(name), kind) << name.toStdString();
    }
    for (const QString& name :
         {u"dump"_s, u"install"_s, u"Capture"_s, u"correction"_s, QString()}) {
        EXPECT_FALSE(ProgressPane::umbrellaControllerForCommand(name)) << name.toStdString();
    }

    const auto capture = ActivityProgressManager::initWithCommand(u"capture"_s);
    ASSERT_TRUE(capture) << "without a pane factory too";
    EXPECT_TRUE(capture->viewController());
    QList<Kind> kinds;
    ProgressServices::setPaneFactory([&kinds](Kind kind) {
        kinds.append(kind);
        return std::make_shared<RecordingProgressPane>();
    });
    const auto compact = ActivityProgressManager::initWithCommand(u"compact"_s);
    const auto dump = ActivityProgressManager::initWithCommand(u"dump"_s);
    ProgressServices::setPaneFactory({});
    ASSERT_TRUE(compact);
    EXPECT_FALSE(dump);
    EXPECT_EQ(kinds, QList<Kind>{Kind::Compact});
    const auto pane = std::dynamic_pointer_cast<RecordingProgressPane>(compact->viewController());
    ASSERT_TRUE(pane);
    EXPECT_EQ(pane->manager(), compact.get());
}
