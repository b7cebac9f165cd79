#include "activity/ActivityIdleViewController.h"
#include "activity/ActivityWindowController.h"
#include "activity/ActivityWindowHost.h"
#include "activity/CommandFailureViewController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/FadingWindowAnimation.h"
#include "activity/FileCommandProgressViewController.h"
#include "activity/UpgradeViewController.h"
#include "activity/WindowPlacement.h"
#include "exception/KSException.h"
#include "foundation/MainQueue.h"
#include "preferences/MonitorDefaults.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>
#include <gtest/gtest.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {
class RecordingHost final : public ActivityWindowHost
{
public:
    void setDockActivityPaneCount(int count) override { dockCount = count; }
    std::optional<QVariantMap> queryNextScheduledActionInfo() override { return nextAction; }
    bool updateAvailable() const override { return !version.isEmpty(); }
    QString readableVersionAvailable() const override { return version; }
    QVariant impermanentValue(const QString& key, const QString& identifier) override
    {
        return memory.value(key + identifier);
    }
    void setImpermanentValue(const QVariant& value, const QString& key,
                             const QString& identifier) override
    {
        memory.insert(key + identifier, value);
    }

    bool setActionToExecuteAt(const QString& actionID, double seconds) override
    {
        scheduled.append({actionID, seconds});
        return schedulerReachable;
    }
    void runRescheduleSheet(const QString& actionID) override { sheets.append(actionID); }

    int dockCount = -1;
    std::optional<QVariantMap> nextAction;
    QList<std::pair<QString, double>> scheduled;
    bool schedulerReachable = true;
    QStringList sheets;
    QString version;
    QVariantMap memory;
};

// A window with real progress managers, driven directly so that time stays in the test's hand.
class ActivityWindowTest : public ::testing::Test
{
protected:
    std::shared_ptr<ActivityProgressManager> start(const QString& command,
                                                   const QVariantMap& progress = {})
    {
        auto manager = ActivityProgressManager::initWithCommand(command);
        m_window.willAddListener(manager.get());
        manager->commandDidStart();
        manager->commandProgressDidUpdate(progress);
        return manager;
    }

    static CommandUmbrellaViewController* paneOf(const std::shared_ptr<ActivityProgressManager>& m)
    {
        return static_cast<CommandUmbrellaViewController*>(m->viewController().get());
    }

    static void stop(const std::shared_ptr<ActivityProgressManager>& manager,
                     std::shared_ptr<const Exception> failure = nullptr)
    {
        manager->commandDidStopWithException(failure);
        QCoreApplication::processEvents(); // the end is queued on the main queue
        QCoreApplication::processEvents();
    }

    RecordingHost m_host;
    QDateTime m_now = QDateTime::currentDateTimeUtc();
    ActivityWindowController m_window{&m_host, [this] {
                                          return m_now;
                                      }};
};

const QVariantMap kCaptureProgress{{u"task"_s, u"Capturing Home"_s},
                                   {u"max"_s, 100},
                                   {u"value"_s, 40},
                                   {u"time"_s, 75},
                                   {u"verb"_s, u"Copying"_s},
                                   {u"item"_s, u"Notes.txt"_s},
                                   {u"alt"_s, true},
                                   {u"bytes"_s, 734003200},
                                   {u"items"_s, 1234},
                                   {u"rate"_s, 52428800},
                                   {u"dup"_s, 7}};
} // namespace

TEST_F(ActivityWindowTest, GoodEndRetiresThePaneAfterItsTimer)
{
    const auto manager = start(u"capture"_s, kCaptureProgress);
    EXPECT_EQ(m_window.paneCount(), 1);
    EXPECT_EQ(m_host.dockCount, 1);
    EXPECT_EQ(m_window.dimEventThreshold(), ActivityWindowController::kBusyDimThreshold);
    stop(manager);
    QTimer* retirement = paneOf(manager)->selfRetirementTimer();
    ASSERT_NE(retirement, nullptr);
    EXPECT_EQ(retirement->interval(), 3500);
    EXPECT_EQ(m_window.paneCount(), 1); // still there until the timer fires
    retirement->setInterval(0);
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_window.paneCount() == 0; }));
    EXPECT_EQ(m_host.dockCount, 0);
    EXPECT_TRUE(m_window.idlePaneShown());
    EXPECT_EQ(m_window.dimEventThreshold(), 1u);
}

TEST_F(ActivityWindowTest, FailureWithAnAlertStaysAndKeepsTheWindowFromDimming)
{
    // Minimized by the user while the command ran: the failure brings the window back.
    m_window.window()->show();
    m_window.window()->setWindowState(Qt::WindowMinimized);
    ASSERT_TRUE(m_window.window()->isMinimized());
    const auto manager = start(u"verify"_s);
    auto failure = std::make_shared<KSException>(
        KSException::exceptionWithName(u"Data"_s, u"index damaged"_s));
    failure->setPOSIXErr(13);
    stop(manager, failure);
    CommandUmbrellaViewController* pane = paneOf(manager);
    ASSERT_TRUE(pane->showingAlert());
    EXPECT_FALSE(m_window.window()->isMinimized());
    EXPECT_EQ(pane->selfRetirementTimer(), nullptr);
    EXPECT_EQ(m_window.orderedViewControllers(), (QList<CommandUmbrellaViewController*>{pane}));
    EXPECT_EQ(m_window.dimEventThreshold(), FadingWindowController::kNeverDim);
    for (int tick = 0; tick < 50; ++tick) {
        m_window.dimWindow();
    }
    EXPECT_FALSE(m_window.isDim());
    // Toggling details while the failure form shows changes nothing.
    QWidget* failureView = pane->view();
    pane->toggleDetails();
    EXPECT_EQ(pane->view(), failureView);
    EXPECT_FALSE(pane->failureViewController()->failureReasonField()->text().isEmpty());
    QWidget* window = m_window.window();
    window->resize(440, 60);
    window->show();
    // The window grows by itself to hold its pane.
    EXPECT_TRUE(QTest::qWaitFor([this] {
        const QScrollArea* scroll = m_window.contentScrollView();
        return scroll->widget()->height() <= scroll->viewport()->height();
    }));
    EXPECT_TRUE(window->grab().save(
        QDir(QStringLiteral(KESTROM_IMAGE_DIR)).filePath(u"activity-verify-failure.png"_s)));
    pane->failureViewController()->okButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_window.paneCount() == 0; }));
}

TEST_F(ActivityWindowTest, DetailsToggleInPlaceAndASecondRunOfAnActionTakesTheFirstRunsPlace)
{
    const auto first = start(u"compact"_s);
    const auto second = start(u"capture"_s, kCaptureProgress);
    CommandUmbrellaViewController* pane = paneOf(second);
    pane->setActionID(u"A-1"_s);
    pane->toggleDetails();
    EXPECT_TRUE(pane->showingDetails());
    EXPECT_TRUE(m_host.memory.value(u"actionDetailsA-1"_s).toBool());
    // The detailed form took the collapsed form's place: second of two.
    EXPECT_EQ(m_window.orderedViewControllers(),
              (QList<CommandUmbrellaViewController*>{paneOf(first), pane}));
    pane->toggleDetails();
    EXPECT_FALSE(pane->showingDetails());
    EXPECT_FALSE(m_host.memory.value(u"actionDetailsA-1"_s).toBool());

    const auto rerun = start(u"capture"_s);
    paneOf(rerun)->setActionID(u"A-1"_s);
    EXPECT_EQ(m_window.orderedViewControllers(),
              (QList<CommandUmbrellaViewController*>{paneOf(first), paneOf(rerun)}));
    EXPECT_EQ(m_host.dockCount, 2);
}

// Stop and Reschedule asks when to run the pane's action again; the answer goes to the
// scheduler in seconds since 2001-01-01, and a scheduler that cannot be reached is said so.
TEST_F(ActivityWindowTest, ReschedulingReachesTheSchedulerOrSaysItCouldNot)
{
    CommandUmbrellaViewController* pane = paneOf(start(u"capture"_s));
    pane->stopCommandAndReschedule(nullptr);
    EXPECT_TRUE(m_host.sheets.isEmpty()) << "a command of no action has nothing to reschedule";
    pane->setActionID(u"A-7"_s);
    pane->stopCommandAndReschedule(nullptr);
    EXPECT_EQ(m_host.sheets, QStringList{u"A-7"_s});

    pane->runAction(u"A-7"_s, QDateTime(QDate(2001, 1, 2), QTime(0, 0), Qt::UTC));
    pane->runAction(u"A-7"_s, QDateTime());
    ASSERT_EQ(m_host.scheduled.size(), 2);
    EXPECT_EQ(m_host.scheduled[0], (std::pair{u"A-7"_s, 86400.0}));
    EXPECT_EQ(m_host.scheduled[1], (std::pair{u"A-7"_s, 0.0}));

    QStringList alerts;
    CommandUmbrellaViewController::setAlertPresenter(
        [&alerts](const QString& message, const QString& informative) {
            alerts << message << informative;
        });
    m_host.schedulerReachable = false;
    try {
        pane->runAction(u"A-7"_s, QDateTime());
        ADD_FAILURE() << "no exception";
    } catch (const KSException& failure) {
        EXPECT_EQ(failure.name(), u"Process"_s);
        EXPECT_EQ(failure.reason(), u"Action not scheduled"_s);
        EXPECT_EQ(failure.details().value(u"uuid"_s), QVariant(u"A-7"_s));
    }
    CommandUmbrellaViewController::setAlertPresenter({});
    EXPECT_EQ(alerts, (QStringList{u"Action not scheduled"_s,
                                   u"The scheduler service could not be contacted. Open or reopen "
                                   "the Kestrom application to install the scheduler."_s}));
}

TEST_F(ActivityWindowTest, IdlePaneFollowsPanesAndTheNextActionTime)
{
    struct Case
    {
        int panes;
        std::optional<qint64> nextInSeconds;
        bool shown;
    };
    const Case cases[] = {{0, std::nullopt, true}, {0, 660, true}, {1, 660, false},
                          {1, 600, true},          {1, -30, true}, {1, std::nullopt, false}};
    std::shared_ptr<ActivityProgressManager> running;
    for (const Case& c : cases) {
        if (c.panes == 1 && !running) {
            running = start(u"merge"_s);
        }
        m_host.nextAction = QVariantMap{{u"title"_s, u"Nightly"_s}};
        if (c.nextInSeconds) {
            m_host.nextAction->insert(u"time"_s, m_now.addSecs(*c.nextInSeconds));
        }
        m_window.scheduleDidChange();
        EXPECT_EQ(m_window.idlePaneShown(), c.shown)
            << c.panes << " " << c.nextInSeconds.value_or(0);
    }
    EXPECT_EQ(m_window.nextActionTitle(), u"Next Action: Nightly"_s);
    m_window.schedulerDidDisconnect();
    EXPECT_EQ(m_window.idleViewController()->titleField()->text(), u"Idle"_s);
    m_host.nextAction.reset();
    m_window.scheduleDidChange();
    EXPECT_EQ(m_window.nextActionTitle(), u"Next Action: (null)"_s);
}

// The gallery renders these forms for review; here only what they hold is checked.
TEST_F(ActivityWindowTest, FivePanesTheirCountersAndTheUpdateNotice)
{
    m_host.version = u"2.3.0"_s;
    m_window.updateAvailableChanged();
    EXPECT_TRUE(m_window.updateNoticeShown());
    const auto capture = start(u"capture"_s, kCaptureProgress);
    const auto detailed = start(u"capture"_s, kCaptureProgress);
    paneOf(detailed)->setShowingDetails(true);
    const std::vector others{start(u"compact"_s), start(u"verify"_s), start(u"merge"_s)};
    EXPECT_EQ(m_window.paneCount(), 5);
    EXPECT_EQ(
        static_cast<FileCommandProgressViewController*>(paneOf(detailed)->detailedViewController())
            ->itemCountField()
            ->text(),
        u"1,234 items"_s);
}

TEST(FadingWindowTest, IntervalAndOpacityPreferencesAreClamped)
{
    const std::pair<double, double> intervals[] = {{0, 20}, {2, 4}, {30, 30}, {1000, 240}};
    for (const auto& [preference, seconds] : intervals) {
        EXPECT_EQ(FadingWindowController::dimEventIntervalFor(preference), seconds) << preference;
    }
    const std::pair<double, std::optional<double>> opacities[] = {
        {1.0, std::nullopt}, {0, 0.5}, {0.1, 0.2}, {0.7, 0.7}, {1.5, 1.0}};
    for (const auto& [preference, opacity] : opacities) {
        EXPECT_EQ(FadingWindowAnimation::fadedOpacity(preference), opacity) << preference;
    }
}

TEST(FadingWindowTest, DimsAtTheThresholdAndComesBackWhenTheMouseIsInside)
{
    FadingWindowController controller;
    QWidget window;
    auto* scroll = new QScrollArea(&window);
    scroll->setWidget(new QWidget);
    controller.setWindow(&window, scroll);
    window.setGeometry(100, 100, 200, 100);
    QPoint mouse(10, 10);
    controller.setCursorPosition([&mouse] { return mouse; });
    controller.dimTime();
    EXPECT_TRUE(controller.isDim()); // base threshold 1
    ASSERT_NE(controller.alphaAnimation(), nullptr);
    EXPECT_EQ(controller.alphaAnimation()->endAlpha(), 0.5);
    mouse = window.frameGeometry().center();
    controller.dimTime();
    EXPECT_FALSE(controller.isDim());
    EXPECT_EQ(controller.dimEventCount(), 0u);
    EXPECT_EQ(controller.alphaAnimation()->endAlpha(), 1.0);
    EXPECT_TRUE(controller.dimTimer()->isActive());
}

TEST(AutoResizingWindowTest, GrowsDownToTheAvailableAreaAndNeverShrinks)
{
    WTAutoResizingWindowController controller;
    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    auto* document = new QWidget;
    auto* content = new QWidget(document);
    auto* documentLayout = new QVBoxLayout(document);
    documentLayout->setContentsMargins(0, 0, 0, 0);
    documentLayout->addWidget(content);
    scroll->setWidget(document);
    layout->addWidget(scroll);
    content->setFixedHeight(100);
    window.setGeometry(50, 50, 300, 100);
    window.show();
    controller.setAvailableArea([](const QWidget*) { return QRect(0, 0, 800, 400); });
    controller.setWindow(&window, scroll);
    content->setFixedHeight(250);
    ASSERT_TRUE(QTest::qWaitFor([&window] { return window.height() == 250; }));
    EXPECT_EQ(window.y(), 50); // the top edge stays
    content->setFixedHeight(120);
    QTest::qWait(50);
    EXPECT_EQ(window.height(), 250);
    // A user who shrinks the window below its document stops the growth; resizing it to fit
    // exactly starts it again.
    window.resize(300, 150);
    controller.windowDidEndLiveResize();
    EXPECT_FALSE(controller.windowSizeSticky());
    content->setFixedHeight(260);
    QTest::qWait(50);
    EXPECT_EQ(window.height(), 150);
    window.resize(300, 260);
    ASSERT_TRUE(QTest::qWaitFor([scroll] { return scroll->viewport()->height() == 260; }));
    controller.windowDidEndLiveResize();
    EXPECT_TRUE(controller.windowSizeSticky());
    content->setFixedHeight(280);
    ASSERT_TRUE(QTest::qWaitFor([&window] { return window.height() == 280; }));

    // More than the area: clamped with its frame (a 30-point title bar and an 8-point border)
    // inside the area, and no longer sticky.
    controller.setFrameMargins([](const QWidget*) { return QMargins(4, 30, 4, 8); });
    content->setFixedHeight(600);
    ASSERT_TRUE(QTest::qWaitFor([&window] { return window.height() == 362; })) << window.height();
    EXPECT_EQ(window.y(), 30) << "the title bar left the screen";
    EXPECT_FALSE(controller.windowSizeSticky());
}

TEST(AutoResizingWindowTest, ADocumentGrowingByLessThanAPointKeepsTheFrame)
{
    const QRectF frame(50, 50, 300, 100);
    const QRectF area(0, 0, 800, 400);
    EXPECT_FALSE(WTAutoResizingWindowController::grownFrame(frame, 0.5, area));
    EXPECT_FALSE(WTAutoResizingWindowController::grownFrame(frame, 0.999, area));
    const auto grown = WTAutoResizingWindowController::grownFrame(frame, 1.0, area);
    ASSERT_TRUE(grown);
    EXPECT_EQ(grown->frame, QRectF(50, 50, 300, 101));
    EXPECT_TRUE(grown->sticky);
}

TEST(WindowPlacementTest, AWindowComesBackWhereItWasLeftWhileAScreenHoldsThatPlace)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(u"state/Test.window"_s);
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    const QPoint left = screen.topLeft() + QPoint(123, 45);
    {
        QWidget window;
        new WindowPlacement(&window, path);
        window.resize(200, 100);
        window.move(left);
        window.show();
        window.hide(); // hiding keeps the place
    }
    {
        QWidget window;
        window.resize(150, 100);
        auto* placement = new WindowPlacement(&window, path);
        EXPECT_EQ(placement->savedPosition(), left);
        EXPECT_EQ(window.pos(), left);
        EXPECT_EQ(window.width(), 200) << "the width the user left";

        // Moved and widened while shown: kept without a hide, so that a quit by a signal or a
        // log-out that never hides the window finds the place kept.
        window.show();
        window.move(left + QPoint(10, 20));
        window.resize(260, 100);
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                placement->waitForWrites();
                const auto kept = placement->saved();
                return kept && kept->position == left + QPoint(10, 20) && kept->width == 260;
            },
            10000));
    }

    // A place no screen holds any more, and a file that holds no place, are not applied.
    const QPoint nowhere = screen.bottomRight() + QPoint(5000, 5000);
    struct Case
    {
        QByteArray stored;
        std::optional<QPoint> read;
    };
    const Case cases[] = {
        {QStringLiteral(R"({"x":%1,"y":%2})").arg(nowhere.x()).arg(nowhere.y()).toUtf8(), nowhere},
        {QByteArray(R"({"x":"left","y":3})"), std::nullopt},
        {QByteArray("\xff\x00garbage", 9), std::nullopt}};
    for (const Case& c : cases) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(c.stored);
        file.close();
        QWidget window;
        window.move(screen.topLeft());
        const auto* placement = new WindowPlacement(&window, path);
        EXPECT_EQ(placement->savedPosition(), c.read) << c.stored.toStdString();
        EXPECT_EQ(window.pos(), screen.topLeft()) << c.stored.toStdString();
    }
}

// The hint under the pointer never takes it: a window that saw the pointer leave for the hint
// would close the hint and show it again, over and over.
TEST_F(ActivityWindowTest, TheDetailsHintTakesNoInputAndGoesOnlyWhenThePointerLeavesTheWindow)
{
    MonitorDefaults::standardUserDefaults().removeObjectForKey(m_window.detailsHintShownKey());
    const auto manager = start(u"capture"_s, kCaptureProgress);
    QWidget* window = m_window.window();
    ASSERT_NE(window, nullptr);
    window->show();
    QPoint cursor = window->frameGeometry().center();
    m_window.setCursorPosition([&cursor] { return cursor; });
    const auto send = [window](QEvent::Type type) {
        QEvent event(type);
        QCoreApplication::sendEvent(window, &event);
    };

    send(QEvent::Enter);
    ASSERT_TRUE(m_window.detailsHintShown());
    QWidget* hint = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->accessibleName() == u"Hint"_s && widget->isVisible()) {
            hint = widget;
        }
    }
    ASSERT_NE(hint, nullptr);
    EXPECT_TRUE(hint->windowFlags().testFlag(Qt::WindowTransparentForInput));
    EXPECT_TRUE(hint->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(hint->testAttribute(Qt::WA_TransparentForMouseEvents));
    EXPECT_EQ(hint->focusPolicy(), Qt::NoFocus);

    // A leave with the pointer still over the window is the hint's doing, not the user's.
    send(QEvent::Leave);
    EXPECT_TRUE(m_window.detailsHintShown());
    cursor = window->frameGeometry().bottomRight() + QPoint(40, 40);
    send(QEvent::Leave);
    EXPECT_FALSE(m_window.detailsHintShown());

    // Once a pane was toggled the hint is not shown again.
    m_window.didToggleDetails();
    send(QEvent::Enter);
    EXPECT_FALSE(m_window.detailsHintShown());
    MonitorDefaults::standardUserDefaults().removeObjectForKey(m_window.detailsHintShownKey());
    stop(manager);
}
