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
    const QString plain = u"CommandMessaging"_s;
    // Name, display name, class name (null: none), protocol, whether it needs privileges.
    const std::tuple<QString, const char*, const char*, QString, bool> rows[] = {
        {u"correction"_s, "Inflate", "CorrectionCommand", u"CorrectionCommandMessaging"_s, false},
        {u"erase"_s, "Delete", "DeleteItemCommand", u"DeleteItemCommandMessaging"_s, false},
        {u"delete"_s, "Delete", "DeleteLayerCommand", repository, false},
        {u"create"_s, "Create", "CreateRepositoryCommand", u"CreateRepositoryCommandMessaging"_s,
         false},
        {u"verify"_s, "Verify", "VerifyCommand", repository, false},
        {u"open"_s, "Open", nullptr, plain, false},
        {u"capture"_s, "Capture", "CaptureCommand", u"CaptureCommandMessaging"_s, true},
        {u"install"_s, "Install", "InstallCommand", u"InstallCommandMessaging"_s, true},
        {u"nonsense"_s, "Command", nullptr, plain, false},
        {u"Capture"_s, "Command", nullptr, plain, false},
        {QString(), "Command", nullptr, plain, false},
    };
    for (const auto& [name, displayName, className, protocol, privileged] : rows) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(name),
                  QString::fromLatin1(displayName));
        EXPECT_EQ(CommandInfo::classNameForCommandName(name), QString::fromLatin1(className));
        EXPECT_EQ(CommandInfo::classNameForCommandName(name).isNull(), !className);
        EXPECT_EQ(CommandInfo::protocolForName(name), protocol);
        EXPECT_EQ(CommandInfo::commandNeedsPrivileges(name), privileged);
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

    for (const auto& [path, isScript] :
         {std::pair(u"/x/prolog.scpt"_s, true), std::pair(u"/x/epilog.applescript"_s, true),
          std::pair(u"/x/prolog.sh"_s, false), std::pair(u"/x/scpt"_s, false),
          std::pair(u"/x/prolog."_s, false)}) {
        EXPECT_EQ(CommandInfo::fileIsOSAScript(path), isScript) << path.toStdString();
    }
}

#include "CommandInfoTest.moc"
