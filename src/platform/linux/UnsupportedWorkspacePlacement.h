#pragma once

#include "platform/WorkspacePlacement.h"

#include <QString>
#include <functional>

// Where the window system keeps workspaces to itself (Wayland compositors, the offscreen
// platform): nothing is asked, and the user's log says once per preference that it has no
// effect here, so a setting that does nothing is not a mystery. Main thread only.
class UnsupportedWorkspacePlacement final : public WorkspacePlacement
{
public:
    // Writes a line to the user's log; the platform library sits below the logger.
    using Report = std::function<void(const QString& message)>;

    UnsupportedWorkspacePlacement(QString platformName, Report report);

    void joinAllWorkspaces(QWindow& window) override;
    void moveToActiveWorkspace(QWindow& window) override;

private:
    void reportOnce(bool& reported, const QString& what);

    QString m_platformName;
    Report m_report;
    bool m_joinAllReported = false;
    bool m_moveToActiveReported = false;
};
