#pragma once

#include "core/StatusItem.h"
#include "statusmenu/StatusMenuHost.h"

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>

class MonitorApplicationDelegate;
class MonitorStatusMenuDelegate;

// The status item in the panel (a StatusNotifierItem where the desktop has a host for one) and
// its menu, answered from the application delegate. Main thread only.
class MonitorDelegateStatusItem final : public QObject, public StatusItem, public StatusMenuHost
{
    Q_OBJECT

public:
    // Whether the desktop's style is dark now.
    using DarkStyle = std::function<bool()>;

    explicit MonitorDelegateStatusItem(DarkStyle darkStyle);
    ~MonitorDelegateStatusItem() override;

    QSystemTrayIcon* trayIcon() const { return m_trayIcon; }
    MonitorStatusMenuDelegate& menuDelegate() const { return *m_menuDelegate; }
    // What the icon shows now ("MenuBarIconHeld+StatusUnavailable"); empty without an item.
    const QString& imageName() const { return m_imageName; }

    // StatusItem
    void installStatusItem() override;
    void removeStatusItem() override;
    void loadStatusItemIcon(quint64 state) override;
    void darkModeChangeNotification() override;

    // StatusMenuHost
    QList<CommandUmbrellaViewController*> orderedViewControllers() override;
    NextAction nextAction() override;
    ArchiveStates archiveStates() override;
    bool showStatusInStatusItem() override;
    QDateTime now() override;
    bool schedulerConnected() override;
    std::optional<QDateTime> holdDate() override;
    std::optional<QVariantList> queryActionsInfo() override;
    void runActionNow(const QString& actionID) override;
    void holdSchedules(int halfHours) override;
    void resumeSchedules() override;
    void orderMonitorWindowFront() override;
    void orderStatusWindowFront() override;
    void launchClient() override;
    void quit() override;

private:
    static MonitorApplicationDelegate& delegate();

    DarkStyle m_darkStyle;
    std::unique_ptr<MonitorStatusMenuDelegate> m_menuDelegate;
    QPointer<QSystemTrayIcon> m_trayIcon;
    QString m_imageName;
};
