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
        {QStringLiteral("capture"), QStringLiteral("Capture")},
        {QStringLiteral("restore"), QStringLiteral("Restore")},
        {QStringLiteral("verify"), QStringLiteral("Verify")}};
    return names.value(commandName, QStringLiteral("Command"));
}

KSException failure(const QString& name, const QString& command = {})
{
    auto exception = KSException::exceptionWithName(name, QStringLiteral("it went wrong"));
    if (!command.isEmpty()) {
        exception.setDetail(command, QStringLiteral(".Command"));
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
    expectAlert(any, named("Data", "verify").setDetail(qint64(-36), QStringLiteral("OSErr")),
                "Archive access failure", "Close,Repair", nullptr);
    // Listed as 2, 5, 4; shown in code order.
    expectAlert(any, named("Data", "verify").setPOSIXErr(2), "Verify failed",
                "Close,Repair,Open Log", "trblrepair");
    // Error numbers are only consulted for data failures.
    expectAlert(any, named("IO", "capture").setPOSIXErr(13), nullptr, nullptr, nullptr,
                "A network or disk error was encountered. See the log for the details.");
    // An explained missing archive comes before everything else.
    expectAlert(any,
                named("Data", "capture")
                    .setExplanation(QStringLiteral("norep"))
                    .setPOSIXErr(13)
                    .setFlag(QStringLiteral(".DataBad")),
                "Capture could not find archive", "Close", "trblnoarchive");
    // Damaged data beats a bad index; a flag once set stays set.
    expectAlert(any,
                named("IO", "verify")
                    .setFlag(QStringLiteral(".IndexBad"))
                    .setFlag(QStringLiteral(".DataBad")),
                nullptr, "Close,Repair", nullptr,
                "The archive data is damaged or incomplete. Use the Repair command to recover "
                "the valid information in the archive.");
    expectAlert(any,
                named("IO", "verify")
                    .setFlag(QStringLiteral(".IndexBad"))
                    .clearFlag(QStringLiteral(".IndexBad")),
                nullptr, "Close,Reindex", nullptr,
                "The index of the archive is incorrect and needs to be recreated.");
    expectAlert(&AlertInfoForFileException,
                named("Info", "capture").setExplanation(QStringLiteral("iffycapture")),
                "Capture encountered problems", "OK,Open Log", "captureissues");
    const KSException cancel = named("Cancel", "capture");
    EXPECT_EQ(AlertInfoForCanceledCommand(&cancel)->alertStyle(), AlertTemplate::kWarningStyle);
    const KSException data = named("Data", "verify").setPOSIXErr(13);
    EXPECT_EQ(AlertInfoForAnyCommand(&data)->alertStyle(), AlertTemplate::kCriticalStyle);

    // Without ".Command" the placeholder takes the generic word.
    const KSException bug = failure(QStringLiteral("Bug"));
    const char* const internal = "An internal program error occurred. Review the log for the "
                                 "details. Please report this problem to the developer.";
    expectAlert(any, bug, "Command failed", "Close,Open Log", nullptr, internal);
    const Exception foreign(QStringLiteral("Data"), QStringLiteral("from a library"),
                            {{QStringLiteral(".Explain"), QStringLiteral("norep")}});
    expectAlert(any, foreign, nullptr, nullptr, nullptr, internal);
    EXPECT_EQ(AlertInfoForAnyCommand(&foreign)
                  ->context()
                  .value(QStringLiteral("ExceptionReason"))
                  .toString(),
              QStringLiteral("from a library"));
}

TEST_F(AlertRules, RulesThatDoNotApplyAnswerNothing)
{
    KSException archiveProblem = failure(QStringLiteral("IO"), QStringLiteral("capture"));
    archiveProblem.setExplanation(QStringLiteral("norep"));
    // Cancel rule: only for a cancel of a known command; file rule: only for file explanations.
    for (const KSException& canceled : {failure(QStringLiteral("IO"), QStringLiteral("capture")),
                                        failure(QStringLiteral("Cancel"), QStringLiteral("dump")),
                                        failure(QStringLiteral("Cancel"))}) {
        EXPECT_EQ(AlertInfoForCanceledCommand(&canceled), nullptr) << canceled.name().toStdString();
    }
    EXPECT_EQ(AlertInfoForFileException(&archiveProblem), nullptr);
    const KSException unexplained = failure(QStringLiteral("IO"), QStringLiteral("capture"));
    EXPECT_EQ(AlertInfoForFileException(&unexplained), nullptr);
}

TEST_F(AlertRules, ExpectedVersionIsFilledIn)
{
    KSException future = failure(QStringLiteral("Data"), QStringLiteral("capture"));
    future.setExplanation(QStringLiteral("readfuture")).setExpected(QStringLiteral("2.3"));
    const auto info = AlertInfoForAnyCommand(&future);
    ASSERT_NE(info, nullptr);
    EXPECT_TRUE(info->informativeText().endsWith(
        QStringLiteral("upgrade the application to version 2.3 or later.")));
}

TEST_F(AlertRules, NullExceptionsAreProgrammingErrors)
{
    EXPECT_THROW(AlertInfoForCanceledCommand(nullptr), std::logic_error);
    EXPECT_THROW(AlertInfoForAnyCommand(nullptr), std::logic_error);
    EXPECT_THROW(AlertInfoForFileException(nullptr), std::logic_error);
}

TEST(AlertContext, IsTheUserInfoWithNamesAndDefaults)
{
    ContextualAlertInfo::setCommandNamer(&displayName);
    KSException exception = failure(QStringLiteral("IO"), QStringLiteral("restore"));
    exception.setStrPath(QStringLiteral("/tmp/a b"));
    const QVariantMap context = ContextualAlertInfo::contextDictionaryFromException(exception);
    ContextualAlertInfo::setCommandNamer(nullptr);
    // Without command names every command is "Command".
    EXPECT_EQ(ContextualAlertInfo::contextDictionaryFromException(exception)
                  .value(QStringLiteral("Command"))
                  .toString(),
              QStringLiteral("Command"));

    EXPECT_EQ(context.value(QStringLiteral("Command")).toString(), QStringLiteral("Restore"));
    EXPECT_EQ(context.value(QStringLiteral(".Command")).toString(), QStringLiteral("restore"));
    EXPECT_EQ(context.value(QStringLiteral("Path")).toString(), QStringLiteral("/tmp/a b"));
    EXPECT_EQ(context.value(QStringLiteral("ExceptionName")).toString(), QStringLiteral("IO"));
    EXPECT_EQ(context.value(QStringLiteral("ExceptionReason")).toString(),
              QStringLiteral("it went wrong"));
    EXPECT_EQ(context.value(QStringLiteral("OSErr")).toString(), QStringLiteral("none"));

    exception.setDetail(qint64(-5000), QStringLiteral("OSErr"));
    EXPECT_EQ(ContextualAlertInfo::contextDictionaryFromException(exception)
                  .value(QStringLiteral("OSErr"))
                  .toLongLong(),
              -5000);
}

TEST(AlertPlaceholders, EachIsReplacedOnceAndUnknownOnesStay)
{
    const QVariantMap context{{QStringLiteral("Command"), QStringLiteral("Capture")},
                              {QStringLiteral("Count"), 3}};
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(
                  QStringLiteral("{Command} and {Command}: {Count} {Missing}"), context),
              QStringLiteral("Capture and {Command}: 3 {Missing}"));
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(QStringLiteral("plain"), context),
              QStringLiteral("plain"));
    EXPECT_EQ(ContextualAlertInfo::replacePlaceholders(QStringLiteral("{Command"), context),
              QStringLiteral("{Command"));
    EXPECT_THROW(ContextualAlertInfo::replacePlaceholders(QString(), context), std::logic_error);
}

TEST(AlertPlaceholders, ContextualTextsFollowTheContextSetLater)
{
    auto info = ContextualAlertInfo::withAlertTemplateIn(AlertTemplates::archiveAlerts(),
                                                         QStringLiteral("noaccess"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("{Command} could not access archive"));
    info->setContext({{QStringLiteral("Command"), QStringLiteral("Merge")}});
    EXPECT_EQ(info->message(), QStringLiteral("Merge could not access archive"));
    EXPECT_TRUE(
        info->informativeText().startsWith(QStringLiteral("Merge did not have permission")));
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
        {{entry(".Explain", QStringLiteral("canceled_restore"))}, "{Command} Stopped"},
        {{entry(".Explain", QStringLiteral("canceled_norep")),
          entry(".Exception", QStringLiteral("Memory"))},
         "{Command} ran out of memory"},
        {{entry(".Explain", QStringLiteral("nokey")), entry(".DataBad", true)},
         "Cannot access encrypted archive"},
        {{entry(".Explain", QStringLiteral("nullcapture"))}, "Nothing Captured"},
        {{entry(".Exception", QStringLiteral("Bug"))}, nullptr},
        {{}, nullptr},
    };
    for (const auto& row : rows) {
        const auto info = AlertInfoForFailureSummary(row.summary);
        EXPECT_EQ(info ? info->message() : QString(), QString::fromUtf8(row.message));
    }
    EXPECT_EQ(AlertInfoForFailureSummary(rows[3].summary)->alertStyle(),
              AlertTemplate::kInformationalStyle);
    // Unlike an exception's flags, a stored summary's flags are read as booleans.
    const auto index =
        AlertInfoForFailureSummary({entry(".DataBad", false), entry(".IndexBad", true),
                                    entry(".Exception", QStringLiteral("IO"))});
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->actionSet().buttonActions(), (Actions{2, 3}));
    const auto named = AlertInfoForFailureSummary(
        {entry(".DataBad", false), entry(".Exception", QStringLiteral("IO"))});
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->helpTag(), QStringLiteral("trblioerr"));
}

TEST(AlertTemplateTables, LookupIsExactAndCaseSensitive)
{
    EXPECT_NE(CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(),
                                          QStringLiteral("noblessAPFS")),
              nullptr);
    EXPECT_EQ(CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(),
                                          QStringLiteral("noblessapfs")),
              nullptr);
    EXPECT_EQ(CannedAlertInfo::templateIn(AlertTemplates::archiveAlerts(), QString()), nullptr);
    EXPECT_EQ(CannedAlertInfo::withAlertTemplate(nullptr), nullptr);
    EXPECT_THROW(CannedAlertInfo::templateIn({}, QStringLiteral("norep")), std::logic_error);
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
    const QRegularExpression pattern(QStringLiteral("^AlertActionSet<0x[0-9a-f]+>\\(1-3,5,7\\)$"));
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

TEST(AlertErrorObject, CarriesTextsButtonsAndTheAlert)
{
    const ContextualAlertInfo info(
        *CannedAlertInfo::templateIn(AlertTemplates::exceptionNameAlerts(), QStringLiteral("Data")),
        {{QStringLiteral("Command"), QStringLiteral("Verify")}});
    QObject attempter;
    const Error error = info.errorWithRecoveryAttempter(
        &attempter, {{QStringLiteral("Extra"), 1},
                     {Error::kLocalizedDescriptionKey, QStringLiteral("replaced")}});

    EXPECT_EQ(error.domain(), QStringLiteral("KestromErrorDomain"));
    EXPECT_EQ(error.localizedDescription(), QStringLiteral("Verify failed"));
    EXPECT_EQ(error.localizedRecoverySuggestion(), info.informativeText());
    EXPECT_EQ(error.localizedRecoveryOptions(),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Repair"),
                           QStringLiteral("Open Log")}));
    EXPECT_EQ(error.userInfo().value(QStringLiteral("KSRecoveryActions")).toList(),
              (QVariantList{2, 4, 5}));
    EXPECT_EQ(error.recoveryAttempter(), &attempter);
    EXPECT_EQ(error.userInfo().value(QStringLiteral("Extra")).toInt(), 1);
    const auto carried = error.userInfo()
                             .value(QStringLiteral("KSAlertInfo"))
                             .value<std::shared_ptr<const AlertInfo>>();
    ASSERT_NE(carried, nullptr);
    EXPECT_EQ(carried->helpTag(), QStringLiteral("trblrepair"));
}

TEST(AlertErrorObject, AnAlertWithoutButtonsHasNoRecoveryActions)
{
    const AlertInfo base;
    const Error error = base.errorWithRecoveryAttempter(nullptr, {});
    EXPECT_FALSE(error.userInfo().contains(QStringLiteral("KSRecoveryActions")));
    EXPECT_FALSE(error.userInfo().contains(Error::kRecoveryAttempterKey));
    EXPECT_TRUE(error.localizedRecoveryOptions().isEmpty());
    // The base's own texts say the alert classes failed.
    EXPECT_EQ(error.localizedDescription(), QStringLiteral("Internal Alert error"));
    EXPECT_EQ(error.localizedRecoverySuggestion(),
              QStringLiteral("Something is seriously wrong with the alert system classes in this "
                             "application. Please chew out the developer."));
}
