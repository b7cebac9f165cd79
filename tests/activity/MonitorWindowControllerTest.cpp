#include "activity/ActivityWindowController.h"
#include "fakes/FakeWorkspacePlacement.h"
#include "preferences/MonitorDefaults.h"

#include <QWidget>
#include <QWindow>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
// The workspace seam is the fake while a test runs; the preferences go back to their defaults.
class WorkspacePreferencesTest : public ::testing::Test
{
protected:
    void SetUp() override { MonitorWindowController::setWorkspacePlacement(&m_placement); }

    void TearDown() override
    {
        MonitorWindowController::setWorkspacePlacement(nullptr);
        defaults().removeObjectForKey(MonitorDefaults::kMonitorSpacesJoinAll);
        defaults().removeObjectForKey(MonitorDefaults::kMonitorSpacesMoveToActive);
    }

    static MonitorDefaults& defaults() { return MonitorDefaults::standardUserDefaults(); }

    FakeWorkspacePlacement m_placement;
};
} // namespace

TEST_F(WorkspacePreferencesTest, AWindowAsksAsItShowsAndWhenBroughtForwardWhileShown)
{
    struct Case
    {
        bool joinAll;
        bool moveToActive;
        QStringList requests;
    };
    // Shown, brought forward while shown, hidden and shown again. A window on every workspace
    // is on the active one already; the window manager forgets the wish at every hide.
    const Case cases[] = {{true, true, {u"all"_s, u"all"_s}},
                          {true, false, {u"all"_s, u"all"_s}},
                          {false, true, {u"active"_s, u"active"_s, u"active"_s}},
                          {false, false, {}}};
    for (const Case& c : cases) {
        defaults().setBool(c.joinAll, MonitorDefaults::kMonitorSpacesJoinAll);
        defaults().setBool(c.moveToActive, MonitorDefaults::kMonitorSpacesMoveToActive);
        m_placement.m_requests.clear();
        m_placement.m_windows.clear();
        ActivityWindowController controller;
        EXPECT_EQ(controller.joinsAllWorkspaces(), c.joinAll);
        EXPECT_EQ(controller.movesToActiveWorkspace(), c.moveToActive);
        controller.showActivityWindowInFront(false);
        controller.showActivityWindowInFront(true);
        controller.hideActivityWindow();
        controller.showActivityWindowInFront(false);
        EXPECT_EQ(m_placement.m_requests, c.requests) << c.joinAll << " " << c.moveToActive;
        for (QWindow* window : std::as_const(m_placement.m_windows)) {
            EXPECT_EQ(window, controller.window()->windowHandle());
        }
    }
}

TEST_F(WorkspacePreferencesTest, WindowsJoinAllWorkspacesUnlessTheUserSaysOtherwise)
{
    ActivityWindowController controller;
    EXPECT_TRUE(controller.joinsAllWorkspaces());
    EXPECT_FALSE(controller.movesToActiveWorkspace());
}
