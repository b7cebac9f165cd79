#include "tracking/CommandInfo.h"

#include "foundation/KeyedArchive.h"
#include "logging/LogLineIdentifier.h"
#include "preferences/WTUserPreferences.h"
#include "tracking/CommandInterface.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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

TEST(CommandInfoTest, TheTablesKeepTheirIrregularRowsAndClassesAreFoundOnlyHere)
{
    const QString repository = u"RepositoryCommandMessaging"_s;
    const struct
    {
        QString name;
        const char* displayName;
        const char* className; // null: none
        QString protocol;
        bool privileged;
    } rows[] = {
        {u"correction"_s, "Inflate", "CorrectionCommand", u"CorrectionCommandMessaging"_s, false},
        {u"erase"_s, "Delete", "DeleteItemCommand", u"DeleteItemCommandMessaging"_s, false},
        {u"delete"_s, "Delete", "DeleteLayerCommand", repository, false},
        {u"create"_s, "Create", "CreateRepositoryCommand", u"CreateRepositoryCommandMessaging"_s,
         false},
        {u"verify"_s, "Verify", "VerifyCommand", repository, false},
        {u"open"_s, "Open", nullptr, u"CommandMessaging"_s, false},
        {u"capture"_s, "Capture", "CaptureCommand", u"CaptureCommandMessaging"_s, true},
        {u"install"_s, "Install", "InstallCommand", u"InstallCommandMessaging"_s, true},
        {u"nonsense"_s, "Command", nullptr, u"CommandMessaging"_s, false},
        {u"Capture"_s, "Command", nullptr, u"CommandMessaging"_s, false},
        {QString(), "Command", nullptr, u"CommandMessaging"_s, false},
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
    // A named class is found only when this process has it.
    qRegisterMetaType<DumpCommand*>();
    EXPECT_EQ(CommandInfo::classForCommandName(u"dump"_s), &DumpCommand::staticMetaObject);
    EXPECT_EQ(CommandInfo::classForCommandName(u"verify"_s), nullptr);
    EXPECT_EQ(DumpCommand().commandName(), u"dump"_s);
    EXPECT_TRUE(SomethingElse().commandName().isNull());
}

TEST(CommandInfoTest, InterfacesSendEachMemberOnItsDeclaringProtocolWithItsClasses)
{
    LogLineIdentifier::registerArchivableClass();
    const CommandInterface install = CommandInfo::interfaceForName(u"install"_s);
    EXPECT_EQ(install.chain(), (QStringList{u"InstallCommandMessaging"_s, u"CommandMessaging"_s}));
    const QSet<QString> classes = install.allowedClassesFor(u"setInstallParameters"_s, 0);
    EXPECT_TRUE(classes.contains(QSet<QString>{KeyedArchive::kDictionary, KeyedArchive::kArray,
                                               KeyedArchive::kString, KeyedArchive::kNumber,
                                               u"LogLineIdentifier"_s}));
    EXPECT_FALSE(classes.contains(u"InstallComponent"_s)) << "not in this process";
    EXPECT_FALSE(classes.contains(KeyedArchive::kData));

    const CommandInterface recall = CommandInfo::interfaceForName(u"recall"_s);
    EXPECT_EQ(recall.interfaceNameFor(u"queryRepositoryRefWithReply"_s),
              u"com.kestrom.RepositoryCommandMessaging"_s);
    EXPECT_EQ(recall.interfaceNameFor(u"run"_s), u"com.kestrom.CommandMessaging"_s);
    EXPECT_FALSE(recall.declares(u"setInstallParameters"_s));
    EXPECT_FALSE(
        CommandInfo::interfaceForName(u"open"_s).declares(u"queryRepositoryRefWithReply"_s));
}

TEST(CommandInfoTest, ScriptsAreRecognisedByTheHelpersExtensions)
{
    // Read once per process: the user's choice is in place before the first question.
    static QTemporaryDir configHome; // the deferred flush writes here after the test
    ASSERT_TRUE(configHome.isValid());
    qputenv("XDG_CONFIG_HOME", configHome.path().toLocal8Bit());
    WTUserPreferences::sharedPreferences().setValue(
        u"scpt:applescript"_s, u"KSOSAScriptExtensions"_s, WTUserPreferences::kHelperDomain);

    EXPECT_TRUE(CommandInfo::fileIsOSAScript(u"/x/prolog.scpt"_s));
    EXPECT_TRUE(CommandInfo::fileIsOSAScript(u"/x/epilog.applescript"_s));
    for (const QString& path : {u"/x/prolog.sh"_s, u"/x/scpt"_s, u"/x/prolog."_s}) {
        EXPECT_FALSE(CommandInfo::fileIsOSAScript(path)) << path.toStdString();
    }
}

#include "CommandInfoTest.moc"
