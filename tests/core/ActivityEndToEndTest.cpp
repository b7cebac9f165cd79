#include "activity/ActivityWindowController.h"
#include "activity/CommandFailureViewController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/LogViewerWindow.h"
#include "core/MonitorActivityWindow.h"
#include "core/MonitorApplicationDelegate.h"
#include "errors/ContextualAlertInfo.h"
#include "fakes/FakeApplicationSession.h"
#include "fakes/FakeClientApplication.h"
#include "fakes/QuietSubsystems.h"
#include "fakes/RecordingDesktopEvents.h"
#include "fakes/RecordingStatusItem.h"
#include "foundation/MainQueue.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/SwitchboardFixture.h"
#include "support/PrivateBus.h"
#include "tracking/CommandInfo.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTextBlock>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

// The monitor's core and its real activity window in this process, the real hub, and real
// command processes played by kestromctl: what a person would see, checked widget by widget.
class ActivityEndToEndTest : public SwitchboardFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        ContextualAlertInfo::setCommandNamer(&CommandInfo::humanReadableNameForCommandName);
        MonitorApplicationDelegate::initializeClass();
        MonitorApplicationDelegate::Subsystems subsystems;
        subsystems.statusItem = std::make_unique<RecordingStatusItem>();
        subsystems.desktopEvents = std::make_unique<RecordingDesktopEvents>();
        subsystems.session = std::make_unique<FakeApplicationSession>();
        m_statusItem = static_cast<RecordingStatusItem*>(subsystems.statusItem.get());
        m_session = static_cast<FakeApplicationSession*>(subsystems.session.get());
        subsystems.makeActivityWindow = [this](MonitorApplicationDelegate& delegate,
                                               ActivityWindow::Factory factory) {
            auto window = std::make_unique<MonitorActivityWindow>(delegate, std::move(factory));
            m_activity = window.get();
            return window;
        };
        fillUnsetSeams(subsystems);
        m_delegate = std::make_unique<MonitorApplicationDelegate>(std::move(subsystems));
        m_delegate->applicationDidFinishLaunching();
        ASSERT_NE(m_activity, nullptr);
        ASSERT_TRUE(QTest::qWaitFor(
            [] {
                return KSPublishedConnection::lookUpEndpoint(u"com.kestrom.monitor"_s).has_value();
            },
            30000));
    }

    void TearDown() override
    {
        m_delegate->applicationWillTerminate();
        // As the monitor does once its loop ends: queued work meets its panes still there.
        MainQueue::runPendingWork();
        m_delegate.reset();
        SwitchboardFixture::TearDown();
    }

    FakeClientApplication m_client;
    std::unique_ptr<MonitorApplicationDelegate> m_delegate;
    MonitorActivityWindow* m_activity = nullptr;
    RecordingStatusItem* m_statusItem = nullptr;
    FakeApplicationSession* m_session = nullptr;
};
} // namespace

TEST_F(ActivityEndToEndTest, AFailedVerifyShowsItsAlertAndViewLogOpensTheLogAtItsLine)
{
    auto verify =
        ctl(u"command verify --id test.verify.1 --steps 2 --interval-ms 20 --scenario fail "
            "--fail-name Data --failed-command verify --fail-reason"_s.split(u' ')
            << u"index block 7 unreadable"_s);
    // The monitor answers on this thread: wait with the event loop running.
    ActivityWindowController& window = m_activity->controller();
    CommandUmbrellaViewController* pane = nullptr;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto panes = window.orderedViewControllers();
            pane = panes.size() == 1 ? panes.first() : nullptr;
            return pane != nullptr && pane->showingAlert();
        },
        60000))
        << verify->output().toStdString();

    // The "Data" alert: its texts with the command named, View Log, and no Repair Archive as
    // the command named no archive.
    CommandFailureViewController* failure = pane->failureViewController();
    EXPECT_EQ(failure->failureReasonField()->text(), u"Verify failed"_s);
    EXPECT_EQ(failure->failureDescriptionField()->text(),
              QStringLiteral("A data integrity problem in the archive was encountered. See the "
                             "log for the details. Consider reindexing or repairing the archive."));
    ASSERT_NE(failure->viewLogButton(), nullptr);
    EXPECT_EQ(failure->repairArchiveButton(), nullptr);
    EXPECT_TRUE(window.isVisible());

    // No client can be started: the monitor shows the line itself.
    m_client.m_locateResult = ClientApplication::kApplicationNotFound;
    failure->viewLogButton()->click();
    LogViewerWindow& viewer = LogViewerWindow::sharedViewer();
    ASSERT_TRUE(QTest::qWaitFor([&viewer] { return viewer.isVisible(); }, 10000));
    const QTextBlock shown =
        viewer.textView()->document()->findBlockByNumber(viewer.currentBlock());
    EXPECT_TRUE(shown.text().contains(u"index block 7 unreadable"_s)) << shown.text().toStdString();
    EXPECT_TRUE(viewer.highlightedBlocks().contains(viewer.currentBlock()));
    EXPECT_TRUE(m_client.m_actions.isEmpty());
    viewer.close();
    ASSERT_TRUE(QTest::qWaitFor([&window] { return window.paneCount() == 0; }, 10000));

    // The update notice's button starts the main application, which checks at its start.
    window.checkForUpdate();
    ASSERT_EQ(m_client.m_actions.size(), 1);
    EXPECT_EQ(m_client.m_actions.first().first, u"launch"_s);
}

// Without the sheet that asks whether to wait, a log-out while a command runs still ends, and
// the log says what was missing.
TEST_F(ActivityEndToEndTest, ALogOutWhileACommandRunsEndsWithoutTheSheet)
{
    auto capture =
        ctl(u"command capture --id test.capture.1 --steps 10000 --interval-ms 50"_s.split(u' '));
    ActivityWindowController& window = m_activity->controller();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            const auto panes = window.orderedViewControllers();
            return panes.size() == 1 && panes.first()->safeCommandStatus().isRunning;
        },
        60000))
        << capture->output().toStdString();
    m_session->m_quitReason = ApplicationSession::kLogOut;
    const int removals = m_statusItem->m_removals;

    m_delegate->terminate();
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_statusItem->m_removals > removals; }, 30000))
        << "the held quit never ended";
    EXPECT_TRUE(m_delegate->terminateCleanly());
    EXPECT_EQ(logLinesContaining(
                  u"Waiting for commands at log-out or shut-down is not available in this build"_s),
              1);
    capture->stop();
}

// A person without a mouse, or with a screen reader: every pane is a stop of the Tab chain,
// named after its command in the window's accessible tree, and Space shows its details
// without losing the focus.
TEST_F(ActivityEndToEndTest, PanesAreNamedAfterTheirCommandsAndWorkFromTheKeyboard)
{
    auto capture =
        ctl(u"command capture --id test.keys.1 --steps 10000 --interval-ms 50"_s.split(u' '));
    auto verify =
        ctl(u"command verify --id test.keys.2 --steps 10000 --interval-ms 50"_s.split(u' '));
    ActivityWindowController& window = m_activity->controller();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return window.orderedViewControllers().size() == 2; }, 60000));
    window.window()->show();
    window.window()->activateWindow();
    const QStringList titles{u"Capture “Demo Archive”"_s, u"Verify “Demo Archive”"_s};

    // Each pane is named once its command has said what it is.
    const auto namedPanes = [&] {
        QStringList named;
        std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
            for (int i = 0; node != nullptr && i < node->childCount(); ++i) {
                QAccessibleInterface* child = node->child(i);
                if (child != nullptr && titles.contains(child->text(QAccessible::Name))) {
                    named.append(child->text(QAccessible::Name));
                }
                walk(child);
            }
        };
        walk(QAccessible::queryAccessibleInterface(window.window()));
        named.sort();
        return named;
    };
    ASSERT_TRUE(QTest::qWaitFor([&] { return namedPanes() == titles; }, 60000))
        << namedPanes().join(u", "_s).toStdString();

    QWidget* first = window.orderedViewControllers().first()->view();
    first->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(QTest::qWaitFor([&] { return first->hasFocus(); }, 10000));
    CommandUmbrellaViewController* pane = window.orderedViewControllers().first();
    const bool details = pane->showingDetails();
    QTest::keyClick(first, Qt::Key_Space);
    EXPECT_NE(pane->showingDetails(), details);
    EXPECT_TRUE(pane->view()->hasFocus()) << "the focus was lost with the pane's old form";
    QTest::keyClick(pane->view(), Qt::Key_Space);
    EXPECT_EQ(pane->showingDetails(), details);

    QWidget* other = window.orderedViewControllers().last()->view();
    for (int tab = 0; tab < 20 && !other->hasFocus(); ++tab) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    EXPECT_TRUE(other->hasFocus()) << "Tab never reached the second pane";
    capture->stop();
    verify->stop();
}
