#include "tracking/CommandInfo.h"

#include "core/WTUserPreferences.h"
#include "foundation/KeyedArchive.h"
#include "logging/LogLineIdentifier.h"
#include "tracking/CommandInterface.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {
// A command class of this process, found by its name.
class DumpCommand : public CommandInfo
{
    Q_OBJECT
};

class SomethingElse : public CommandInfo
{
    Q_OBJECT
};
} // namespace

TEST(CommandInfoTest, DisplayNamesKeepTheirIrregularRows)
{
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("correction")),
              QStringLiteral("Inflate"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("erase")),
              QStringLiteral("Delete"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("delete")),
              QStringLiteral("Delete"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("open")),
              QStringLiteral("Open"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("capture")),
              QStringLiteral("Capture"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QStringLiteral("Capture")),
              QStringLiteral("Command"));
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(QString()), QStringLiteral("Command"));
}

TEST(CommandInfoTest, ClassNamesFollowTheTable)
{
    EXPECT_EQ(CommandInfo::classNameForCommandName(QStringLiteral("delete")),
              QStringLiteral("DeleteLayerCommand"));
    EXPECT_EQ(CommandInfo::classNameForCommandName(QStringLiteral("erase")),
              QStringLiteral("DeleteItemCommand"));
    EXPECT_EQ(CommandInfo::classNameForCommandName(QStringLiteral("create")),
              QStringLiteral("CreateRepositoryCommand"));
    EXPECT_EQ(CommandInfo::classNameForCommandName(QStringLiteral("correction")),
              QStringLiteral("CorrectionCommand"));
    EXPECT_TRUE(CommandInfo::classNameForCommandName(QStringLiteral("open")).isNull());
    EXPECT_TRUE(CommandInfo::classNameForCommandName(QStringLiteral("launch")).isNull());
}

TEST(CommandInfoTest, ClassesAreFoundOnlyWhenThisProcessHasThem)
{
    qRegisterMetaType<DumpCommand*>();
    EXPECT_EQ(CommandInfo::classForCommandName(QStringLiteral("dump")),
              &DumpCommand::staticMetaObject);
    EXPECT_EQ(CommandInfo::classForCommandName(QStringLiteral("verify")), nullptr);
    EXPECT_EQ(CommandInfo::classForCommandName(QStringLiteral("open")), nullptr);

    DumpCommand dump;
    EXPECT_EQ(dump.commandName(), QStringLiteral("dump"));
    SomethingElse other;
    EXPECT_TRUE(other.commandName().isNull());
}

TEST(CommandInfoTest, ProtocolsShareTheRepositoryProtocolWhereTheTableSays)
{
    const QString repository = QStringLiteral("RepositoryCommandMessaging");
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("delete")), repository);
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("verify")), repository);
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("reindex")), repository);
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("erase")),
              QStringLiteral("DeleteItemCommandMessaging"));
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("correction")),
              QStringLiteral("CorrectionCommandMessaging"));
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("open")),
              QStringLiteral("CommandMessaging"));
    EXPECT_EQ(CommandInfo::protocolForName(QStringLiteral("nonsense")),
              QStringLiteral("CommandMessaging"));
}

TEST(CommandInfoTest, OnlyFourCommandsNeedPrivileges)
{
    for (const char* name : {"install", "capture", "recall", "restore"}) {
        EXPECT_TRUE(CommandInfo::commandNeedsPrivileges(QString::fromLatin1(name))) << name;
    }
    for (const char* name : {"create", "verify", "dump", "open", "Capture", ""}) {
        EXPECT_FALSE(CommandInfo::commandNeedsPrivileges(QString::fromLatin1(name))) << name;
    }
}

TEST(CommandInfoTest, TheInstallInterfaceNamesItsParameterClasses)
{
    LogLineIdentifier::registerArchivableClass();
    const CommandInterface install = CommandInfo::interfaceForName(QStringLiteral("install"));
    EXPECT_EQ(install.chain(), (QStringList{QStringLiteral("InstallCommandMessaging"),
                                            QStringLiteral("CommandMessaging")}));

    const QSet<QString> classes =
        install.allowedClassesFor(QStringLiteral("setInstallParameters"), 0);
    EXPECT_TRUE(classes.contains(KeyedArchive::kDictionary));
    EXPECT_TRUE(classes.contains(KeyedArchive::kArray));
    EXPECT_TRUE(classes.contains(KeyedArchive::kString));
    EXPECT_TRUE(classes.contains(KeyedArchive::kNumber));
    EXPECT_TRUE(classes.contains(QStringLiteral("LogLineIdentifier")));
    EXPECT_FALSE(classes.contains(QStringLiteral("InstallComponent")))
        << "no such class in this process";
    EXPECT_FALSE(classes.contains(KeyedArchive::kData));
}

TEST(CommandInfoTest, InterfacesSendEachMemberOnItsDeclaringProtocol)
{
    const CommandInterface recall = CommandInfo::interfaceForName(QStringLiteral("recall"));
    EXPECT_EQ(recall.interfaceNameFor(QStringLiteral("queryRepositoryRefWithReply")),
              QStringLiteral("com.kestrom.RepositoryCommandMessaging"));
    EXPECT_EQ(recall.interfaceNameFor(QStringLiteral("run")),
              QStringLiteral("com.kestrom.CommandMessaging"));
    EXPECT_FALSE(recall.declares(QStringLiteral("setInstallParameters")));

    const CommandInterface open = CommandInfo::interfaceForName(QStringLiteral("open"));
    EXPECT_EQ(open.chain(), QStringList{QStringLiteral("CommandMessaging")});
    EXPECT_FALSE(open.declares(QStringLiteral("queryRepositoryRefWithReply")));
}

TEST(CommandInfoTest, ScriptsAreRecognisedByTheHelpersExtensions)
{
    // Read once per process: the user's choice is in place before the first question.
    static QTemporaryDir configHome; // the deferred flush writes here after the test
    ASSERT_TRUE(configHome.isValid());
    qputenv("XDG_CONFIG_HOME", configHome.path().toLocal8Bit());
    WTUserPreferences::sharedPreferences().setValue(QStringLiteral("scpt:applescript"),
                                                    QStringLiteral("KSOSAScriptExtensions"),
                                                    WTUserPreferences::kHelperDomain);

    EXPECT_TRUE(CommandInfo::fileIsOSAScript(QStringLiteral("/x/prolog.scpt")));
    EXPECT_TRUE(CommandInfo::fileIsOSAScript(QStringLiteral("/x/epilog.applescript")));
    EXPECT_FALSE(CommandInfo::fileIsOSAScript(QStringLiteral("/x/prolog.sh")));
    EXPECT_FALSE(CommandInfo::fileIsOSAScript(QStringLiteral("/x/scpt")));
    EXPECT_FALSE(CommandInfo::fileIsOSAScript(QStringLiteral("/x/prolog.")));
}

#include "CommandInfoTest.moc"
