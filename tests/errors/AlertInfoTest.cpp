#include "errors/AlertInfo.h"

#include "errors/AlertActionSet.h"
#include "errors/AlertTemplates.h"
#include "errors/CannedAlertInfo.h"
#include "errors/CommandAlertInfo.h"
#include "errors/ContextualAlertInfo.h"
#include "exception/Error.h"
#include "exception/KSException.h"

#include <QHash>
#include <QObject>
#include <QRegularExpression>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>

using namespace Qt::StringLiterals;

// Readable failure messages for texts.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {
using Actions = QList<qint32>;

// Stands in for command tracking's display names, which sit above this layer.
QString displayName(const QString& commandName)
{
    static const QHash<QString, QString> names{
        {u"capture"_s, u"Capture"_s}, {u"restore"_s, u"Restore"_s}, {u"verify"_s, u"Verify"_s}};
    return names.value(commandName, u"Command"_s);
}

KSException failure(const QString& name, const QString& command = {})
{
    auto exception = KSException::exceptionWithName(name, u"it went wrong"_s);
    if (!command.isEmpty()) {
        exception.setDetail(command, u".Command"_s);
    }
    return exception;
}

QStringList buttonTitles(const AlertInfo& info)
{
    QStringList titles;
    for (const qint32 action : info.actionSet().buttonActions()) {
        titles << AlertActionSet::descriptionForAction(action);
    }
    return titles;
}

KSException named(const char* name, const char* command)
{
    return failure(QString::fromLatin1(name), QString::fromLatin1(command));
}

void expectText(const QString& actual, const char* expected)
{
    if (expected) {
        EXPECT_EQ(actual, QString::fromUtf8(expected));
    }
}

using Rule = std::unique_ptr<ContextualAlertInfo> (*)(const Exception*);

// The alert a rule gives: message, buttons ("A,B"), help tag and text; null skips a check.
void expectAlert(Rule rule, const Exception& exception, const char* message, const char* buttons,
                 const char* helpTag, const char* informative = nullptr)
{
    SCOPED_TRACE(message ? message : informative);
    const auto info = rule(&exception);
    ASSERT_NE(info, nullptr);
    expectText(info->message(), message);
    expectText(buttonTitles(*info).join(QLatin1Char(',')), buttons);
    expectText(info->helpTag(), helpTag);
    expectText(info->informativeText(), informative);
}

class AlertRules : public ::testing::Test
{
protected:
    void SetUp() override { ContextualAlertInfo::setCommandNamer(&displayName); }
    void TearDown() override { ContextualAlertInfo::setCommandNamer(nullptr); }
};
} // namespace

TEST_F(AlertRules, EachRulePicksItsTextsButtonsAndHelp)
{
    const Rule canceled = &AlertInfoForCanceledCommand;
    const Rule any = &AlertInfoForAnyCommand;
    expectAlert(canceled, named("Cancel", "capture"), "Capture Stopped", "OK", "",
                "The layer created by this capture is incomplete and may be missing items. Use "
                "caution when recalling items in this layer.");
    expectAlert(canceled, named("Cancel", "restore"), "Restore Stopped", nullptr, nullptr,
                "Some items were not recalled.");
    expectAlert(any, named("Data", "verify").setPOSIXErr(13), "Verify could not access archive",
                "OK", "trblusearchive",
                "Verify did not have permission to access the archive. The archive might belong "
                "to another user or is locked.");
    expectAlert(any, named("Data", "verify").setDetail(qint64(-36), u"OSErr"_s),
                "Archive access failure", "Close,Repair", nullptr);
    // Listed as 2, 5, 4; shown in code order.
    expectAlert(any, named("Data", "verify").setPOSIXErr(2), "Verify failed",
                "Close,Repair,Open Log", "trblrepair");
    // Error numbers are only consulted for data failures.
    expectAlert(any, named("IO", "capture").setPOSIXErr(13), nullptr, nullptr, nullptr,
                "A network or disk error was encountered. See the log for the details.");
    // An explained missing archive comes before everything else.
    expectAlert(
        any,
        named("Data", "capture").setExplanation(u"norep"_s).setPOSIXErr(13).setFlag(u".DataBad"_s),
        "Capture could not find archive", "Close", "trblnoarchive");
    // Damaged data beats a bad index; a flag once set stays set.
    expectAlert(any, named("IO", "verify").setFlag(u".IndexBad"_s).setFlag(u".DataBad"_s), nullptr,
                "Close,Repair", nullptr,
                "The archive data is damaged or incomplete. Use the Repair command to recover "
                "the valid information in the archive.");
    expectAlert(any, named("IO", "verify").setFlag(u".IndexBad"_s).clearFlag(u".IndexBad"_s),
                nullptr, "Close,Reindex", nullptr,
                "The index of the archive is incorrect and needs to be recreated.");
    expectAlert(&AlertInfoForFileException,
                named("Info", "capture").setExplanation(u"iffycapture"_s),
                "Capture encountered problems", "OK,Open Log", "captureissues");
    const KSException cancel = named("Cancel", "capture");
    EXPECT_EQ(AlertInfoForCanceledCommand(&cancel)->alertStyle(), AlertTemplate::kWarningStyle);
    const KSException data = named("Data", "verify").setPOSIXErr(13);
    EXPECT_EQ(AlertInfoForAnyCommand(&data)->alertStyle(), AlertTemplate::kCriticalStyle);
    // The expected version is filled in.
    const KSException future =
        named("Data", "capture").setExplanation(u"readfuture"_s).setExpected(u"2.3"_s);
    EXPECT_TRUE(AlertInfoForAnyCommand(&future)->informativeText().endsWith(
        u"upgrade the application to version 2.3 or later."_s));

    // Without ".Command" the placeholder takes the generic word.
    const KSException bug = failure(u"Bug"_s);
    const char* const internal = "An internal program error occurred. Review the log for the "
                                 "details. Please report this problem to the developer.";
    expectAlert(any, bug, "Command failed", "Close,Open Log", nullptr, internal);
    const Exception foreign(u"Data"_s, u"from a library"_s, {{u".Explain"_s, u"norep"_s}});
    expectAlert(any, foreign, nullptr, nullptr, nullptr, internal);
    EXPECT_EQ(AlertInfoForAnyCommand(&foreign)->context().value(u"ExceptionReason"_s).toString(),
              u"from a library"_s);
}

TEST_F(AlertRules, RulesThatDoNotApplyAnswerNothingAndNoExceptionIsAProgrammingError)
{
    EXPECT_THROW(AlertInfoForCanceledCommand(nullptr), std::logic_error);
    EXPECT_THROW(AlertInfoForAnyCommand(nullptr), std::logic_error);
    EXPECT_THROW(AlertInfoForFileException(nullptr), std::logic_error);
    KSException archiveProblem = failure(u"IO"_s, u"capture"_s);
    archiveProblem.setExplanation(u"norep"_s);
    // Cancel rule: only for a cancel of a known command; file rule: only for file explanations.
    for (const KSException& canceled :
         {failure(u"IO"_s, u"capture"_s), failure(u"Cancel"_s, u"dump"_s), failure(u"Cancel"_s)}) {
        EXPECT_EQ(AlertInfoForCanceledCommand(&canceled), nullptr) << canceled.name().toStdString();
    }
    EXPECT_EQ(AlertInfoForFileException(&archiveProblem), nullptr);
    const KSException unexplained = failure(u"IO"_s, u"capture"_s);
    EXPECT_EQ(AlertInfoForFileException(&unexplained), nullptr);
}

TEST(AlertContext, IsTheUserInfoWithNamesAndDefaults)
{
    ContextualAlertInfo::setCommandNamer(&displayName);
    KSException exception = failure(u"IO"_s, u"restore"_s);
    exception.setStrPath(u"/tmp/a b"_s);
    const QVariantMap context = ContextualAlertInfo::contextDictionaryFromException(exception);
    ContextualAlertInfo::setCommandNamer(nullptr);
    // Without command names every command is "Command".
    EXPECT_EQ(ContextualAlertInfo::contextDictionaryFromException(exception)
                  .value(u"Command"_s)
                  .toString(),
              u"Command"_s);

    EXPECT_EQ(context.value(u"Command"_s).toString(), u"Restore"_s);
    EXPECT_EQ(context.value(u".Command"_s).toString(), u"restore"_s);
    EXPECT_EQ(context.value(u"Path"_s).toString(), u"/tmp/a b"_s);
    EXPECT_EQ(context.value(u"ExceptionName"_s).toString(), u"IO"_s);
    EXPECT_EQ(context.value(u"ExceptionReason"_s).toString(), u"it went wrong"_s);
    EXPECT_EQ(context.value(u"OSErr"_s).toString(), u"none"_s);

    exception.setDetail(qint64(-5000), u"OSErr"_s);
    EXPECT_EQ(ContextualAlertInfo::contextDictionaryFromException(exception)
                  .value(u"OSErr"_s)
                  .toLongLong(),
              -5000);
}

TEST(AlertPlaceholders, EachIsReplacedOnceFromTheContextSetLastAndUnknownOnesStay)
{
    const QVariantMap context{{u"Command"_s, u"Capture"_s}, {u"Count"_s, 3}};
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(
                  u"{Command} and {Command}: {Count} {Missing}"_s, context),
              u"Capture and {Command}: 3 {Missing}"_s);
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(u"plain"_s, context), u"plain"_s);
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(u"{Command"_s, context), u"{Command"_s);
    EXPECT_THROW(ContextualAlertInfo::replacePlaceholders(QString(), context), std::logic_error);

    auto info =
        ContextualAlertInfo::withAlertTemplateIn(AlertTemplates::archiveAlerts(), u"noaccess"_s);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), u"{Command} could not access archive"_s);
    info->setContext({{u"Command"_s, u"Merge"_s}});
    EXPECT_EQ(info->message(), u"Merge could not access archive"_s);
    EXPECT_TRUE(info->informativeText().startsWith(u"Merge did not have permission"_s));
}

TEST(StoredFailureSummary, CanceledThenArchiveThenFileTablesThenFlagsThenName)
{
    const auto entry = [](const char* key, const QVariant& value) {
        return std::pair(QString::fromLatin1(key), value);
    };
    const struct
    {
        QVariantMap summary;
        const char* message; // null: no alert
    } rows[] = {
        // No context: the placeholder waits for one.
        {{entry(".Explain", u"canceled_restore"_s)}, "{Command} Stopped"},
        {{entry(".Explain", u"canceled_norep"_s), entry(".Exception", u"Memory"_s)},
         "{Command} ran out of memory"},
        {{entry(".Explain", u"nokey"_s), entry(".DataBad", true)},
         "Cannot access encrypted archive"},
        {{entry(".Explain", u"nullcapture"_s)}, "Nothing Captured"},
        {{entry(".Exception", u"Bug"_s)}, nullptr},
        {{}, nullptr},
    };
    for (const auto& row : rows) {
        const auto info = AlertInfoForFailureSummary(row.summary);
        EXPECT_EQ(info ? info->message() : QString(), QString::fromUtf8(row.message));
    }
    EXPECT_EQ(AlertInfoForFailureSummary(rows[3].summary)->alertStyle(),
              AlertTemplate::kInformationalStyle);
    // Unlike an exception's flags, a stored summary's flags are read as booleans.
    const auto index = AlertInfoForFailureSummary(
        {entry(".DataBad", false), entry(".IndexBad", true), entry(".Exception", u"IO"_s)});
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->actionSet().buttonActions(), (Actions{2, 3}));
    const auto named =
        AlertInfoForFailureSummary({entry(".DataBad", false), entry(".Exception", u"IO"_s)});
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->helpTag(), u"trblioerr"_s);
}

TEST(AlertTemplateTables, LookupIsExactAndCaseSensitive)
{
    EXPECT_NE(CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(), u"noblessAPFS"_s),
              nullptr);
    EXPECT_EQ(CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(), u"noblessapfs"_s),
              nullptr);
    EXPECT_EQ(CannedAlertInfo::templateIn(AlertTemplates::archiveAlerts(), QString()), nullptr);
    EXPECT_EQ(CannedAlertInfo::withAlertTemplate(nullptr), nullptr);
    EXPECT_THROW(CannedAlertInfo::templateIn({}, u"norep"_s), std::logic_error);
}

TEST(AlertActionSets, ZeroEndsAListAndSetOperationsKeepCodeOrder)
{
    AlertActionSet set = AlertActionSet::alertActionSetWithActions({5, 2, 0, 4});
    EXPECT_EQ(set.buttonActions(), (Actions{2, 5}));
    set.includeAction(0);
    EXPECT_EQ(set.count(), 2);
    const qint32 array[] = {4, 0, 2};
    EXPECT_EQ(AlertActionSet{std::span<const qint32>(array)}.buttonActions(), (Actions{2, 4}));

    set = AlertActionSet{1, 2, 5};
    set.includeSet(AlertActionSet{7, 3});
    EXPECT_EQ(set.buttonActions(), (Actions{1, 2, 3, 5, 7}));
    const QRegularExpression pattern(u"^AlertActionSet<0x[0-9a-f]+>\\(1-3,5,7\\)$"_s);
    EXPECT_TRUE(pattern.match(set.description()).hasMatch()) << set.description().toStdString();
    set.excludeSet(AlertActionSet{1, 7});
    set.excludeAction(3);
    EXPECT_EQ(set.buttonActions(), (Actions{2, 5}));
    set.limitToSet(AlertActionSet{5, 6});
    EXPECT_EQ(set.buttonActions(), Actions{5});
    // A code without a button is held but shows nothing.
    set.includeAction(12);
    EXPECT_TRUE(set.includesAction(12));
    EXPECT_EQ(set.buttonActions(), Actions{5});
    EXPECT_TRUE(AlertActionSet::descriptionForAction(8).isEmpty());
}

TEST(AlertErrorObject, CarriesTextsButtonsAndTheAlertButNoRecoveryWithoutButtons)
{
    const ContextualAlertInfo info(
        *CannedAlertInfo::templateIn(AlertTemplates::exceptionNameAlerts(), u"Data"_s),
        {{u"Command"_s, u"Verify"_s}});
    QObject attempter;
    const Error error = info.errorWithRecoveryAttempter(
        &attempter, {{u"Extra"_s, 1}, {Error::kLocalizedDescriptionKey, u"replaced"_s}});

    EXPECT_EQ(error.domain(), u"KestromErrorDomain"_s);
    EXPECT_EQ(error.localizedDescription(), u"Verify failed"_s);
    EXPECT_EQ(error.localizedRecoverySuggestion(), info.informativeText());
    EXPECT_EQ(error.localizedRecoveryOptions(),
              (QStringList{u"Close"_s, u"Repair"_s, u"Open Log"_s}));
    EXPECT_EQ(error.userInfo().value(u"KSRecoveryActions"_s).toList(), (QVariantList{2, 4, 5}));
    EXPECT_EQ(error.recoveryAttempter(), &attempter);
    EXPECT_EQ(error.userInfo().value(u"Extra"_s).toInt(), 1);
    const auto carried =
        error.userInfo().value(u"KSAlertInfo"_s).value<std::shared_ptr<const AlertInfo>>();
    ASSERT_NE(carried, nullptr);
    EXPECT_EQ(carried->helpTag(), u"trblrepair"_s);

    const Error plain = AlertInfo().errorWithRecoveryAttempter(nullptr, {});
    EXPECT_FALSE(plain.userInfo().contains(u"KSRecoveryActions"_s));
    EXPECT_FALSE(plain.userInfo().contains(Error::kRecoveryAttempterKey));
    EXPECT_TRUE(plain.localizedRecoveryOptions().isEmpty());
    // The base's own texts say the alert classes failed.
    EXPECT_EQ(plain.localizedDescription(), u"Internal Alert error"_s);
    EXPECT_EQ(plain.localizedRecoverySuggestion(),
              u"Something is seriously wrong with the alert system classes in this "
              "application. Please chew out the developer."_s);
}
