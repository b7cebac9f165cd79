#include "messaging/ProtocolCatalogue.h"

#include "CommandMessagingProxy.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"
#include "messaging/NilableString.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
// Stands in for the installer's component record, which lives in another program.
struct TestInstallComponent
{
    QString name;
};
} // namespace

Q_DECLARE_METATYPE(TestInstallComponent)

TEST(ProtocolCatalogueFiles, EveryProtocolOfTheTreeHasExactlyOneFile)
{
    QStringList expected;
    for (const QString& protocol : ProtocolCatalogue::protocols()) {
        expected.append(ProtocolCatalogue::interfaceName(protocol) + u".xml"_s);
        // Only the protocol that gathers the component protocols adds nothing of its own.
        EXPECT_EQ(ProtocolCatalogue::ownMembersOf(protocol).isEmpty(),
                  protocol == u"KSComponentServing")
            << protocol.toStdString();
    }
    expected.sort();
    EXPECT_EQ(
        QDir(ProtocolCatalogue::resourceFolder()).entryList({u"*.xml"_s}, QDir::Files, QDir::Name),
        expected);
    EXPECT_EQ(ProtocolCatalogue::protocols().size(), 26);
}

// Command names map through the table, else to the plain protocol; only proxies whose chain
// adds a member offer it.
TEST(ProtocolCatalogueCommands, NamesMapToProtocolsThatOfferTheirChainsMembers)
{
    const struct
    {
        const char* name;
        const char* protocol;
        bool addsNodes;
    } cases[] = {{"open", "CommandMessaging", false},
                 {"Capture", "CommandMessaging", false},
                 {"", "CommandMessaging", false},
                 {"capture", "CaptureCommandMessaging", false},
                 {"delete", "RepositoryCommandMessaging", false},
                 {"verify", "RepositoryCommandMessaging", false},
                 {"reindex", "RepositoryCommandMessaging", false},
                 {"correction", "CorrectionCommandMessaging", false},
                 {"erase", "DeleteItemCommandMessaging", true},
                 {"restore", "RestoreCommandMessaging", true},
                 {"recall", "RecallCommandMessaging", true},
                 {"combine", "CombineCommandMessaging", true}};
    const QString addNode = u"addNodeIdentifiedBy"_s;
    for (const auto& c : cases) {
        const QString protocol = ProtocolCatalogue::protocolForCommandName(QLatin1String(c.name));
        EXPECT_EQ(protocol, QLatin1String(c.protocol)) << c.name;
        EXPECT_EQ(ProtocolCatalogue::declares(protocol, addNode), c.addsNodes) << c.name;
    }
    const QString verify = ProtocolCatalogue::protocolForCommandName(u"verify"_s);
    EXPECT_TRUE(ProtocolCatalogue::declares(verify, u"setRepositoryRef"_s));
    EXPECT_TRUE(ProtocolCatalogue::declares(verify, u"barrierWithCompletion"_s));
    EXPECT_FALSE(ProtocolCatalogue::declares(verify, u"setComponentPreferenceValue"_s));
    EXPECT_EQ(ProtocolCatalogue::declaringProtocol(u"RecallCommandMessaging"_s, addNode),
              u"RestoreCommandMessaging"_s);
}

TEST(ProtocolCatalogueTree, ChainsHoldEveryAncestorOnceNearestFirstAndUnknownProtocolsNone)
{
    EXPECT_EQ(ProtocolCatalogue::chainOf(u"RecallCommandMessaging"_s),
              (QStringList{u"RecallCommandMessaging"_s, u"RestoreCommandMessaging"_s,
                           u"RepositoryCommandMessaging"_s, u"CommandMessaging"_s,
                           u"KSComponentServing"_s, u"KSComponentMessaging"_s,
                           u"KSComponentInstalling"_s}));
    const QStringList shared = ProtocolCatalogue::chainOf(u"StromMonitoring"_s);
    EXPECT_EQ(shared.size(), 6);
    EXPECT_EQ(shared.count(u"KSComponentServing"_s), 1);
    EXPECT_TRUE(shared.contains(u"CommandListenerServiceProvider"_s));
    EXPECT_TRUE(ProtocolCatalogue::chainOf(u"NoSuchMessaging"_s).isEmpty());
    EXPECT_FALSE(ProtocolCatalogue::declares(u"NoSuchMessaging"_s, u"barrierWithCompletion"_s));
}

TEST(ProtocolCatalogueClasses, ObjectArgumentsAcceptTheirDeclaredClassOnly)
{
    const QSet<QString> nilable = NilableString::allowedClasses(); // a string or null
    const QString repair = u"RepairCommandMessaging"_s;
    const QString deleteItem = u"DeleteItemCommandMessaging"_s;
    const QString addNode = u"addNodeIdentifiedBy"_s;
    const QSet<QString> date{KeyedArchive::kDate};
    const QSet<QString> dictionary{KeyedArchive::kDictionary};
    const struct
    {
        QString protocol;
        QString member;
        int index;
        bool reply;
        QSet<QString> allowed;
    } cases[] = {
        {deleteItem, addNode, 0, false, {u"FullyQualifiedIdentifier"_s}},
        {u"MergeCommandMessaging"_s, u"setRetainDeletedItemsDate"_s, 0, false, date},
        {repair, u"setActionUUID"_s, 0, false, nilable},
        {repair, u"setCustomDescription"_s, 0, false, nilable},
        {repair, u"setAlternateKeyFilePath"_s, 0, false, nilable},
        {repair, u"queryActionUUIDWithReply"_s, 0, true, nilable},
        {repair, u"queryCustomDescriptionWithReply"_s, 0, true, nilable},
        {repair, u"queryDisplayDescriptionWithReply"_s, 0, true, nilable},
        {repair, u"queryAlternateKeyFilePathWithReply"_s, 0, true, nilable},
        {u"StromScheduling"_s, u"queryNextScheduledActionInfoWithReply"_s, 0, true, dictionary},
        // Plain values, missing arguments and members the chain lacks accept no archive.
        {u"DumpCommandMessaging"_s, u"setDumpFlags"_s, 1, false, {}},
        {deleteItem, addNode, 1, false, {}},
        {u"RepositoryCommandMessaging"_s, addNode, 0, false, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.reply ? ProtocolCatalogue::allowedReplyClassesFor(c.protocol, c.member, c.index)
                          : ProtocolCatalogue::allowedClassesFor(c.protocol, c.member, c.index),
                  c.allowed)
            << c.member.toStdString() << " " << c.index;
    }
}

TEST(ProtocolCatalogueClasses, InstallParametersAcceptInstallerClassesOnlyOnceKnown)
{
    const QString protocol = ProtocolCatalogue::protocolForCommandName(u"install"_s);
    const QString member = u"setInstallParameters"_s;
    const QString component = u"InstallComponent"_s;
    ASSERT_FALSE(KeyedArchive::isRegisteredClass(component));

    const QSet<QString> before = ProtocolCatalogue::allowedClassesFor(protocol, member, 0);
    EXPECT_TRUE(before.contains(QSet<QString>{KeyedArchive::kDictionary, KeyedArchive::kArray,
                                              KeyedArchive::kString, KeyedArchive::kNumber}));
    EXPECT_FALSE(before.intersects({component, u"ActionPowerRequest"_s, KeyedArchive::kData}));

    // What a peer sends: {"component": InstallComponent{"name": "helper"}}.
    const QByteArray parameters =
        QCborValue(
            QCborMap{{u"component"_s,
                      QCborValue(QCborTag(27),
                                 QCborArray{component, QCborMap{{u"name"_s, u"helper"_s}}})}})
            .toCbor();
    EXPECT_ANY_THROW(KeyedArchive::unarchivedObject(parameters, before));

    KeyedArchive::registerClass<TestInstallComponent>(
        component,
        [](const QVariant& object) {
            return QVariantMap{{u"name"_s, object.value<TestInstallComponent>().name}};
        },
        [](const KeyedDecoder& coder) {
            return QVariant::fromValue(
                TestInstallComponent{coder.decodeStringObject(u"name"_s).value_or(QString())});
        });
    const QSet<QString> after = ProtocolCatalogue::allowedClassesFor(protocol, member, 0);
    EXPECT_EQ(after, before + QSet<QString>{component});
    const QVariantMap decoded = KeyedArchive::unarchivedObject(parameters, after).toMap();
    EXPECT_EQ(decoded.value(u"component"_s).value<TestInstallComponent>().name, u"helper"_s);
}

TEST(ProtocolCatalogueClasses, RunSummariesMayHoldTextAndKnownOnesAndTheListenerIsAProxy)
{
    const QSet<QString> classes = ProtocolCatalogue::allowedReplyClassesFor(
        u"StromScheduling"_s, u"queryRunSummariesWithReply"_s, 0);
    EXPECT_TRUE(classes.contains(KeyedArchive::kDictionary));
    EXPECT_TRUE(classes.contains(KeyedArchive::kString));
    EXPECT_EQ(classes.contains(u"ActionRunSummary"_s),
              KeyedArchive::isRegisteredClass(u"ActionRunSummary"_s));

    const QString member = u"queryListenerForCommandIdentifier"_s;
    for (const QString& protocol : {u"StromMonitoring"_s, u"StromScheduling"_s}) {
        EXPECT_EQ(ProtocolCatalogue::proxyProtocolForReply(protocol, member, 0),
                  u"CommandListenerMessaging"_s);
        EXPECT_TRUE(ProtocolCatalogue::proxyProtocolForReply(protocol, member, 1).isEmpty());
    }
    EXPECT_TRUE(ProtocolCatalogue::proxyProtocolForReply(u"StromSwitchboarding"_s,
                                                         u"queryEndpointForIdentifier"_s, 0)
                    .isEmpty());
}

namespace {
// A command's action identifier, served directly so that each call's own message can be seen.
class ActionKeeper : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.CommandMessaging")

public:
    int sets = 0;
    bool setWantedReply = true;
    bool queryWantedReply = false;

public Q_SLOTS:
    void setActionUUID(const QByteArray& uuid)
    {
        ++sets;
        setWantedReply = message().isReplyRequired();
        m_uuid = NilableString::unarchived(uuid);
    }
    QByteArray queryActionUUIDWithReply()
    {
        queryWantedReply = message().isReplyRequired();
        return NilableString::archived(m_uuid);
    }

private:
    QString m_uuid;
};
} // namespace

TEST(ProtocolCatalogueProxies, OneWayMembersDoNotWaitAndNilStaysApartFromTheEmptyString)
{
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        GTEST_SKIP() << "needs a session bus";
    }
    QDBusConnection server =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"catalogue-server"_s);
    QDBusConnection client =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"catalogue-client"_s);
    ASSERT_TRUE(server.isConnected());
    ASSERT_TRUE(client.isConnected());
    ActionKeeper command;
    ASSERT_TRUE(server.registerObject(u"/command"_s, &command, QDBusConnection::ExportAllSlots));

    CommandMessagingProxy proxy(server.baseService(), u"/command"_s, client);
    int sent = 0;
    for (const QString& uuid : {QString(), u""_s, u"6F1C"_s}) {
        // The command is served on this very thread: a call that waited for its reply could
        // not return before the command ran.
        proxy.setActionUUID(NilableString::archived(uuid));
        EXPECT_EQ(command.sets, sent++);
        QDBusPendingReply<QByteArray> reply = proxy.queryActionUUIDWithReply();
        ASSERT_TRUE(QTest::qWaitFor([&reply] { return reply.isFinished(); }));
        ASSERT_FALSE(reply.isError()) << reply.error().message().toStdString();
        const QString answer = NilableString::unarchived(reply.value());
        EXPECT_EQ(answer.isNull(), uuid.isNull()) << uuid.toStdString();
        EXPECT_EQ(answer, uuid);
    }
    EXPECT_FALSE(command.setWantedReply);
    EXPECT_TRUE(command.queryWantedReply);

    server.unregisterObject(u"/command"_s);
    QDBusConnection::disconnectFromBus(u"catalogue-client"_s);
    QDBusConnection::disconnectFromBus(u"catalogue-server"_s);
}

#include "ProtocolCatalogueTest.moc"
