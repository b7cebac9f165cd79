#pragma once

#include "platform/DockBadge.h"

#include <QString>

// The launcher badge as docks and task managers read it: the LauncherEntry "Update" signal
// naming the application's desktop entry, with "count" and "count-visible".
class UnityLauncherDockBadge final : public DockBadge
{
public:
    static inline const QString kInterface = QStringLiteral("com.canonical.Unity.LauncherEntry");
    static inline const QString kPath = QStringLiteral("/com/kestrom/monitor/LauncherEntry");

    // desktopEntry: the desktop file's name, such as "com.kestrom.monitor.desktop".
    explicit UnityLauncherDockBadge(const QString& desktopEntry);

    void setBadgeCount(quint64 count) override;

private:
    QString m_applicationUri;
};
