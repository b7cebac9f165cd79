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
#include <QDBusMessage>
#include <QDir>
#include <QTest>
#include <gtest/gtest.h>

namespace {
QSet<QString> setOf(std::initializer_list<QString> names)
{
    return QSet<QString>(names);
}

QStringList interfaceFiles()
{
    return QDir(ProtocolCatalogue::resourceFolder())
        .entryList({QStringLiteral("*.xml")}, QDir::Files, QDir::Name);
}

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
        expected.append(ProtocolCatalogue::interfaceName(protocol) + QStringLiteral(".xml"));
    }
    expected.sort();
    EXPECT_EQ(interfaceFiles(), expected);
    EXPECT_EQ(ProtocolCatalogue::protocols().size(), 26);
    // Only the protocol that gathers the component protocols adds nothing of its own.
    for (const QString& protocol : ProtocolCatalogue::protocols()) {
        EXPECT_EQ(ProtocolCatalogue::ownMembersOf(protocol).isEmpty(),
                  protocol == u"KSComponentServing")
            << protocol.toStdString();
    }
}

TEST(ProtocolCatalogueCommands, CommandNamesMapThroughTheTableElseToThePlainProtocol)
{
    const std::pair<const char*, const char*> cases[] = {
        {"open", "CommandMessaging"},
        {"Capture", "CommandMessaging"},
        {"", "CommandMessaging"},
        {"delete", "RepositoryCommandMessaging"},
        {"erase", "DeleteItemCommandMessaging"},
        {"correction", "CorrectionCommandMessaging"}};
    for (const auto& [name, protocol] : cases) {
        EXPECT_EQ(ProtocolCatalogue::protocolForCommandName(QString::fromLatin1(name)),
                  QString::fromLatin1(protocol))
            << name;
    }
}

TEST(ProtocolCatalogueCommands, OnlyProxiesWhoseChainAddsAMemberOfferIt)
{
    const QString addNode = QStringLiteral("addNodeIdentifiedBy");
    for (const char* name : {"verify", "reindex", "delete", "open", "capture"}) {
        const QString protocol =
            ProtocolCatalogue::protocolForCommandName(QString::fromLatin1(name));
        EXPECT_FALSE(ProtocolCatalogue::declares(protocol, addNode)) << name;
    }
    for (const char* name : {"erase", "restore", "recall", "combine"}) {
        const QString protocol =
            ProtocolCatalogue::protocolForCommandName(QString::fromLatin1(name));
        EXPECT_TRUE(ProtocolCatalogue::declares(protocol, addNode)) << name;
    }
    const QString verify = ProtocolCatalogue::protocolForCommandName(QStringLiteral("verify"));
    EXPECT_TRUE(ProtocolCatalogue::declares(verify, QStringLiteral("setRepositoryRef")));
    EXPECT_TRUE(ProtocolCatalogue::declares(verify, QStringLiteral("barrierWithCompletion")));
    EXPECT_FALSE(
        ProtocolCatalogue::declares(verify, QStringLiteral("setComponentPreferenceValue")));
    EXPECT_EQ(
        ProtocolCatalogue::declaringProtocol(QStringLiteral("RecallCommandMessaging"), addNode),
        QStringLiteral("RestoreCommandMessaging"));
}

TEST(ProtocolCatalogueTree, RecallReachesEveryAncestorOnceNearestFirst)
{
    const QStringList chain = ProtocolCatalogue::chainOf(QStringLiteral("RecallCommandMessaging"));
    const QStringList expected{
        QStringLiteral("RecallCommandMessaging"),     QStringLiteral("RestoreCommandMessaging"),
        QStringLiteral("RepositoryCommandMessaging"), QStringLiteral("CommandMessaging"),
        QStringLiteral("KSComponentServing"),         QStringLiteral("KSComponentMessaging"),
        QStringLiteral("KSComponentInstalling")};
    EXPECT_EQ(chain, expected);
}

TEST(ProtocolCatalogueTree, SharedAncestorsAppearOnceAndUnknownProtocolsHaveNone)
{
    const QStringList chain = ProtocolCatalogue::chainOf(QStringLiteral("StromMonitoring"));
    EXPECT_EQ(chain.size(), 6);
    EXPECT_EQ(chain.count(QStringLiteral("KSComponentServing")), 1);
    EXPECT_TRUE(chain.contains(QStringLiteral("CommandListenerServiceProvider")));
    const QString unknown = QStringLiteral("NoSuchMessaging");
    EXPECT_TRUE(ProtocolCatalogue::chainOf(unknown).isEmpty());
    EXPECT_FALSE(ProtocolCatalogue::declares(unknown, QStringLiteral("barrierWithCompletion")));
}

TEST(ProtocolCatalogueClasses, ObjectArgumentsAcceptTheirDeclaredClassOnly)
{
    EXPECT_EQ(ProtocolCatalogue::allowedClassesFor(QStringLiteral("DeleteItemCommandMessaging"),
                                                   QStringLiteral("addNodeIdentifiedBy"), 0),
              setOf({QStringLiteral("FullyQualifiedIdentifier")}));
    EXPECT_EQ(ProtocolCatalogue::allowedClassesFor(QStringLiteral("MergeCommandMessaging"),
                                                   QStringLiteral("setRetainDeletedItemsDate"), 0),
              setOf({KeyedArchive::kDate}));
    // Strings that may be nil: a string or null, in either direction.
    const QString repair = QStringLiteral("RepairCommandMessaging");
    for (const char* member :
         {"setActionUUID", "setCustomDescription", "setAlternateKeyFilePath"}) {
        EXPECT_EQ(ProtocolCatalogue::allowedClassesFor(repair, QString::fromLatin1(member), 0),
                  NilableString::allowedClasses())
            << member;
    }
    for (const char* member :
         {"queryActionUUIDWithReply", "queryCustomDescriptionWithReply",
          "queryDisplayDescriptionWithReply", "queryAlternateKeyFilePathWithReply"}) {
        EXPECT_EQ(ProtocolCatalogue::allowedReplyClassesFor(repair, QString::fromLatin1(member), 0),
                  NilableString::allowedClasses())
            << member;
    }
    // Plain values, missing arguments and members the chain lacks accept no archive.
    EXPECT_TRUE(ProtocolCatalogue::allowedClassesFor(QStringLiteral("DumpCommandMessaging"),
                                                     QStringLiteral("setDumpFlags"), 1)
                    .isEmpty());
    EXPECT_TRUE(ProtocolCatalogue::allowedClassesFor(QStringLiteral("DeleteItemCommandMessaging"),
                                                     QStringLiteral("addNodeIdentifiedBy"), 1)
                    .isEmpty());
    EXPECT_TRUE(ProtocolCatalogue::allowedClassesFor(QStringLiteral("RepositoryCommandMessaging"),
                                                     QStringLiteral("addNodeIdentifiedBy"), 0)
                    .isEmpty());
}

TEST(ProtocolCatalogueClasses, InstallParametersAcceptInstallerClassesOnlyOnceKnown)
{
    const QString protocol = ProtocolCatalogue::protocolForCommandName(QStringLiteral("install"));
    const QString member = QStringLiteral("setInstallParameters");
    const QString component = QStringLiteral("InstallComponent");
    ASSERT_FALSE(KeyedArchive::isRegisteredClass(component));

    const QSet<QString> before = ProtocolCatalogue::allowedClassesFor(protocol, member, 0);
    EXPECT_FALSE(before.contains(component));
    EXPECT_FALSE(before.contains(QStringLiteral("ActionPowerRequest")));
    EXPECT_TRUE(before.contains(KeyedArchive::kDictionary));
    EXPECT_TRUE(before.contains(KeyedArchive::kArray));
    EXPECT_TRUE(before.contains(KeyedArchive::kString));
    EXPECT_TRUE(before.contains(KeyedArchive::kNumber));
    EXPECT_FALSE(before.contains(KeyedArchive::kData));

    // What a peer sends: {"component": InstallComponent{"name": "helper"}}.
    const QByteArray parameters =
        QCborValue(
            QCborMap{{QStringLiteral("component"),
                      QCborValue(QCborTag(27),
                                 QCborArray{component, QCborMap{{QStringLiteral("name"),
                                                                 QStringLiteral("helper")}}})}})
            .toCbor();
    EXPECT_ANY_THROW(KeyedArchive::unarchivedObject(parameters, before));

    KeyedArchive::registerClass<TestInstallComponent>(
        component,
        [](const QVariant& object) {
            return QVariantMap{{QStringLiteral("name"), object.value<TestInstallComponent>().name}};
        },
        [](const KeyedDecoder& coder) {
            return QVariant::fromValue(TestInstallComponent{
                coder.decodeStringObject(QStringLiteral("name")).value_or(QString())});
        });
    const QSet<QString> after = ProtocolCatalogue::allowedClassesFor(protocol, member, 0);
    EXPECT_EQ(after, before + setOf({component}));
    const QVariantMap decoded = KeyedArchive::unarchivedObject(parameters, after).toMap();
    EXPECT_EQ(decoded.value(QStringLiteral("component")).value<TestInstallComponent>().name,
              QStringLiteral("helper"));
}

TEST(ProtocolCatalogueClasses, RunSummariesMayHoldTextAndKnownSummaries)
{
    const QString scheduler = QStringLiteral("StromScheduling");
    const QString member = QStringLiteral("queryRunSummariesWithReply");
    const QSet<QString> classes = ProtocolCatalogue::allowedReplyClassesFor(scheduler, member, 0);
    EXPECT_TRUE(classes.contains(KeyedArchive::kDictionary));
    EXPECT_TRUE(classes.contains(KeyedArchive::kString));
    EXPECT_EQ(classes.contains(QStringLiteral("ActionRunSummary")),
              KeyedArchive::isRegisteredClass(QStringLiteral("ActionRunSummary")));
    EXPECT_EQ(ProtocolCatalogue::allowedReplyClassesFor(
                  scheduler, QStringLiteral("queryNextScheduledActionInfoWithReply"), 0),
              setOf({KeyedArchive::kDictionary}));
}

TEST(ProtocolCatalogueClasses, TheListenerTravelsAsAProxy)
{
    const QString member = QStringLiteral("queryListenerForCommandIdentifier");
    for (const char* protocol : {"StromMonitoring", "StromScheduling"}) {
        EXPECT_EQ(
            ProtocolCatalogue::proxyProtocolForReply(QString::fromLatin1(protocol), member, 0),
            QStringLiteral("CommandListenerMessaging"));
        EXPECT_TRUE(
            ProtocolCatalogue::proxyProtocolForReply(QString::fromLatin1(protocol), member, 1)
                .isEmpty());
    }
    EXPECT_TRUE(
        ProtocolCatalogue::proxyProtocolForReply(QStringLiteral("StromSwitchboarding"),
                                                 QStringLiteral("queryEndpointForIdentifier"), 0)
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
    QDBusConnection server = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                           QStringLiteral("catalogue-server"));
    QDBusConnection client = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                           QStringLiteral("catalogue-client"));
    ASSERT_TRUE(server.isConnected());
    ASSERT_TRUE(client.isConnected());
    ActionKeeper command;
    ASSERT_TRUE(server.registerObject(QStringLiteral("/command"), &command,
                                      QDBusConnection::ExportAllSlots));

    CommandMessagingProxy proxy(server.baseService(), QStringLiteral("/command"), client);
    int sent = 0;
    for (const QString& uuid : {QString(), QStringLiteral(""), QStringLiteral("6F1C")}) {
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

    server.unregisterObject(QStringLiteral("/command"));
    QDBusConnection::disconnectFromBus(QStringLiteral("catalogue-client"));
    QDBusConnection::disconnectFromBus(QStringLiteral("catalogue-server"));
}

#include "ProtocolCatalogueTest.moc"
