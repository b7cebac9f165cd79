#include "core/MonitorDelegateStatusItem.h"

#include "activity/ActivityWindowController.h"
#include "core/MonitorApplicationDelegate.h"
#include "foundation/RelativeDate.h"
#include "statusmenu/MonitorStatusMenuDelegate.h"
#include "statusmenu/StatusItemImage.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <stdexcept>

MonitorDelegateStatusItem::MonitorDelegateStatusItem(DarkStyle darkStyle)
    : m_darkStyle(std::move(darkStyle))
    , m_menuDelegate(std::make_unique<MonitorStatusMenuDelegate>(*this))
{
    if (!m_darkStyle) {
        throw std::invalid_argument("the status item needs to know the desktop's style");
    }
}

MonitorDelegateStatusItem::~MonitorDelegateStatusItem()
{
    removeStatusItem();
}

MonitorApplicationDelegate& MonitorDelegateStatusItem::delegate()
{
    MonitorApplicationDelegate* shared = MonitorApplicationDelegate::sharedDelegate();
    if (shared == nullptr) {
        throw std::logic_error("the status item is used before the application delegate exists");
    }
    return *shared;
}

void MonitorDelegateStatusItem::installStatusItem()
{
    if (!delegate().showStatusItem()) {
        removeStatusItem();
        return;
    }
    if (m_trayIcon) {
        return;
    }
    m_trayIcon = new QSystemTrayIcon(this);
    m_trayIcon->setContextMenu(m_menuDelegate->menu());
    // A plain click on the icon shows what runs; the menu is for the rest.
    connect(m_trayIcon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    orderMonitorWindowFront();
                }
            });
    loadStatusItemIcon(delegate().statusImageState());
    m_trayIcon->show();
}

void MonitorDelegateStatusItem::removeStatusItem()
{
    if (m_trayIcon) {
        m_trayIcon->hide();
        delete m_trayIcon.data();
    }
    m_imageName.clear();
}

void MonitorDelegateStatusItem::loadStatusItemIcon(quint64 state)
{
    if (!m_trayIcon) {
        return;
    }
    const bool showStatus = delegate().showStatusInStatusItem();
    const bool dark = m_darkStyle();
    m_imageName = StatusItemImage::imageName(state, showStatus, dark);
    m_trayIcon->setIcon(StatusItemImage::icon(state, showStatus, dark));
    m_trayIcon->setToolTip(StatusItemImage::toolTip(state, showStatus));
}

void MonitorDelegateStatusItem::darkModeChangeNotification()
{
    loadStatusItemIcon(delegate().statusImageState());
}

QList<CommandUmbrellaViewController*> MonitorDelegateStatusItem::orderedViewControllers()
{
    ActivityWindowController* window = delegate().activityWindow().windowController();
    return window != nullptr ? window->orderedViewControllers()
                             : QList<CommandUmbrellaViewController*>();
}

StatusMenuHost::NextAction MonitorDelegateStatusItem::nextAction()
{
    ActivityWindowController* window = delegate().activityWindow().windowController();
    if (window == nullptr) {
        return {};
    }
    return {window->nextActionTitle(), window->nextActionTime()};
}

StatusMenuHost::ArchiveStates MonitorDelegateStatusItem::archiveStates()
{
    const ArchiveStatusWindow& window = delegate().statusWindow();
    return {window.hasStatus(), window.warnings(), window.criticals()};
}

bool MonitorDelegateStatusItem::showStatusInStatusItem()
{
    return delegate().showStatusInStatusItem();
}

QDateTime MonitorDelegateStatusItem::now()
{
    return RelativeDate::now();
}

bool MonitorDelegateStatusItem::schedulerConnected()
{
    return delegate().scheduler().connected();
}

std::optional<QDateTime> MonitorDelegateStatusItem::holdDate()
{
    return delegate().scheduler().holdDate();
}

std::optional<QVariantList> MonitorDelegateStatusItem::queryActionsInfo()
{
    return delegate().scheduler().queryActionsInfo();
}

void MonitorDelegateStatusItem::runActionNow(const QString& actionID)
{
    delegate().scheduler().setActionToExecuteAt(
        actionID, RelativeDate::secondsSinceReferenceDate(RelativeDate::now()));
}

void MonitorDelegateStatusItem::holdSchedules(int halfHours)
{
    delegate().scheduler().holdSchedules(halfHours);
}

void MonitorDelegateStatusItem::resumeSchedules()
{
    delegate().scheduler().resumeSchedules();
}

void MonitorDelegateStatusItem::orderMonitorWindowFront()
{
    delegate().orderMonitorWindowFront();
}

void MonitorDelegateStatusItem::orderStatusWindowFront()
{
    delegate().orderStatusWindowFront();
}

void MonitorDelegateStatusItem::launchClient()
{
    delegate().launchClient();
}

void MonitorDelegateStatusItem::quit()
{
    delegate().terminate();
}
