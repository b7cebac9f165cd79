#include "tracking/CommandInfo.h"

#include "foundation/KeyedArchive.h"
#include "logging/LogLineIdentifier.h"
#include "preferences/WTUserPreferences.h"
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

TEST(CommandInfoTest, TheTablesKeepTheirIrregularRows)
{
    const QString repository = QStringLiteral("RepositoryCommandMessaging");
    const struct
    {
        QString name;
        const char* displayName;
        const char* className; // null: none
        QString protocol;
        bool privileged;
    } rows[] = {
        {QStringLiteral("correction"), "Inflate", "CorrectionCommand",
         QStringLiteral("CorrectionCommandMessaging"), false},
        {QStringLiteral("erase"), "Delete", "DeleteItemCommand",
         QStringLiteral("DeleteItemCommandMessaging"), false},
        {QStringLiteral("delete"), "Delete", "DeleteLayerCommand", repository, false},
        {QStringLiteral("create"), "Create", "CreateRepositoryCommand",
         QStringLiteral("CreateRepositoryCommandMessaging"), false},
        {QStringLiteral("verify"), "Verify", "VerifyCommand", repository, false},
        {QStringLiteral("open"), "Open", nullptr, QStringLiteral("CommandMessaging"), false},
        {QStringLiteral("capture"), "Capture", "CaptureCommand",
         QStringLiteral("CaptureCommandMessaging"), true},
        {QStringLiteral("install"), "Install", "InstallCommand",
         QStringLiteral("InstallCommandMessaging"), true},
        {QStringLiteral("nonsense"), "Command", nullptr, QStringLiteral("CommandMessaging"), false},
        {QStringLiteral("Capture"), "Command", nullptr, QStringLiteral("CommandMessaging"), false},
        {QString(), "Command", nullptr, QStringLiteral("CommandMessaging"), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name.toStdString());
        EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(row.name),
                  QString::fromLatin1(row.displayName));
        EXPECT_EQ(CommandInfo::classNameForCommandName(row.name),
                  row.className ? QString::fromLatin1(row.className) : QString());
        EXPECT_EQ(CommandInfo::classNameForCommandName(row.name).isNull(), !row.className);
        EXPECT_EQ(CommandInfo::protocolForName(row.name), row.protocol);
        EXPECT_EQ(CommandInfo::commandNeedsPrivileges(row.name), row.privileged);
    }
}

TEST(CommandInfoTest, ClassesAreFoundOnlyWhenThisProcessHasThem)
{
    qRegisterMetaType<DumpCommand*>();
    EXPECT_EQ(CommandInfo::classForCommandName(QStringLiteral("dump")),
              &DumpCommand::staticMetaObject);
    EXPECT_EQ(CommandInfo::classForCommandName(QStringLiteral("verify")), nullptr);
    EXPECT_EQ(DumpCommand().commandName(), QStringLiteral("dump"));
    EXPECT_TRUE(SomethingElse().commandName().isNull());
}

TEST(CommandInfoTest, InterfacesSendEachMemberOnItsDeclaringProtocolWithItsClasses)
{
    LogLineIdentifier::registerArchivableClass();
    const CommandInterface install = CommandInfo::interfaceForName(QStringLiteral("install"));
    EXPECT_EQ(install.chain(), (QStringList{QStringLiteral("InstallCommandMessaging"),
                                            QStringLiteral("CommandMessaging")}));
    const QSet<QString> classes =
        install.allowedClassesFor(QStringLiteral("setInstallParameters"), 0);
    for (const QString& allowed :
         {KeyedArchive::kDictionary, KeyedArchive::kArray, KeyedArchive::kString,
          KeyedArchive::kNumber, QStringLiteral("LogLineIdentifier")}) {
        EXPECT_TRUE(classes.contains(allowed)) << allowed.toStdString();
    }
    EXPECT_FALSE(classes.contains(QStringLiteral("InstallComponent"))) << "not in this process";
    EXPECT_FALSE(classes.contains(KeyedArchive::kData));

    const CommandInterface recall = CommandInfo::interfaceForName(QStringLiteral("recall"));
    EXPECT_EQ(recall.interfaceNameFor(QStringLiteral("queryRepositoryRefWithReply")),
              QStringLiteral("com.kestrom.RepositoryCommandMessaging"));
    EXPECT_EQ(recall.interfaceNameFor(QStringLiteral("run")),
              QStringLiteral("com.kestrom.CommandMessaging"));
    EXPECT_FALSE(recall.declares(QStringLiteral("setInstallParameters")));
    EXPECT_FALSE(CommandInfo::interfaceForName(QStringLiteral("open"))
                     .declares(QStringLiteral("queryRepositoryRefWithReply")));
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
    for (const QString& path : {QStringLiteral("/x/prolog.sh"), QStringLiteral("/x/scpt"),
                                QStringLiteral("/x/prolog.")}) {
        EXPECT_FALSE(CommandInfo::fileIsOSAScript(path)) << path.toStdString();
    }
}

#include "CommandInfoTest.moc"
