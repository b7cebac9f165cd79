#include "errors/AlertInfo.h"

#include "errors/AlertActionSet.h"
#include "errors/AlertTemplates.h"
#include "errors/CannedAlertInfo.h"
#include "errors/CommandAlertInfo.h"
#include "errors/ContextualAlertInfo.h"
#include "errors/Error.h"
#include "errors/KSException.h"

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

class AlertRules : public ::testing::Test
{
protected:
    void SetUp() override { ContextualAlertInfo::setCommandNamer(&displayName); }
    void TearDown() override { ContextualAlertInfo::setCommandNamer(nullptr); }
};
} // namespace

TEST_F(AlertRules, CanceledCaptureShowsCaptureStoppedWithOneOKButton)
{
    const KSException cancel = failure(QStringLiteral("Cancel"), QStringLiteral("capture"));
    const auto info = AlertInfoForCanceledCommand(&cancel);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Capture Stopped"));
    EXPECT_EQ(info->informativeText(),
              QStringLiteral("The layer created by this capture is incomplete and may be missing "
                             "items. Use caution when recalling items in this layer."));
    EXPECT_EQ(info->alertStyle(), AlertTemplate::kWarningStyle);
    EXPECT_EQ(buttonTitles(*info), QStringList{QStringLiteral("OK")});
    EXPECT_TRUE(info->helpTag().isEmpty());
}

TEST_F(AlertRules, CanceledRestoreShowsTheRecallTextsWithItsOwnName)
{
    const KSException cancel = failure(QStringLiteral("Cancel"), QStringLiteral("restore"));
    const auto info = AlertInfoForCanceledCommand(&cancel);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Restore Stopped"));
    EXPECT_EQ(info->informativeText(), QStringLiteral("Some items were not recalled."));
}

TEST_F(AlertRules, CanceledRuleAnswersOnlyForCancelOfAKnownCommand)
{
    const KSException notCanceled = failure(QStringLiteral("IO"), QStringLiteral("capture"));
    EXPECT_EQ(AlertInfoForCanceledCommand(&notCanceled), nullptr);
    const KSException unknownCommand = failure(QStringLiteral("Cancel"), QStringLiteral("dump"));
    EXPECT_EQ(AlertInfoForCanceledCommand(&unknownCommand), nullptr);
    const KSException noCommand = failure(QStringLiteral("Cancel"));
    EXPECT_EQ(AlertInfoForCanceledCommand(&noCommand), nullptr);
}

TEST_F(AlertRules, DataFailureWithPermissionDeniedSaysTheArchiveCouldNotBeAccessed)
{
    KSException data = failure(QStringLiteral("Data"), QStringLiteral("verify"));
    data.setPOSIXErr(13);
    const auto info = AlertInfoForAnyCommand(&data);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Verify could not access archive"));
    EXPECT_EQ(info->informativeText(),
              QStringLiteral("Verify did not have permission to access the archive. The archive "
                             "might belong to another user or is locked."));
    EXPECT_EQ(info->helpTag(), QStringLiteral("trblusearchive"));
    EXPECT_EQ(info->alertStyle(), AlertTemplate::kCriticalStyle);
    EXPECT_EQ(buttonTitles(*info), QStringList{QStringLiteral("OK")});
}

TEST_F(AlertRules, DataFailureFallsBackToTheOSErrorThenToTheExceptionName)
{
    KSException osError = failure(QStringLiteral("Data"), QStringLiteral("verify"));
    osError.setDetail(qint64(-36), QStringLiteral("OSErr"));
    const auto io = AlertInfoForAnyCommand(&osError);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->message(), QStringLiteral("Archive access failure"));
    EXPECT_EQ(io->actionSet().buttonActions(), (Actions{2, 4}));

    KSException unlisted = failure(QStringLiteral("Data"), QStringLiteral("verify"));
    unlisted.setPOSIXErr(2);
    const auto data = AlertInfoForAnyCommand(&unlisted);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->message(), QStringLiteral("Verify failed"));
    EXPECT_EQ(data->helpTag(), QStringLiteral("trblrepair"));
    // Listed as 2, 5, 4; shown in code order.
    EXPECT_EQ(buttonTitles(*data), (QStringList{QStringLiteral("Close"), QStringLiteral("Repair"),
                                                QStringLiteral("Open Log")}));
}

TEST_F(AlertRules, ErrorNumbersAreOnlyConsultedForDataFailures)
{
    KSException io = failure(QStringLiteral("IO"), QStringLiteral("capture"));
    io.setPOSIXErr(13);
    const auto info = AlertInfoForAnyCommand(&io);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->informativeText(),
              QStringLiteral("A network or disk error was encountered. See the log for the "
                             "details."));
}

TEST_F(AlertRules, ExplainedMissingArchiveComesBeforeEverythingElse)
{
    KSException data = failure(QStringLiteral("Data"), QStringLiteral("capture"));
    data.setExplanation(QStringLiteral("norep"))
        .setPOSIXErr(13)
        .setFlag(QStringLiteral(".DataBad"));
    const auto info = AlertInfoForAnyCommand(&data);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Capture could not find archive"));
    EXPECT_EQ(info->helpTag(), QStringLiteral("trblnoarchive"));
    EXPECT_EQ(buttonTitles(*info), QStringList{QStringLiteral("Close")});
}

TEST_F(AlertRules, UnrecognisedFailureIsAnInternalError)
{
    const KSException bug = failure(QStringLiteral("Bug"));
    const auto info = AlertInfoForAnyCommand(&bug);
    ASSERT_NE(info, nullptr);
    // No ".Command": the placeholder takes the generic word.
    EXPECT_EQ(info->message(), QStringLiteral("Command failed"));
    EXPECT_EQ(info->informativeText(),
              QStringLiteral("An internal program error occurred. Review the log for the details. "
                             "Please report this problem to the developer."));
    EXPECT_EQ(buttonTitles(*info),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Open Log")}));

    const Exception foreign(QStringLiteral("Data"), QStringLiteral("from a library"),
                            {{QStringLiteral(".Explain"), QStringLiteral("norep")}});
    const auto foreignInfo = AlertInfoForAnyCommand(&foreign);
    ASSERT_NE(foreignInfo, nullptr);
    EXPECT_EQ(foreignInfo->informativeText(), info->informativeText());
    EXPECT_EQ(foreignInfo->context().value(QStringLiteral("ExceptionReason")).toString(),
              QStringLiteral("from a library"));
}

TEST_F(AlertRules, DamagedDataBeatsBadIndexAndAFlagOnceSetStaysSet)
{
    KSException both = failure(QStringLiteral("IO"), QStringLiteral("verify"));
    both.setFlag(QStringLiteral(".IndexBad")).setFlag(QStringLiteral(".DataBad"));
    const auto damaged = AlertInfoForAnyCommand(&both);
    ASSERT_NE(damaged, nullptr);
    EXPECT_EQ(buttonTitles(*damaged),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Repair")}));
    EXPECT_EQ(damaged->informativeText(),
              QStringLiteral("The archive data is damaged or incomplete. Use the Repair command to "
                             "recover the valid information in the archive."));

    KSException cleared = failure(QStringLiteral("IO"), QStringLiteral("verify"));
    cleared.setFlag(QStringLiteral(".IndexBad")).clearFlag(QStringLiteral(".IndexBad"));
    const auto index = AlertInfoForAnyCommand(&cleared);
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->informativeText(),
              QStringLiteral("The index of the archive is incorrect and needs to be recreated."));
    EXPECT_EQ(buttonTitles(*index),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Reindex")}));
}

TEST_F(AlertRules, FileExceptionIsLookedUpByItsExplanation)
{
    KSException iffy = failure(QStringLiteral("Info"), QStringLiteral("capture"));
    iffy.setExplanation(QStringLiteral("iffycapture"));
    const auto info = AlertInfoForFileException(&iffy);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Capture encountered problems"));
    EXPECT_EQ(info->helpTag(), QStringLiteral("captureissues"));
    EXPECT_EQ(buttonTitles(*info), (QStringList{QStringLiteral("OK"), QStringLiteral("Open Log")}));

    KSException archiveProblem = failure(QStringLiteral("IO"), QStringLiteral("capture"));
    archiveProblem.setExplanation(QStringLiteral("norep"));
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
    try {
        AlertInfoForCanceledCommand(nullptr);
        FAIL() << "no assertion";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "cancelException!=nil");
    }
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

TEST(AlertContext, WithoutCommandNamesEveryCommandIsCommand)
{
    const KSException cancel = failure(QStringLiteral("Cancel"), QStringLiteral("restore"));
    const auto info = AlertInfoForCanceledCommand(&cancel);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->message(), QStringLiteral("Command Stopped"));
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

TEST(StoredFailureSummary, CanceledExplanationsUseTheCanceledTable)
{
    const auto info = AlertInfoForFailureSummary(
        {{QStringLiteral(".Explain"), QStringLiteral("canceled_restore")}});
    ASSERT_NE(info, nullptr);
    // No context: the placeholder waits for one.
    EXPECT_EQ(info->message(), QStringLiteral("{Command} Stopped"));

    const auto unknown =
        AlertInfoForFailureSummary({{QStringLiteral(".Explain"), QStringLiteral("canceled_norep")},
                                    {QStringLiteral(".Exception"), QStringLiteral("Memory")}});
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->message(), QStringLiteral("{Command} ran out of memory"));
}

TEST(StoredFailureSummary, ArchiveThenFileTablesThenFlagsThenName)
{
    const auto archive =
        AlertInfoForFailureSummary({{QStringLiteral(".Explain"), QStringLiteral("nokey")},
                                    {QStringLiteral(".DataBad"), true}});
    ASSERT_NE(archive, nullptr);
    EXPECT_EQ(archive->message(), QStringLiteral("Cannot access encrypted archive"));

    const auto file =
        AlertInfoForFailureSummary({{QStringLiteral(".Explain"), QStringLiteral("nullcapture")}});
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->message(), QStringLiteral("Nothing Captured"));
    EXPECT_EQ(file->alertStyle(), AlertTemplate::kInformationalStyle);

    // Unlike an exception's flags, a stored summary's flags are read as booleans.
    const auto index =
        AlertInfoForFailureSummary({{QStringLiteral(".DataBad"), false},
                                    {QStringLiteral(".IndexBad"), true},
                                    {QStringLiteral(".Exception"), QStringLiteral("IO")}});
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->actionSet().buttonActions(), (Actions{2, 3}));

    const auto named =
        AlertInfoForFailureSummary({{QStringLiteral(".DataBad"), false},
                                    {QStringLiteral(".Exception"), QStringLiteral("IO")}});
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(named->helpTag(), QStringLiteral("trblioerr"));

    EXPECT_EQ(AlertInfoForFailureSummary({{QStringLiteral(".Exception"), QStringLiteral("Bug")}}),
              nullptr);
    EXPECT_EQ(AlertInfoForFailureSummary({}), nullptr);
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
    try {
        CannedAlertInfo::templateIn({}, QStringLiteral("norep"));
        FAIL() << "no assertion";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "alertList!=NULL");
    }
}

TEST(AlertTemplateTables, ProductTextsAreKeptAsWritten)
{
    const auto* diskFull = CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(),
                                                       QStringLiteral("diskfull"));
    ASSERT_NE(diskFull, nullptr);
    EXPECT_TRUE(diskFull->informativeText.contains(u"deleting unneccessary files"));
    const auto* overlap = CannedAlertInfo::templateIn(AlertTemplates::fileCommandAlerts(),
                                                      QStringLiteral("itemsoverlap"));
    ASSERT_NE(overlap, nullptr);
    EXPECT_TRUE(overlap->informativeText.contains(u"happened before to the earliest capture"));
    EXPECT_EQ(overlap->helpTag, u"combineitems");

    const CannedAlertInfo lastResort(AlertTemplates::lastResort());
    EXPECT_EQ(lastResort.message(), QStringLiteral("{Command} failed"));
    EXPECT_TRUE(lastResort.informativeText().isEmpty());
    EXPECT_EQ(buttonTitles(lastResort),
              (QStringList{QStringLiteral("Close"), QStringLiteral("Open Log")}));
}

TEST(AlertActionSets, ZeroEndsAListAndIsNeverIncluded)
{
    AlertActionSet set = AlertActionSet::alertActionSetWithActions({5, 2, 0, 4});
    EXPECT_EQ(set.count(), 2);
    EXPECT_FALSE(set.includesAction(4));
    set.includeAction(0);
    EXPECT_EQ(set.count(), 2);

    const qint32 array[] = {4, 0, 2};
    const AlertActionSet fromArray{std::span<const qint32>(array)};
    EXPECT_EQ(fromArray.buttonActions(), (Actions{2, 4}));
}

TEST(AlertActionSets, SetOperations)
{
    AlertActionSet set{1, 2, 5};
    set.includeSet(AlertActionSet{7, 3});
    EXPECT_EQ(set.buttonActions(), (Actions{1, 2, 3, 5, 7}));
    set.excludeSet(AlertActionSet{1, 7});
    set.excludeAction(3);
    EXPECT_EQ(set.buttonActions(), (Actions{2, 5}));
    set.limitToSet(AlertActionSet{5, 6});
    EXPECT_EQ(set.buttonActions(), Actions{5});
    // A code without a button is held but shows nothing.
    set.includeAction(12);
    EXPECT_TRUE(set.includesAction(12));
    EXPECT_EQ(set.buttonActions(), Actions{5});
}

TEST(AlertActionSets, TitlesAndDescription)
{
    const QStringList expected{QStringLiteral("OK"),        QStringLiteral("Close"),
                               QStringLiteral("Reindex"),   QStringLiteral("Repair"),
                               QStringLiteral("Open Log"),  QStringLiteral("Recover Key"),
                               QStringLiteral("Import Key")};
    for (qint32 code = 1; code <= 7; ++code) {
        EXPECT_EQ(AlertActionSet::descriptionForAction(code), expected.at(code - 1));
    }
    EXPECT_TRUE(AlertActionSet::descriptionForAction(0).isEmpty());
    EXPECT_TRUE(AlertActionSet::descriptionForAction(8).isEmpty());

    const AlertActionSet set{1, 2, 3, 5, 7};
    const QRegularExpression pattern(QStringLiteral("^AlertActionSet<0x[0-9a-f]+>\\(1-3,5,7\\)$"));
    EXPECT_TRUE(pattern.match(set.description()).hasMatch()) << set.description().toStdString();
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
    EXPECT_EQ(error.code(), 0);
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
    EXPECT_NE(carried.get(), &info);
    EXPECT_EQ(carried->message(), QStringLiteral("Verify failed"));
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
