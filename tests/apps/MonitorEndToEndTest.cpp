#include "MonitorProcessFixture.h"
#include "foundation/KeyedArchive.h"
#include "messaging/InterfaceNames.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/ProtocolCatalogue.h"
#include "preferences/PreferenceStore.h"
#include "support/PrivateBus.h"
#include "tracking/CommandManager.h"
#include "tracking/CommandOnXPCConnection.h"

#include <QDBusArgument>
#include <QRegularExpression>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);
} // namespace

// The real hub, the real monitor and real command processes, on a bus of the test's own.
class MonitorEndToEndTest : public MonitorProcessFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        startMonitor(QStringLiteral(MONITOR_PROGRAM), words("--cull-interval 1"));
    }
};

TEST_F(MonitorEndToEndTest, ACommandRunsItsWholeRoadAndAFailingOnesExceptionReachesTheMonitor)
{
    auto command = ctl(words("command capture --id test.capture.1 --steps 5 --interval-ms 20"));
    ASSERT_TRUE(command->finished(60000));
    EXPECT_EQ(command->exitCode(), 0) << command->output().toStdString();
    const QString output = command->output();
    EXPECT_TRUE(output.contains(u"roles 3"_s)) << output.toStdString();
    EXPECT_TRUE(output.contains(u"capture test.capture.1 stopped"_s));
    EXPECT_FALSE(output.contains(u"did not confirm"_s));
    EXPECT_EQ(logLinesContaining(u"added listener"_s), 1);
    EXPECT_EQ(logLinesContaining(u"removed listener"_s), 1);
    EXPECT_EQ(logLinesContaining(u"command returned exception"_s), 0);

    auto failing = ctl(words("command verify --id test.verify.1 --steps 2 --interval-ms 20 "
                             "--scenario fail --fail-name Data --posix 13"));
    ASSERT_TRUE(failing->finished(60000));
    EXPECT_EQ(failing->exitCode(), 0) << failing->output().toStdString();
    // The stop is answered only after the monitor handled it, so its lines are there now.
    EXPECT_EQ(logLinesContaining(u"command returned exception"_s), 1);
    EXPECT_GE(logLinesContaining(u"POSIXErr: 13"_s), 1);
}

TEST_F(MonitorEndToEndTest, ListenersCommandNamesAndTheVersionAreAnsweredToPeers)
{
    auto served = ctl(words("serve test.twice"));
    ASSERT_TRUE(served->waitForOutput(u"serving"_s));
    const Endpoint first = listenerFor(u"test.twice"_s);
    EXPECT_FALSE(first.isNone());
    EXPECT_EQ(first, listenerFor(u"test.twice"_s))
        << "the same identifier twice, the same listener";
    // Only the eleven command names, in lower case, can be monitored.
    for (const auto& [name, can] :
         {std::pair{u"Capture"_s, false}, {u"dump"_s, false}, {u"erase"_s, true}}) {
        EXPECT_EQ(answer(u"StromMonitoring"_s, u"queryCanMonitorCommandName"_s, {name}).toBool(),
                  can)
            << name.toStdString();
    }
    EXPECT_EQ(answer(u"KSComponentInstalling"_s, u"queryComponentVersionWithReply"_s),
              u"Monitor-2.2.5.12"_s);
}

// A command ends without a stop of its own: killed, it is lost; asked to stop, it stops.
TEST_F(MonitorEndToEndTest, ACommandKilledWithoutAStopIsLostAndAStopRequestStopsOne)
{
    auto killed = ctl(words("command compact --id test.compact.1 --interval-ms 20 --die-after 2"));
    ASSERT_TRUE(killed->finished(60000));
    EXPECT_TRUE(QTest::qWaitFor(
        [] { return logLinesContaining(u"lost connection with command"_s) >= 1; }, 60000))
        << m_monitor->output().toStdString();
    EXPECT_TRUE(
        QTest::qWaitFor([] { return logLinesContaining(u"removed listener"_s) == 1; }, 60000));

    auto command = ctl(words("command verify --id test.hang.1 --scenario hang --interval-ms 50"));
    ASSERT_TRUE(command->waitForOutput(u"started"_s));
    // The test plays a second monitor-side manager for the same command.
    auto manager = std::make_shared<CommandManager>();
    manager->connectToCommand(
        std::make_shared<CommandOnXPCConnection>(u"verify"_s, Endpoint(), u"test.hang.1"_s));
    manager->stopCommand();
    ASSERT_TRUE(command->finished(60000));
    EXPECT_TRUE(command->output().contains(u"<Cancel> canceled by request"_s))
        << command->output().toStdString();
}

TEST_F(MonitorEndToEndTest, APlainQuitExitsWith75)
{
    ASSERT_TRUE(m_monitor->stop(SIGTERM));
    EXPECT_EQ(m_monitor->exitCode(), 75);
    EXPECT_EQ(logLinesContaining(u"will exit abnormally"_s), 1);
    EXPECT_EQ(logLinesContaining(u"stopping Monitor-2.2.5.12, exiting with status 75"_s), 1);
    EXPECT_FALSE(monitorEndpoint().has_value());
}

TEST_F(MonitorEndToEndTest, ASecondMonitorBringsTheFirstForwardAndLeavesWithoutServing)
{
    const auto first = monitorEndpoint();
    ASSERT_TRUE(first.has_value());
    ChildProcess second(QStringLiteral(MONITOR_PROGRAM), words("-platform offscreen"));
    ASSERT_TRUE(second.started());
    ASSERT_TRUE(second.finished()) << "a second monitor must not stay";
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(second.output().trimmed(),
              u"kestrom-monitor: already running for this user; its window was brought forward"_s);
    EXPECT_EQ(monitorEndpoint(), first) << "the first monitor still serves alone";
    const QString owner = MessagingThread::instance()
                              .connection()
                              .interface()
                              ->serviceOwner(u"com.kestrom.monitor"_s)
                              .value();
    EXPECT_EQ(owner, first->service());
    EXPECT_TRUE(QTest::qWaitFor(
        [] { return logLinesContaining(u"asked to come forward by a second start"_s) == 1; },
        30000))
        << "the first one heard";

    // A script asked for after both starts runs once.
    QTemporaryDir folder;
    const QString script = writeScript(folder.filePath(u"once.sh"_s), "echo ran >> \"$0.count\"\n");
    auto request = ctl(words("request script --id s.once --path") << script);
    ASSERT_TRUE(request->finished());
    EXPECT_EQ(request->exitCode(), 0) << request->output().toStdString();
    QFile count(script + u".count"_s);
    ASSERT_TRUE(count.open(QIODevice::ReadOnly));
    EXPECT_EQ(count.readAll(), QByteArray("ran\n"));
}

TEST_F(MonitorEndToEndTest, HelpAndVersionNeedNoDisplay)
{
    for (const auto& [option, expected] : {std::pair{u"--help"_s, u"--cull-interval"_s},
                                           {u"--version"_s, u"kestrom-monitor 2.2.5.12"_s}}) {
        ChildProcess process(u"/usr/bin/env"_s,
                             {u"-u"_s, u"DISPLAY"_s, u"-u"_s, u"WAYLAND_DISPLAY"_s, u"-u"_s,
                              u"QT_QPA_PLATFORM"_s, QStringLiteral(MONITOR_PROGRAM), option});
        ASSERT_TRUE(process.finished()) << option.toStdString();
        EXPECT_EQ(process.exitCode(), 0) << option.toStdString();
        EXPECT_TRUE(process.output().contains(expected)) << process.output().toStdString();
    }
}

TEST_F(MonitorEndToEndTest, APreferenceThatCannotBeSetAnswersNoAndLaterOnesStillReachTheFile)
{
    const auto set = [](const QVariant& value, const QString& key) {
        const QByteArray data = value.isValid() ? KeyedArchive::archivedData(value) : QByteArray();
        const QDBusMessage reply = ask(u"com.kestrom.KSComponentPreferencing"_s,
                                       u"setComponentPreferenceValue"_s, {data, key});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << key.toStdString();
        return reply.arguments().value(0).toBool();
    };
    const QVariantMap dictionary{{u"a"_s, 1}};
    const std::pair<QVariant, QString> refused[] = {
        {dictionary, u"KSShowStatusMenu"_s},
        {QVariant(), u"KSShowMonitorOnStart"_s},
        {QVariant::fromValue(qint64(5000000000)), u"KSMonitorRegularAppMode"_s},
        {u"three"_s, u"KSStatusCaptureWarningIntervals"_s},
        {dictionary, u"KSStatusFreeWarning"_s},
        {QString(u"before\0after"_s), u"KSTestNote"_s},
        {u"bell\u0007"_s, u"KSTestNote"_s},
    };
    for (const auto& [value, key] : refused) {
        EXPECT_FALSE(set(value, key)) << key.toStdString();
        const QByteArray stored =
            answer(u"KSComponentPreferencing"_s, u"queryComponentPreferenceForKey"_s, {key})
                .toByteArray();
        if (!stored.isEmpty()) {
            EXPECT_NE(KeyedArchive::unarchiveObjectWithData(stored), value) << key.toStdString();
        }
    }
    EXPECT_TRUE(set(u"kept after refusals"_s, u"KSTestNote"_s));
    EXPECT_TRUE(set(QVariant::fromValue(qint64(5000000000)), u"KSStatusCaptureTruantIntervals"_s))
        << "a 64-bit integer key holds it whole";
    const QString path = PreferenceStore::defaultFolder() + u"/com.kestrom.monitor.plist"_s;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            QFile file(path);
            return file.open(QIODevice::ReadOnly) &&
                   QString::fromUtf8(file.readAll()).contains(u"kept after refusals"_s);
        },
        30000))
        << "the flush 2 seconds after the write reaches the file";
}

// The wire as the interface files declare it is committed as a table; what the monitor, the hub
// and a command really export is compared with it, member by member. Run with
// KESTROM_WRITE_WIRE_TABLE=1 to write the table after changing an interface file.
TEST_F(MonitorEndToEndTest, EveryExportedObjectSaysExactlyWhatTheCommittedWireTableSays)
{
    const QString path =
        QStringLiteral(QT_TESTCASE_SOURCEDIR "/../../src/messaging/interfaces/wire-table.txt");
    const QStringList declared = ProtocolCatalogue::wireTable();
    if (qEnvironmentVariableIsSet("KESTROM_WRITE_WIRE_TABLE")) {
        QFile written(path);
        ASSERT_TRUE(written.open(QIODevice::WriteOnly));
        written.write((declared.join(u'\n') + u'\n').toUtf8());
    }
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList golden = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    EXPECT_EQ(declared, golden) << "the interface files changed: write the table anew";
    for (const QString& interface : InterfaceNames::all()) {
        EXPECT_TRUE(golden.filter(interface + u'.').size() > 0) << interface.toStdString();
    }

    auto command = ctl(words("command capture --id test.wire --scenario hang"));
    ASSERT_TRUE(command->waitForOutput(u"started"_s));
    auto served = ctl(words("serve test.wire.served"));
    ASSERT_TRUE(served->waitForOutput(u"serving"_s));
    const auto introspect = [](const QString& service, const QString& objectPath) {
        return MessagingThread::instance()
            .connection()
            .call(QDBusMessage::createMethodCall(
                service, objectPath, u"org.freedesktop.DBus.Introspectable"_s, u"Introspect"_s))
            .arguments()
            .value(0)
            .toString();
    };
    // The running command's listener: the child of the monitor's listener folder that listens.
    const QString monitor = monitorEndpoint()->service();
    QString listener;
    const QString folder = u"/com/kestrom/listener"_s;
    auto children =
        QRegularExpression(uR"re(<node name="(\d+)")re"_s).globalMatch(introspect(monitor, folder));
    while (children.hasNext()) {
        const QString candidate = folder + u'/' + children.next().captured(1);
        if (introspect(monitor, candidate).contains(u"com.kestrom.CommandListenerMessaging"_s)) {
            listener = candidate;
        }
    }
    const Endpoint wire = *KSPublishedConnection::lookUpEndpoint(u"test.wire"_s);
    const struct
    {
        const char* what;
        QString service;
        QString path;
        QString mustExport;
    } objects[] = {
        {"monitor", monitor, monitorEndpoint()->path(),
         u"com.kestrom.CommandListenerServiceProvider"_s},
        {"listener", monitor, listener, u"com.kestrom.CommandListenerMessaging"_s},
        {"subscriber", monitor, SwitchboardNames::kSubscriberPath,
         u"com.kestrom.SwitchboardSubscribing"_s},
        {"hub", SwitchboardNames::busName(SwitchboardNames::perUserServiceName()),
         SwitchboardNames::kSwitchboardPath, u"com.kestrom.StromSwitchboarding_private"_s},
        {"command", wire.service(), wire.path(), u"com.kestrom.CommandMessaging"_s},
    };
    const auto interfaceOf = [](const QString& row) {
        return row.section(u'(', 0, 0).section(u'.', 0, -2);
    };
    for (const auto& object : objects) {
        SCOPED_TRACE(object.what);
        const QString document = introspect(object.service, object.path);
        const QStringList exported = ProtocolCatalogue::wireTableOf(document.toUtf8());
        EXPECT_FALSE(exported.filter(object.mustExport + u'.').isEmpty()) << document.toStdString();
        QSet<QString> interfaces;
        for (const QString& row : exported) {
            EXPECT_TRUE(golden.contains(row)) << "exported, not declared: " << row.toStdString();
            interfaces.insert(interfaceOf(row));
        }
        for (const QString& row : golden) {
            if (interfaces.contains(interfaceOf(row))) {
                EXPECT_TRUE(exported.contains(row))
                    << "declared, not exported: " << row.toStdString();
            }
        }
    }
}
