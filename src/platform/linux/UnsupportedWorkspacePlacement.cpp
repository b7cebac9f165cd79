#include "platform/linux/UnsupportedWorkspacePlacement.h"

UnsupportedWorkspacePlacement::UnsupportedWorkspacePlacement(QString platformName, Report report)
    : m_platformName(std::move(platformName))
    , m_report(std::move(report))
{}

void UnsupportedWorkspacePlacement::joinAllWorkspaces(QWindow&)
{
    reportOnce(m_joinAllReported,
               QStringLiteral("Showing the monitor's windows on all workspaces (preference "
                              "KSMonitorSpacesJoinAll)"));
}

void UnsupportedWorkspacePlacement::moveToActiveWorkspace(QWindow&)
{
    reportOnce(m_moveToActiveReported,
               QStringLiteral("Moving the monitor's windows to the active workspace (preference "
                              "KSMonitorSpacesMoveToActive)"));
}

void UnsupportedWorkspacePlacement::reportOnce(bool& reported, const QString& what)
{
    if (reported) {
        return;
    }
    reported = true;
    m_report(QStringLiteral("%1 is not available on the \"%2\" window system: it places windows "
                            "on workspaces itself")
                 .arg(what, m_platformName));
}
