#include "activity/ActivityWindowController.h"
#include "activity/CommandDetailsViewController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "preferences/MonitorDefaults.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/ProgressServices.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
// A pane form that writes each appearance hook to a shared log under its own name.
template <typename Form> class HookRecorder : public Form
{
public:
    HookRecorder(QString name, QStringList& log)
        : m_name(std::move(name))
        , m_log(log)
    {}

protected:
    void viewWillAppear() override { m_log.append(m_name + u" will appear"_s); }
    void viewDidAppear() override { m_log.append(m_name + u" did appear"_s); }
    void viewWillDisappear() override { m_log.append(m_name + u" will disappear"_s); }
    void viewDidDisappear() override { m_log.append(m_name + u" did disappear"_s); }

    QString m_name;
    QStringList& m_log;
};

class RecordingDetails final : public HookRecorder<CommandDetailsViewController>
{
public:
    explicit RecordingDetails(QStringList& log)
        : HookRecorder(u"detailed"_s, log)
    {}

    std::unique_ptr<CommandProgressViewController> makeCollapsedViewController() const override
    {
        return std::make_unique<HookRecorder<CommandProgressViewController>>(u"collapsed"_s, m_log);
    }
};

QStringList appeared(const QString& form)
{
    return {form + u" will appear"_s, form + u" did appear"_s};
}

QStringList disappeared(const QString& form)
{
    return {form + u" will disappear"_s, form + u" did disappear"_s};
}

// The activity window with panes whose forms record their hooks.
class ViewLifecycleTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ProgressServices::setPaneFactory([this](ProgressPane::Kind) {
            return std::make_shared<CommandUmbrellaViewController>(
                std::make_unique<RecordingDetails>(m_log));
        });
    }

    // The log since the last call.
    QStringList takeLog() { return std::exchange(m_log, {}); }

    QStringList m_log;
    ActivityWindowController m_window;
};
} // namespace

TEST_F(ViewLifecycleTest, AFormHearsItsViewComeAndGoWithThePaneAndTheWindow)
{
    m_window.showActivityWindowInFront(false);
    const auto manager = ActivityProgressManager::initWithCommand(u"capture"_s);
    auto* pane = static_cast<CommandUmbrellaViewController*>(manager->viewController().get());
    EXPECT_EQ(takeLog(), QStringList()) << "a form not yet in the window is not on screen";

    m_window.willAddListener(manager.get());
    EXPECT_EQ(takeLog(), appeared(u"collapsed"_s));

    // Expanded: the detailed form goes in before the collapsed form leaves.
    pane->setShowingDetails(true);
    EXPECT_EQ(takeLog(), appeared(u"detailed"_s) + disappeared(u"collapsed"_s));

    m_window.hideActivityWindow();
    EXPECT_EQ(takeLog(), disappeared(u"detailed"_s));
    m_window.showActivityWindowInFront(false);
    EXPECT_EQ(takeLog(), appeared(u"detailed"_s));

    pane->setShowingDetails(false);
    EXPECT_EQ(takeLog(), appeared(u"collapsed"_s) + disappeared(u"detailed"_s));

    pane->resign();
    EXPECT_EQ(takeLog(), disappeared(u"collapsed"_s));
    m_window.hideActivityWindow();
    m_window.showActivityWindowInFront(false);
    EXPECT_EQ(takeLog(), QStringList()) << "a resigned pane's forms are off screen for good";
}

TEST_F(ViewLifecycleTest, APaneAddedToAHiddenWindowAppearsWhenTheWindowShows)
{
    const auto manager = ActivityProgressManager::initWithCommand(u"merge"_s);
    MonitorDefaults& defaults = MonitorDefaults::standardUserDefaults();
    defaults.setBool(false, MonitorDefaults::kShowMonitorOnStart);
    m_window.willAddListener(manager.get());
    defaults.removeObjectForKey(MonitorDefaults::kShowMonitorOnStart);
    EXPECT_FALSE(m_window.isVisible());
    EXPECT_EQ(takeLog(), QStringList());
    m_window.showActivityWindowInFront(false);
    EXPECT_EQ(takeLog(), appeared(u"collapsed"_s));
}
