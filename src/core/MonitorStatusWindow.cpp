#include "core/MonitorStatusWindow.h"

#include "activity/LogViewerWindow.h"
#include "core/MonitorApplicationDelegate.h"
#include "logging/LogLineIdentifier.h"
#include "logging/Logger.h"
#include "platform/FileViewer.h"
#include "platform/SleepWatcher.h"
#include "preferences/MonitorDefaults.h"
#include "statuswindow/ArchiveStatusWindowController.h"

#include <QDateTime>
#include <stdexcept>

MonitorStatusWindow::MonitorStatusWindow(Parts parts)
    : m_parts(std::move(parts))
{
    if (!m_parts.fileViewer || !m_parts.wake || !m_parts.runner || m_parts.statusFolder.isEmpty()) {
        throw std::invalid_argument("the archive status window needs every one of its parts");
    }
}

MonitorStatusWindow::~MonitorStatusWindow() = default;

void MonitorStatusWindow::start(MonitorApplicationDelegate& delegate)
{
    m_delegate = &delegate;
    ArchiveStatusWindowController::Services services;
    services.host = this;
    services.defaults = &MonitorDefaults::standardUserDefaults();
    services.impermanentValues = &delegate.impermanentValues();
    services.wake = m_parts.wake.get();
    services.clock = &QDateTime::currentDateTime;
    services.statusFolder = m_parts.statusFolder;
    m_controller = std::make_unique<ArchiveStatusWindowController>(std::move(services));
}

bool MonitorStatusWindow::hasStatus() const
{
    return m_controller && m_controller->hasStatus();
}

bool MonitorStatusWindow::warnings() const
{
    return m_controller && m_controller->warnings();
}

bool MonitorStatusWindow::criticals() const
{
    return m_controller && m_controller->criticals();
}

void MonitorStatusWindow::showStatusWindowInFront(bool front)
{
    if (m_controller) {
        m_controller->showStatusWindowInFront(front);
    }
}

void MonitorStatusWindow::showStatusItemStates(bool show, quint64 states)
{
    m_delegate->showStatusItemStates(show, states);
}

void MonitorStatusWindow::viewLogLine(const QString& lineIdentifier)
{
    const LogLine line = LogLineIdentifier::fromString(lineIdentifier);
    if (!m_delegate->viewLogLine(line)) {
        LogViewerWindow::sharedViewer().showLogLine(line);
    }
}

void MonitorStatusWindow::openRepository(const QString& path, qint32 action)
{
    m_delegate->openRepository(path, action);
}

void MonitorStatusWindow::revealInFileViewer(const QString& path)
{
    m_parts.fileViewer->showItems({path}, [path](const QString& error) {
        const LogLine line =
            Logger::log(2, QStringLiteral("Unable to show '%1' in the file manager").arg(path));
        Logger::log(9, line, error);
    });
}

void MonitorStatusWindow::runInBackground(std::function<void()> job)
{
    m_parts.runner(std::move(job));
}
