#include "MonitorProcessFixture.h"
#include "foundation/RelativeDate.h"
#include "messaging/InterfaceNames.h"
#include "preferences/PropertyList.h"
#include "support/PrivateBus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QMutex>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kItem = u"org.kde.StatusNotifierItem"_s;
const QString kMenu = u"com.canonical.dbusmenu"_s;
const QString kDocumentsUUID = u"8d1e4b7a-0c3f-4e62-9b15-2f6a7c9e0d11"_s;

QDBusConnection panelBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"panel"_s);
}

double referenceSecondsNow()
{
    return RelativeDate::secondsSinceReferenceDate(QDateTime::currentDateTimeUtc());
}
} // namespace

// Enough of a panel for the monitor's item to register and show its menu.
class SchedulerTestWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
public:
    bool hostRegistered() const { return true; }
    QString item() const
    {
        QMutexLocker locker(&m_mutex);
        return m_item;
    }

public Q_SLOTS:
    Q_SCRIPTABLE void RegisterStatusNotifierItem(const QString& service)
    {
        QMutexLocker locker(&m_mutex);
        m_item = service.startsWith(u'/') ? message().service() : service;
    }

private:
    mutable QMutex m_mutex;
    QString m_item;
};

// The real hub, the real monitor with its status item in a panel the test plays, and the real
// scheduler peer of kestromctl.
class SchedulerEndToEndTest : public MonitorProcessFixture
{
protected:
    struct MenuItem
    {
        int id = 0;
        QString label;
        bool enabled = true;
        QList<MenuItem> children;
    };

    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        ASSERT_TRUE(m_config.isValid());
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
        if (qEnvironmentVariableIsEmpty("DISPLAY")) {
            GTEST_SKIP() << "the panel's tray needs a display: run through scripts/headless";
        }
        m_panelThread.start();
        m_watcher.moveToThread(&m_panelThread);
        QDBusConnection bus = panelBus();
        ASSERT_TRUE(bus.registerObject(u"/StatusNotifierWatcher"_s, &m_watcher,
                                       QDBusConnection::ExportScriptableSlots |
                                           QDBusConnection::ExportAllProperties));
        ASSERT_TRUE(bus.registerService(u"org.kde.StatusNotifierWatcher"_s));
        startMonitor(QStringLiteral(MONITOR_PROGRAM), {}, u"xcb"_s);
        const QDBusMessage shown =
            ask(u"com.kestrom.KSComponentPreferencing"_s, u"setComponentPreferenceValue"_s,
                {KeyedArchive::archivedData(true), u"KSShowStatusMenu"_s});
        ASSERT_TRUE(shown.arguments().value(0).toBool());
        ASSERT_TRUE(QTest::qWaitFor([this] { return !m_watcher.item().isEmpty(); }, 30000))
            << m_monitor->output().toStdString();
    }

    void TearDown() override
    {
        m_scheduler.reset();
        MonitorProcessFixture::TearDown();
        panelBus().unregisterService(u"org.kde.StatusNotifierWatcher"_s);
        panelBus().unregisterObject(u"/StatusNotifierWatcher"_s);
        m_panelThread.quit();
        m_panelThread.wait();
    }

    // The monitor may ask before the scheduler has said it serves: wait for what comes later.
    void startScheduler(const QStringList& arguments, const QString& awaited)
    {
        m_scheduler = ctl(QStringList{u"scheduler"_s} + arguments);
        ASSERT_TRUE(m_scheduler->waitForOutput(awaited)) << m_scheduler->output().toStdString();
    }

    // The requests the scheduler printed, one a line.
    QStringList schedulerLines() const
    {
        QStringList lines = m_scheduler->output().split(u'\n', Qt::SkipEmptyParts);
        lines.removeIf([](const QString& line) { return line.startsWith(u"scheduler serving"_s); });
        return lines;
    }

    QString menuPath() const
    {
        QDBusMessage get =
            QDBusMessage::createMethodCall(m_watcher.item(), u"/StatusNotifierItem"_s,
                                           u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << kItem << u"Menu"_s;
        const QDBusMessage reply = panelBus().call(get, QDBus::Block, 30000);
        return reply.arguments()
            .value(0)
            .value<QDBusVariant>()
            .variant()
            .value<QDBusObjectPath>()
            .path();
    }

    static MenuItem readItem(const QDBusArgument& argument)
    {
        MenuItem item;
        QVariantMap properties;
        argument.beginStructure();
        argument >> item.id >> properties;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            item.children.append(readItem(child.variant().value<QDBusArgument>()));
        }
        argument.endArray();
        argument.endStructure();
        item.label = properties.value(u"label"_s).toString().remove(u'_');
        item.enabled = properties.value(u"enabled"_s, true).toBool();
        return item;
    }

    // The menu as a panel reads it when the user opens it: the monitor rebuilds it first.
    MenuItem openMenu() const
    {
        QDBusMessage aboutToShow =
            QDBusMessage::createMethodCall(m_watcher.item(), menuPath(), kMenu, u"AboutToShow"_s);
        aboutToShow << 0;
        panelBus().call(aboutToShow, QDBus::Block, 30000);
        QDBusMessage layout =
            QDBusMessage::createMethodCall(m_watcher.item(), menuPath(), kMenu, u"GetLayout"_s);
        layout << 0 << -1 << QStringList();
        const QDBusMessage reply = panelBus().call(layout, QDBus::Block, 30000);
        return readItem(reply.arguments().value(1).value<QDBusArgument>());
    }

    // The first item, depth first, whose label starts so; id 0 when there is none.
    static MenuItem find(const MenuItem& menu, const QString& label)
    {
        for (const MenuItem& item : menu.children) {
            if (item.label.startsWith(label)) {
                return item;
            }
            if (const MenuItem found = find(item, label); found.id != 0) {
                return found;
            }
        }
        return {};
    }

    // As a panel does when the user chooses the item.
    void click(const QString& label) const
    {
        const MenuItem item = find(openMenu(), label);
        ASSERT_NE(item.id, 0) << label.toStdString();
        ASSERT_TRUE(item.enabled) << label.toStdString();
        QDBusMessage event =
            QDBusMessage::createMethodCall(m_watcher.item(), menuPath(), kMenu, u"Event"_s);
        event << item.id << u"clicked"_s << QVariant::fromValue(QDBusVariant(0)) << 0U;
        const QDBusMessage reply = panelBus().call(event, QDBus::Block, 30000);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    bool holdShown() const
    {
        const MenuItem menu = openMenu();
        return find(menu, u"Schedules Held Until"_s).id != 0 &&
               find(menu, u"Resume Schedules"_s).enabled;
    }

    QTemporaryDir m_config;
    QThread m_panelThread;
    SchedulerTestWatcher m_watcher;
    std::unique_ptr<ChildProcess> m_scheduler;
};

TEST_F(SchedulerEndToEndTest, AHeldSchedulerIsShownHeldAndTheMenusRequestsReachIt)
{
    QTemporaryDir folder;
    const QString actions = folder.filePath(u"actions.plist"_s);
    {
        const QVariantList list{
            QVariantMap{{u"title"_s, u"Documents hourly"_s},
                        {u"repname"_s, u"Documents"_s},
                        {u"uuid"_s, kDocumentsUUID},
                        {u"runnable"_s, true},
                        {u"time"_s, QDateTime::currentDateTimeUtc().addSecs(7200)}}};
        QFile file(actions);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(PropertyList::xmlData(list).data);
    }
    startScheduler({u"--actions"_s, actions, u"--hold-minutes"_s, u"90"_s}, u"serving"_s);
    ASSERT_TRUE(QTest::qWaitFor([this] { return holdShown(); }, 30000));
    // Asked on the publication, then by the activity window once the scheduler is there, then
    // by the menu as it opened.
    ASSERT_TRUE(m_scheduler->waitForOutput(u"queryActionsInfo"_s));
    EXPECT_EQ(schedulerLines().mid(0, 2),
              (QStringList{u"queryHoldTime"_s, u"queryNextScheduledActionInfo"_s}))
        << m_scheduler->output().toStdString();

    click(u"Resume Schedules"_s);
    ASSERT_TRUE(m_scheduler->waitForOutput(u"setHoldTime 0\n"_s));
    ASSERT_TRUE(QTest::qWaitFor(
        [this] { return find(openMenu(), u"Hold All Schedules"_s).enabled; }, 30000));
    EXPECT_FALSE(find(openMenu(), u"Resume Schedules"_s).enabled);

    // Half an hour from the whole minute nearest to the click.
    const double before = referenceSecondsNow();
    click(u"For 30 Minutes"_s);
    const QRegularExpression held(uR"(setHoldTime ([1-9]\d*)\n)"_s);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return held.match(m_scheduler->output()).hasMatch(); }, 30000))
        << m_scheduler->output().toStdString();
    const double until = held.match(m_scheduler->output()).captured(1).toDouble();
    EXPECT_GE(until, before + 1800 - 30);
    EXPECT_LE(until, referenceSecondsNow() + 1800 + 30);
    EXPECT_TRUE(QTest::qWaitFor([this] { return holdShown(); }, 30000));

    // Run now: the action's time is now, and the notice brings the activity window's question.
    click(u"Documents hourly"_s);
    ASSERT_TRUE(m_scheduler->waitForOutput(u"setAction "_s + kDocumentsUUID + u' '))
        << m_scheduler->output().toStdString();
    EXPECT_TRUE(QTest::qWaitFor(
        [this] {
            const QStringList lines = schedulerLines();
            const qsizetype set = lines.indexOf(QRegularExpression(u"^setAction "_s));
            return lines.indexOf(u"queryNextScheduledActionInfo"_s, set) > set;
        },
        30000))
        << m_scheduler->output().toStdString();
}

struct Misbehaviour
{
    const char* mode;
    bool dies;
    // What the monitor logs of the bad answers, each once, however often it asks.
    QStringList logged;
};

void PrintTo(const Misbehaviour& misbehaviour, std::ostream* stream)
{
    *stream << misbehaviour.mode;
}

class SchedulerMisbehaviourTest : public SchedulerEndToEndTest,
                                  public ::testing::WithParamInterface<Misbehaviour>
{};

TEST_P(SchedulerMisbehaviourTest, TheMonitorKeepsAnsweringAndLogsEachBadAnswerOnce)
{
    startScheduler({u"--misbehave"_s, QString::fromLatin1(GetParam().mode)}, u"queryHoldTime"_s);
    // The status menu asks for the actions each time it opens.
    openMenu();
    openMenu();
    const QDBusMessage barrier =
        ask(InterfaceNames::kComponentMessaging, u"barrierWithCompletion"_s);
    EXPECT_EQ(barrier.type(), QDBusMessage::ReplyMessage) << barrier.errorMessage().toStdString();

    // A scheduler that died is no longer published; the others still are.
    const auto published = [] {
        return KSPublishedConnection::lookUpEndpoint(u"com.kestrom.scheduler"_s).has_value();
    };
    EXPECT_TRUE(QTest::qWaitFor([&] { return published() != GetParam().dies; }, 30000));
    if (!GetParam().dies) {
        EXPECT_TRUE(QTest::qWaitFor(
            [this] { return schedulerLines().count(u"queryActionsInfo"_s) >= 2; }, 30000));
    }
    // Its log is whole once it has stopped.
    ASSERT_TRUE(m_monitor->stop(SIGTERM));
    // One line a question, in the words expected.
    for (const QString& line : GetParam().logged) {
        EXPECT_EQ(logLinesContaining(u"The scheduler's "_s + line.section(u' ', 0, 0)), 1)
            << line.toStdString();
        EXPECT_EQ(logLinesContaining(u"The scheduler's "_s + line), 1) << line.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, SchedulerMisbehaviourTest,
    ::testing::Values(
        Misbehaviour{"wrong-types",
                     false,
                     {u"queryHoldTimeWithReply: a hold time that is no time"_s,
                      u"queryNextScheduledActionInfoWithReply: an answer that is no dictionary"_s,
                      u"queryActionsInfoWithReply: an answer that is no array"_s}},
        Misbehaviour{"silent",
                     false,
                     {u"queryHoldTimeWithReply: no answer within 250 ms"_s,
                      u"queryNextScheduledActionInfoWithReply: no answer within 250 ms"_s,
                      u"queryActionsInfoWithReply: no answer within 250 ms"_s}},
        Misbehaviour{
            "die", true, {u"queryHoldTimeWithReply: org.freedesktop.DBus.Error.NoReply"_s}}),
    [](const ::testing::TestParamInfo<Misbehaviour>& mode) {
        return QString::fromLatin1(mode.param.mode).remove(u'-').toStdString();
    });

#include "SchedulerEndToEndTest.moc"
