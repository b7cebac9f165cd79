#include "activity/ActivityWindowHost.h"
#include "activity/CommandDetailsViewController.h"
#include "activity/CommandFailureViewController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/FileCommandProgressViewController.h"
#include "activity/IndexCommandProgressViewController.h"
#include "activity/LogViewerWindow.h"
#include "activity/MonitorProgressIndicator.h"
#include "activity/NextActionDateFormatter.h"
#include "activity/ProgressDescriptionField.h"
#include "errors/AlertInfo.h"
#include "exception/KSException.h"
#include "foundation/HumanReadableString.h"
#include "tracking/ActivityProgressManager.h"

#include <QFile>
#include <QIcon>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
// A host whose archive is a folder that exists, and which records what the panes ask of it.
class ArchiveHost final : public ActivityWindowHost
{
public:
    QString repositoryPath(const QByteArray&) const override { return archive; }
    void openRepository(const QString& path, qint32 action) override
    {
        opened = path;
        openedAction = action;
    }
    QString archive;
    QString opened;
    qint32 openedAction = 0;
};

QVariantMap progressOf(std::initializer_list<std::pair<const char*, QVariant>> entries)
{
    QVariantMap progress;
    for (const auto& [key, value] : entries) {
        progress.insert(QString::fromLatin1(key), value);
    }
    return progress;
}
} // namespace

TEST(MonitorProgressIndicatorTest, FillFollowsTheRangeAndRepaintsOnlyWhenAPixelMoves)
{
    struct Case
    {
        double min, max, value, expected;
    };
    // 102 points wide: 100 pixels of travel.
    // The minimum is asked before the maximum: a value at or below it is empty even when it is
    // at or above a maximum no greater than the minimum.
    const Case cases[] = {{0, 100, 50, 50}, {0, 100, 150, 100}, {10, 20, 5, 0},  {0, 100, 100, 100},
                          {0, 100, 0.4, 0}, {50, 150, 75, 25},  {50, 50, 50, 0}, {60, 40, 50, 0}};
    for (const Case& c : cases) {
        MonitorProgressIndicator indicator;
        indicator.resize(102, 12);
        indicator.setMinValue(c.min);
        indicator.setMaxValue(c.max);
        indicator.setDoubleValue(c.value);
        EXPECT_EQ(indicator.xValue(), c.expected) << c.min << " " << c.max << " " << c.value;
    }
    MonitorProgressIndicator indicator;
    indicator.resize(102, 12);
    indicator.setDoubleValue(40);
    const quint64 before = indicator.redrawRequests();
    indicator.setDoubleValue(40.3); // same pixel
    EXPECT_EQ(indicator.redrawRequests(), before);
    indicator.setDoubleValue(41);
    EXPECT_EQ(indicator.redrawRequests(), before + 1);
}

TEST(MonitorProgressIndicatorTest, OneSharedTimerStopsWhenNoIndicatorAnimates)
{
    auto first = std::make_unique<MonitorProgressIndicator>();
    MonitorProgressIndicator second;
    first->setIndeterminate(true);
    EXPECT_EQ(MonitorProgressIndicator::animationTimer(), nullptr); // not animating yet
    first->setAnimating(true);
    second.setIndeterminate(true);
    second.setAnimating(true);
    QTimer* timer = MonitorProgressIndicator::animationTimer();
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 100);
    const quint64 redraws = second.redrawRequests();
    MonitorProgressIndicator::animateIndeterminateTime();
    EXPECT_EQ(second.redrawRequests(), redraws + 1);
    first.reset();
    second.setIndeterminate(false);
    MonitorProgressIndicator::animateIndeterminateTime();
    EXPECT_EQ(MonitorProgressIndicator::animationTimer(), nullptr);
}

TEST(ProgressDescriptionFieldTest, IconAndNameAppearOnlyWhereThereIsRoom)
{
    ProgressDescriptionField field;
    field.resize(300, 16);
    const int verbEnd = 2; // no manager: the verb is empty
    struct Case
    {
        int width;
        bool hasName, icon, name;
    };
    const Case cases[] = {
        {verbEnd + 16, true, false, false},
        {verbEnd + 16 + 1, true, true, false},
        {verbEnd + 18 + 40 - 1, true, true, false},
        {verbEnd + 18 + 40, true, true, true},
        {300, false, true, false},
    };
    for (const Case& c : cases) {
        const auto layout = field.alternateLayout(c.width, true, c.hasName);
        EXPECT_EQ(layout.icon.has_value(), c.icon) << c.width;
        EXPECT_EQ(layout.name.has_value(), c.name) << c.width;
    }
    // The name follows its icon: without one, neither is laid out.
    EXPECT_FALSE(field.alternateLayout(300, false, true).name.has_value());
}

// An item named by a command that sends no icon is still drawn after an icon: the desktop's
// icon for a document.
TEST(ProgressDescriptionFieldTest, AnItemWithoutItsOwnIconIsDrawnAfterADocumentIcon)
{
    const auto manager = ActivityProgressManager::initWithCommand(u"capture"_s);
    manager->commandDidStart();
    manager->commandProgressDidUpdate(
        progressOf({{"verb", u"Copying"_s}, {"item", u"Notes.txt"_s}, {"alt", true}}));
    ProgressDescriptionField field;
    field.resize(300, 16);
    field.bindFullDescriptionTo(manager.get());
    ASSERT_TRUE(manager->showingAlternateDescription());
    const QImage image = field.grab().toImage();
    const auto layout = field.alternateLayout(300, true, true);
    ASSERT_TRUE(layout.icon && layout.name);
    const QRect icon = *layout.icon;
    const QRgb background = image.pixel(image.width() - 1, 0);
    int drawn = 0;
    for (int y = icon.top(); y <= icon.bottom(); ++y) {
        for (int x = icon.left(); x <= icon.right(); ++x) {
            drawn += image.pixel(x, y) != background ? 1 : 0;
        }
    }
    EXPECT_GT(drawn, 16) << "no icon before the item's name";
    // The name starts after the icon and its gap, not where the icon belongs.
    for (int y = 0; y < image.height(); ++y) {
        for (int x = icon.right() + 1; x < layout.name->left(); ++x) {
            EXPECT_EQ(image.pixel(x, y), background) << x << "," << y;
        }
    }
    manager->commandDidStopWithException(nullptr);
}

TEST(CommandFormsTest, CountersAndBarsFollowTheProgressDictionary)
{
    FileCommandProgressViewController file;
    file.willBeginStatus();
    EXPECT_TRUE(file.thermometerIndeterminate());
    struct Case
    {
        QVariantMap progress;
        QLabel* field;
        QString text;
    };
    const Case cases[] = {
        {progressOf({{"dup", 12.5}}), file.duplicateField(), u"(12% duplicate)"_s},
        {progressOf({{"dup", 0}}), file.duplicateField(), QString()},
        {progressOf({{"items", 1}}), file.itemCountField(), u"1 item"_s},
        {progressOf({{"items", 1500000}}), file.itemCountField(), u"1,500,000 items"_s},
        {progressOf({{"rate", 480}}), file.rateField(),
         HumanReadableString::stringWithReadableSize(480) + u"/min"_s},
        {progressOf({{"bytes", 2048}}), file.byteCountField(),
         HumanReadableString::stringWithReadableSize(2048)},
    };
    for (const Case& c : cases) {
        file.updateStatus(c.progress);
        EXPECT_EQ(c.field->text(), c.text) << c.progress.firstKey().toStdString();
    }
    // Null or zero "max" is indeterminate; while so, "value" leaves the thermometer alone.
    file.updateStatus(progressOf({{"max", QVariant::fromValue(nullptr)}, {"value", 5}}));
    EXPECT_TRUE(file.thermometerIndeterminate());
    EXPECT_EQ(file.thermometer()->maximum(), 0);
    file.updateStatus(progressOf({{"max", 10}, {"min", 0}}));
    EXPECT_FALSE(file.thermometerIndeterminate());
    EXPECT_EQ(file.thermometer()->value(), 0) << "the value given while indeterminate was kept";
    file.updateStatus(progressOf({{"value", 5}}));
    const int steps = file.thermometer()->maximum();
    EXPECT_EQ(file.thermometer()->value(), steps / 2);
    // A new maximum or minimum without a value moves the bar as well.
    file.updateStatus(progressOf({{"max", 20}}));
    EXPECT_EQ(file.thermometer()->value(), steps / 4);
    file.updateStatus(progressOf({{"min", 5}}));
    EXPECT_EQ(file.thermometer()->value(), 0);
    file.updateStatus(progressOf({{"min", 0}, {"max", 10}, {"value", 5}}));
    EXPECT_EQ(file.thermometer()->value(), steps / 2);
    file.didEndStatusWithException(nullptr);
    EXPECT_EQ(file.thermometer()->value(), file.thermometer()->maximum());
    EXPECT_TRUE(file.actionButton()->isHidden());
    EXPECT_TRUE(file.stopButton()->isHidden());
}

TEST(CommandFormsTest, CollapsedIndicatorTakesValueEvenWhileIndeterminate)
{
    CommandProgressViewController collapsed;
    collapsed.willBeginStatus();
    collapsed.updateStatus(progressOf({{"max", 0}, {"value", 30}, {"can.cancel", true}}));
    EXPECT_TRUE(collapsed.progressIndicator()->isIndeterminate());
    EXPECT_EQ(collapsed.progressIndicator()->doubleValue(), 30);
    EXPECT_TRUE(collapsed.stopButton()->isEnabled());
    collapsed.updateStatus(progressOf({{"max", 60}, {"can.cancel", false}}));
    EXPECT_FALSE(collapsed.progressIndicator()->isIndeterminate());
    EXPECT_FALSE(collapsed.stopButton()->isEnabled());
}

TEST(CommandFormsTest, PauseLengthComesFromTheMenuTag)
{
    const std::pair<QVariant, double> cases[] = {{QVariant(), 300},     {QVariant(200), 14400},
                                                 {QVariant(201), 300},  {QVariant(203), 1200},
                                                 {QVariant(206), 7200}, {QVariant(207), 14400}};
    for (const auto& [tag, seconds] : cases) {
        EXPECT_EQ(CommandUmbrellaViewController::pauseSecondsForTag(tag), seconds) << tag.toInt();
    }
}

TEST(CommandFailurePaneTest, ButtonsFollowTheAlertsActionsAndTheArchive)
{
    QTemporaryDir archive;
    struct Case
    {
        AlertActionSet actions;
        bool archiveExists;
        bool viewLog, repair;
        qint32 code;
    };
    using A = AlertActionSet;
    const Case cases[] = {
        {{A::kOpenLog}, true, true, false, 0},
        {{A::kReindex, A::kRepair}, true, false, true, 3},
        {{A::kReindex}, true, false, true, 4},
        {{A::kReindex, A::kRepair, A::kOpenLog}, false, true, false, 0},
        {{A::kClose}, true, false, false, 0},
    };
    for (const Case& c : cases) {
        ArchiveHost host;
        host.archive = c.archiveExists ? archive.path() : archive.path() + u"/gone"_s;
        auto umbrella = CommandUmbrellaViewController::umbrellaControllerForKind(
            ProgressPane::Kind::Index, &host);
        CommandFailureViewController failure;
        failure.setUmbrellaController(umbrella.get());
        failure.setEndAlert(AlertInfo(c.actions),
                            KSException::exceptionWithName(u"Data"_s, QString()));
        EXPECT_TRUE(failure.offeredActions().includesAction(A::kOK));
        EXPECT_FALSE(failure.offeredActions().includesAction(A::kClose));
        EXPECT_EQ(failure.viewLogButton() != nullptr, c.viewLog)
            << c.actions.description().toStdString();
        EXPECT_EQ(failure.repairArchiveButton() != nullptr, c.repair);
        EXPECT_EQ(failure.repairActionCommand(), c.code);
        if (c.repair) {
            failure.repairArchive();
            EXPECT_EQ(host.opened, archive.path());
            EXPECT_EQ(host.openedAction, c.code);
        }
    }
}

TEST(CommandFailurePaneTest, SoftReindexFailureAlsoOffersRepair)
{
    IndexCommandProgressViewController index;
    KSException soft = KSException::exceptionWithName(u"Data"_s, QString());
    soft.setSoft(true).setDetail(u"reindex"_s, u".Command"_s);
    const auto adjusted = index.adjustAlert(
        std::make_unique<AlertInfo>(AlertActionSet{AlertActionSet::kReindex}), soft);
    EXPECT_TRUE(adjusted->actionSet().includesAction(AlertActionSet::kRepair));
    const auto hard =
        index.adjustAlert(std::make_unique<AlertInfo>(AlertActionSet{AlertActionSet::kReindex}),
                          KSException::exceptionWithName(u"Data"_s, QString()));
    EXPECT_FALSE(hard->actionSet().includesAction(AlertActionSet::kRepair));
}

TEST(CommandFailurePaneTest, ViewLogGoesToTheOwnViewerWhenNoClientTakesIt)
{
    LogLine shown;
    bool opened = false;
    CommandUmbrellaViewController::setLogViewerOpener([&](const LogLine& line) {
        shown = line;
        opened = true;
    });
    auto umbrella =
        CommandUmbrellaViewController::umbrellaControllerForKind(ProgressPane::Kind::Details);
    umbrella->viewLogLine(u"4.12.3"_s);
    CommandUmbrellaViewController::setLogViewerOpener({});
    ASSERT_TRUE(opened);
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->description(), u"4.12.3"_s);
}

TEST(NextActionDateFormatterTest, LongFormOnlyBeyondTwentyThreeHours)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const NextActionDateFormatter formatter([now] { return now; });
    EXPECT_FALSE(formatter.usesLongFormat(now.addSecs(82800)));
    EXPECT_TRUE(formatter.usesLongFormat(now.addSecs(82801)));
    for (const QVariant& notADate :
         {QVariant(), QVariant(u"tomorrow"_s), QVariant(86400), QVariant::fromValue(nullptr)}) {
        EXPECT_EQ(formatter.stringForObjectValue(notADate), QString()) << notADate.typeName();
    }
    EXPECT_FALSE(formatter.stringForObjectValue(now.addSecs(300)).isEmpty());
}

TEST(LogViewerWindowTest, OpensAtTheLineWithItsNestedLinesAndFollowsTheFile)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(u"Kestrom.log"_s);
    QFile log(path);
    ASSERT_TRUE(log.open(QIODevice::WriteOnly));
    log.write("2024-01-01 10:00:00.000 +0000 Plain   alpha [4.1]\n"
              "2024-01-01 10:00:00.001 +0000 Failure beta [4.2]\n"
              "2024-01-01 10:00:00.002 +0000 Details beta detail [4.2.1]\n"
              "2024-01-01 10:00:00.003 +0000 Plain   gamma [4.21]\n");
    log.flush();
    LogViewerWindow viewer;
    viewer.setLogFilePath(path);
    viewer.showLogLine(LogLineIdentifier::fromString(u"4.2"_s));
    EXPECT_EQ(viewer.highlightedBlocks(), (QList<int>{1, 2}));
    EXPECT_EQ(viewer.currentBlock(), 1);
    // The user finds a line; what the log gains meanwhile is marked but moves nobody.
    EXPECT_TRUE(viewer.find(u"gamma"_s));
    log.write("2024-01-01 10:00:01.000 +0000 Plain   delta [4.3]\n"
              "2024-01-01 10:00:01.001 +0000 Details beta more [4.2.2]\n");
    log.flush();
    viewer.followFile();
    EXPECT_EQ(viewer.textView()->blockCount(), 6);
    EXPECT_EQ(viewer.currentBlock(), 3) << "the write took the user back to the failure";
    EXPECT_EQ(viewer.textView()->textCursor().selectedText(), u"gamma"_s);
    EXPECT_EQ(viewer.highlightedBlocks(), (QList<int>{1, 2, 5}));
    EXPECT_TRUE(viewer.find(u"delta"_s));
    EXPECT_EQ(viewer.currentBlock(), 4);
    EXPECT_FALSE(viewer.find(u"epsilon"_s));

    // Rotated: the old file moves aside and a new one, already longer than what was read,
    // takes its place; the viewer follows the new file by itself.
    log.close();
    ASSERT_TRUE(QFile::rename(path, path + u".1"_s));
    QFile fresh(path);
    ASSERT_TRUE(fresh.open(QIODevice::WriteOnly));
    const QByteArray line = "2024-01-02 00:00:00.000 +0000 Plain   after the rotation [5.1]\n";
    for (int i = 0; i < 10; ++i) {
        fresh.write(line);
    }
    fresh.flush();
    ASSERT_TRUE(QTest::qWaitFor([&] { return viewer.textView()->blockCount() == 10; }, 10000))
        << viewer.textView()->toPlainText().toStdString();
    EXPECT_FALSE(viewer.textView()->toPlainText().contains(u"alpha"_s));
    fresh.write("2024-01-02 00:00:01.000 +0000 Plain   still followed [5.2]\n");
    fresh.flush();
    ASSERT_TRUE(QTest::qWaitFor([&] { return viewer.textView()->blockCount() == 11; }, 10000));
}

TEST(ActivityImagesTest, SvgImagesLoadFromTheResource)
{
    for (const char* name : {"stop", "action", "failure", "idle", "update"}) {
        const QIcon icon(u":/activity/images/%1.svg"_s.arg(QLatin1String(name)));
        EXPECT_FALSE(icon.pixmap(32, 32).isNull()) << name;
    }
}
