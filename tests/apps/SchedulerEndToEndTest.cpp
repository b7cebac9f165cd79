#include "StatusPanelFixture.h"
#include "foundation/RelativeDate.h"
#include "messaging/InterfaceNames.h"
#include "preferences/PropertyList.h"
#include "support/PrivateBus.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kDocumentsUUID = u"8d1e4b7a-0c3f-4e62-9b15-2f6a7c9e0d11"_s;

double referenceSecondsNow()
{
    return RelativeDate::secondsSinceReferenceDate(QDateTime::currentDateTimeUtc());
}
} // namespace

// The real hub, the real monitor with its status item in a panel the test plays, and the real
// scheduler peer of kestromctl.
class SchedulerEndToEndTest : public StatusPanelFixture
{
protected:
    SchedulerEndToEndTest()
        : StatusPanelFixture({u"KSShowStatusMenu"_s})
    {}

    void TearDown() override
    {
        m_scheduler.reset();
        StatusPanelFixture::TearDown();
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

    bool holdShown() const
    {
        const MenuItem menu = openMenu();
        return find(menu, u"Schedules Held Until"_s).id != 0 &&
               find(menu, u"Resume Schedules"_s).enabled;
    }

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
