#include "core/MonitorActivityWindow.h"

#include "activity/ActivityWindowController.h"
#include "activity/CommandUmbrellaViewController.h"
#include "core/MonitorApplicationDelegate.h"
#include "foundation/RelativeDate.h"
#include "logging/Logger.h"
#include "preferences/ImpermanentValues.h"
#include "statusmenu/RunActionsAtController.h"

#include <QPointer>

MonitorActivityWindow::MonitorActivityWindow(MonitorApplicationDelegate& delegate, Factory factory)
    : ActivityWindow(factory)
    , m_delegate(delegate)
    , m_factory(std::move(factory))
    , m_controller(std::make_unique<ActivityWindowController>(this))
{
    m_controller->observeScheduleBroadcasts();
}

MonitorActivityWindow::~MonitorActivityWindow() = default;

std::shared_ptr<CommandListener>
MonitorActivityWindow::listenerForCommandIdentifier(const QString& identifier,
                                                    const QVariantMap& info)
{
    return m_controller->listenerForCommandIdentifier(identifier, info);
}

void MonitorActivityWindow::willAddListener(CommandListener* listener)
{
    m_controller->willAddListener(listener);
}

void MonitorActivityWindow::showActivityWindowInFront(bool front)
{
    m_controller->showActivityWindowInFront(front);
}

bool MonitorActivityWindow::isVisible() const
{
    return m_controller->isVisible();
}

bool MonitorActivityWindow::waitForRunningCommandsBecause(quint32 reason)
{
    return m_controller->waitForRunningCommandsBecause(reason);
}

std::shared_ptr<CommandListener>
MonitorActivityWindow::monitorRunningCommand(const QString& identifier, const QVariantMap& info)
{
    return m_factory ? m_factory(identifier, info) : nullptr;
}

void MonitorActivityWindow::setDockActivityPaneCount(int count)
{
    m_delegate.setDockActivityPaneCount(quint64(qMax(count, 0)));
}

void MonitorActivityWindow::showStatusItemStates(bool show, quint64 states)
{
    m_delegate.showStatusItemStates(show, states);
}

bool MonitorActivityWindow::viewLogLine(const LogLine& line)
{
    // Without a line, or a client that takes the request, the monitor's own viewer shows it.
    return m_delegate.viewLogLine(line);
}

void MonitorActivityWindow::openRepository(const QString& path, qint32 action)
{
    m_delegate.openRepository(path, action);
}

void MonitorActivityWindow::launchClient()
{
    m_delegate.launchClient();
}

QVariant MonitorActivityWindow::impermanentValue(const QString& key, const QString& identifier)
{
    return m_delegate.impermanentValues().impermanentValueForKey(key, identifier);
}

void MonitorActivityWindow::setImpermanentValue(const QVariant& value, const QString& key,
                                                const QString& identifier)
{
    m_delegate.impermanentValues().setImpermanentValue(value, key, identifier);
}

bool MonitorActivityWindow::updateAvailable() const
{
    return m_delegate.updateController().updateAvailable();
}

QString MonitorActivityWindow::readableVersionAvailable() const
{
    return m_delegate.updateController().readableVersionAvailable();
}

void MonitorActivityWindow::setClientAppRunning(bool running)
{
    m_delegate.updateController().setClientAppRunning(running);
}

std::optional<QVariantMap> MonitorActivityWindow::queryNextScheduledActionInfo()
{
    return m_delegate.scheduler().queryNextScheduledActionInfo();
}

bool MonitorActivityWindow::setActionToExecuteAt(const QString& actionID, double seconds)
{
    return m_delegate.scheduler().setActionToExecuteAt(actionID, seconds);
}

void MonitorActivityWindow::runRescheduleSheet(const QString& actionID)
{
    if (!m_rescheduleSheet) {
        m_rescheduleSheet = std::make_unique<RunActionsAtController>(&RelativeDate::now);
        m_rescheduleSheet->setDelegate(this);
    }
    m_rescheduleSheet->runSheetWithDefaultDate(std::nullopt, {actionID});
}

// The pane of the action tells the scheduler, and says so when it cannot be reached; a pane
// gone meanwhile leaves the scheduler to be told directly.
void MonitorActivityWindow::runAction(const QString& actionID, const QDateTime& at)
{
    const QList<CommandUmbrellaViewController*> panes = m_controller->orderedViewControllers();
    const auto pane = std::find_if(panes.cbegin(), panes.cend(), [&actionID](const auto* each) {
        return each->actionID() == actionID;
    });
    if (pane != panes.cend()) {
        (*pane)->runAction(actionID, at);
        return;
    }
    // The pane has retired meanwhile: the scheduler is told directly, and a failure logged.
    const double seconds = at.isValid() ? RelativeDate::secondsSinceReferenceDate(at) : 0.0;
    if (!setActionToExecuteAt(actionID, seconds)) {
        Logger::log(5, QStringLiteral("Action not scheduled: the scheduler service could not be "
                                      "contacted (action %1)")
                           .arg(actionID));
    }
}

QWidget* MonitorActivityWindow::window()
{
    return m_controller->window();
}

void MonitorActivityWindow::runShutdownSheet(quint32 reason)
{
    m_delegate.shutdownSheet().runShutdownSheet(
        reason, [delegate = QPointer<MonitorApplicationDelegate>(&m_delegate)](bool terminate) {
            if (delegate) {
                delegate->replyToApplicationShouldTerminate(terminate);
            }
        });
}
