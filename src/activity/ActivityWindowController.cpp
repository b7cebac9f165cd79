#include "activity/ActivityWindowController.h"

#include "activity/ActivityIdleViewController.h"
#include "activity/ActivityWindowHost.h"
#include "activity/CommandUmbrellaViewController.h"
#include "activity/UpgradeViewController.h"
#include "activity/WindowPlacement.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RelativeDate.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "preferences/MonitorDefaults.h"
#include "preferences/WTUserPreferences.h"
#include "tracking/ProgressServices.h"
#include "ui_ActivityWindow.h"

#include <QDialog>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

namespace {
const QString kWakeUpCall = QStringLiteral("MonitorWakeUpCall");
const QString kUpdateStatusChanged = QStringLiteral("KestromUpdateStatusChanged");
const QString kSchedulerDidConnect = QStringLiteral("SchedulerDidConnect");
const QString kSchedulerDidDisconnect = QStringLiteral("SchedulerDidDisconnect");
const QString kActionScheduleDidChange = QStringLiteral("ActionScheduleDidChange");
const QString kLastCheckTime = QStringLiteral("SULastCheckTime");

ActivityWindowController* s_shared = nullptr;

ActivityWindowHost& quietHost()
{
    static ActivityWindowHost host;
    return host;
}

// The scheduler sends a date, or seconds since its reference date where 0 means none.
QDateTime nextActionDate(const QVariant& value)
{
    if (value.typeId() == QMetaType::QDateTime) {
        return value.toDateTime();
    }
    bool isNumber = false;
    const double seconds = value.toDouble(&isNumber);
    if (!isNumber || seconds == 0) {
        return {};
    }
    return RelativeDate::dateWithSecondsSinceReferenceDate(seconds);
}
} // namespace

ActivityWindowController::ActivityWindowController(ActivityWindowHost* host, Clock clock,
                                                   QObject* parent)
    : MonitorWindowController(parent)
    , m_host(host != nullptr ? host : &quietHost())
    , m_clock(clock ? std::move(clock) : Clock(&QDateTime::currentDateTimeUtc))
    , m_idleViewController(std::make_unique<ActivityIdleViewController>(
          NextActionDateFormatter([this] { return m_clock(); })))
    , m_upgradeViewController(std::make_unique<UpgradeViewController>())
    , m_nextActionTitle(QStringLiteral("Idle"))
{
    s_shared = this;
    m_window = new QWidget(nullptr, Qt::Window);
    Ui::ActivityWindow form;
    form.setupUi(m_window);
    m_window->setAttribute(Qt::WA_QuitOnClose, false);
    m_placement = new WindowPlacement(m_window, WindowPlacement::defaultPath(kPlacementName));
    m_topGravity = form.topGravity;
    m_centreGravity = form.centreGravity;
    m_bottomGravity = form.bottomGravity;
    setWindow(m_window, form.scrollView);
    connect(m_upgradeViewController.get(), &UpgradeViewController::checkForUpdate, this,
            &ActivityWindowController::checkForUpdate);
    connect(this, &ActivityWindowController::nextActionTimeChanged, this,
            &ActivityWindowController::nextActionDidChange);

    NotificationCenter& center = NotificationCenter::defaultCenter();
    m_notificationTokens = {
        center.addObserver(CommandUmbrellaViewController::kMonitorViewControllerResigning, nullptr,
                           [this](const QString&, const void* object, const QVariantMap&) {
                               paneControllerDidResign(object);
                           }),
        center.addObserver(
            kWakeUpCall, nullptr,
            [this](const QString&, const void*, const QVariantMap&) { undimWindow(); }),
        center.addObserver(
            kUpdateStatusChanged, nullptr,
            [this](const QString&, const void*, const QVariantMap&) { updateAvailableChanged(); }),
        center.addObserver(
            kSchedulerDidConnect, nullptr,
            [this](const QString&, const void*, const QVariantMap&) { scheduleDidChange(); }),
        center.addObserver(
            kSchedulerDidDisconnect, nullptr,
            [this](const QString&, const void*, const QVariantMap&) { schedulerDidDisconnect(); }),
    };
    // Every command's pane is made here from now on.
    ProgressServices::setPaneFactory([this](ProgressPane::Kind kind) {
        return std::shared_ptr<ProgressPane>(
            CommandUmbrellaViewController::umbrellaControllerForKind(kind, m_host));
    });
    nextActionDidChange();
}

ActivityWindowController::~ActivityWindowController()
{
    for (int token : std::as_const(m_notificationTokens)) {
        NotificationCenter::defaultCenter().removeObserver(token);
    }
    if (m_observingSchedule) {
        KSConnection::switchboardConnection()->removeObserver(kScheduleObserver);
    }
    ProgressServices::setPaneFactory({});
    if (s_shared == this) {
        s_shared = nullptr;
    }
    // Stopped commands' managers held by their panes hold those panes in turn.
    for (const auto& controllers : {m_activePaneControllers, m_resignedPaneControllers}) {
        for (const auto& controller : controllers) {
            controller->holdManagerUntilResigned(nullptr);
        }
    }
    m_activePaneControllers.clear();
    if (m_window->isVisible()) {
        m_placement->save();
    }
    delete m_window;
}

ActivityWindowController& ActivityWindowController::sharedActivityWindowController()
{
    if (s_shared == nullptr) {
        new ActivityWindowController(nullptr, {}, QCoreApplication::instance());
    }
    return *s_shared;
}

void ActivityWindowController::observeScheduleBroadcasts()
{
    m_observingSchedule = true;
    KSConnection::switchboardConnection()->addObserver(
        kScheduleObserver, kActionScheduleDidChange,
        [self = QPointer<ActivityWindowController>(this)](const QString&, const QVariantMap&) {
            MainQueue::dispatchMainAsync([self] {
                if (self) {
                    self->scheduleDidChange();
                }
            });
        });
}

std::shared_ptr<CommandListener>
ActivityWindowController::listenerForCommandIdentifier(const QString& identifier,
                                                       const QVariantMap& info)
{
    return m_host->monitorRunningCommand(identifier, info);
}

void ActivityWindowController::willAddListener(CommandListener* listener)
{
    auto* manager = qobject_cast<ActivityProgressManager*>(listener);
    if (manager == nullptr) {
        return;
    }
    auto controller =
        std::dynamic_pointer_cast<CommandUmbrellaViewController>(manager->viewController());
    if (!controller) {
        return;
    }
    // Only a known action: asking the command now would hold up its listener handshake. A
    // run whose action becomes known at its start is placed then (actionDidBecomeKnown).
    const int index =
        replacedPaneIndex(controller.get(), manager->actionUUIDReturningCachedValue(true));
    m_activePaneControllers.push_back(controller);
    controller->willAddToWindow();
    m_centreGravity->insertWidget(index, controller->view());
    controller->view()->show();
    CommandUmbrellaViewController* raw = controller.get();
    connect(raw, &CommandUmbrellaViewController::viewChanged, this,
            [this, raw](QWidget* oldView, QWidget* newView) {
                paneViewChanged(raw, oldView, newView);
            });
    connect(raw, &CommandUmbrellaViewController::detailsToggled, this,
            &MonitorWindowController::didToggleDetails);
    connect(raw, &CommandUmbrellaViewController::actionIDChanged, this,
            [this, raw] { actionDidBecomeKnown(raw); });
    connect(raw, &CommandUmbrellaViewController::windowInFrontWanted, this,
            [this] { showActivityWindowInFront(false); });
    activityCountDidChange();
    nextActionDidChange();
    if (!isVisible() && MonitorDefaults::standardUserDefaults().showMonitorOnStart()) {
        showActivityWindowInFront(false);
    }
}

int ActivityWindowController::replacedPaneIndex(const CommandUmbrellaViewController* controller,
                                                const QString& action)
{
    if (action.isEmpty()) {
        return -1;
    }
    const auto previous =
        std::find_if(m_activePaneControllers.cbegin(), m_activePaneControllers.cend(),
                     [&action, controller](const auto& active) {
                         return active.get() != controller && active->actionID() == action;
                     });
    if (previous == m_activePaneControllers.cend()) {
        return -1;
    }
    // A new run of a scheduled action takes the old run's place.
    const int index = m_centreGravity->indexOf((*previous)->view());
    (*previous)->resign();
    return index;
}

void ActivityWindowController::actionDidBecomeKnown(CommandUmbrellaViewController* controller)
{
    const int index = replacedPaneIndex(controller, controller->actionID());
    QWidget* view = controller->view();
    if (index < 0 || m_centreGravity->indexOf(view) < 0) {
        return;
    }
    m_centreGravity->removeWidget(view);
    m_centreGravity->insertWidget(std::min(index, m_centreGravity->count()), view);
}

void ActivityWindowController::paneViewChanged(CommandUmbrellaViewController* controller,
                                               QWidget* oldView, QWidget* newView)
{
    const bool active =
        std::any_of(m_activePaneControllers.cbegin(), m_activePaneControllers.cend(),
                    [controller](const auto& pane) { return pane.get() == controller; });
    const int index = oldView != nullptr ? m_centreGravity->indexOf(oldView) : -1;
    if (!active || index < 0) {
        return;
    }
    // The new form goes in first, so the window never shows a gap where the pane was.
    m_centreGravity->insertWidget(index, newView);
    newView->show();
    m_centreGravity->removeWidget(oldView);
    oldView->hide();
    oldView->setParent(nullptr);
}

void ActivityWindowController::paneControllerDidResign(const void* object)
{
    const auto found = std::find_if(m_activePaneControllers.begin(), m_activePaneControllers.end(),
                                    [object](const auto& pane) { return pane.get() == object; });
    if (found != m_activePaneControllers.end()) {
        // The controller may be the one whose button is being handled: it goes after this turn.
        disconnect(found->get(), nullptr, this, nullptr);
        if (m_resignedPaneControllers.empty()) {
            QTimer::singleShot(0, this, [this] { m_resignedPaneControllers.clear(); });
        }
        m_resignedPaneControllers.push_back(std::move(*found));
        m_activePaneControllers.erase(found);
    }
    activityCountDidChange();
    nextActionDidChange();
    if (m_activePaneControllers.empty()) {
        closeDetailsHint();
        if (MonitorDefaults::standardUserDefaults().hideMonitorWhenComplete()) {
            hideActivityWindow();
        }
    }
}

void ActivityWindowController::showActivityWindowInFront(bool force)
{
    // A failure must be seen: a minimized window comes back.
    orderFront(force);
}

void ActivityWindowController::hideActivityWindow()
{
    const QList<QDialog*> dialogs = m_window->findChildren<QDialog*>();
    const bool sheetAttached = std::any_of(dialogs.cbegin(), dialogs.cend(), [](QDialog* dialog) {
        return dialog->isVisible() && dialog->windowModality() == Qt::WindowModal;
    });
    if (!sheetAttached) {
        m_window->hide();
    }
}

bool ActivityWindowController::isVisible() const
{
    return m_window->isVisible();
}

bool ActivityWindowController::waitForRunningCommandsBecause(quint32 reason)
{
    if (runningManagers().isEmpty()) {
        return false;
    }
    MainQueue::dispatchMainAsync([self = QPointer<ActivityWindowController>(this), reason] {
        if (self) {
            self->showActivityWindowInFront(true);
            self->m_host->runShutdownSheet(reason);
        }
    });
    return true;
}

QList<ActivityProgressManager*> ActivityWindowController::runningManagers() const
{
    QList<ActivityProgressManager*> running;
    for (const auto& pane : m_activePaneControllers) {
        if (pane->safeCommandStatus().isRunning) {
            running.append(pane->progressManager());
        }
    }
    return running;
}

QList<CommandUmbrellaViewController*> ActivityWindowController::orderedViewControllers() const
{
    QList<CommandUmbrellaViewController*> ordered;
    for (int i = 0; i < m_centreGravity->count(); ++i) {
        QWidget* view = m_centreGravity->itemAt(i)->widget();
        const auto pane =
            std::find_if(m_activePaneControllers.cbegin(), m_activePaneControllers.cend(),
                         [view](const auto& active) { return active->view() == view; });
        if (pane != m_activePaneControllers.cend()) {
            ordered.append(pane->get());
        }
    }
    return ordered;
}

int ActivityWindowController::paneCount() const
{
    return m_centreGravity->count();
}

void ActivityWindowController::activityCountDidChange()
{
    const int count = paneCount();
    m_host->setDockActivityPaneCount(count);
    m_host->showStatusItemStates(count > 0, kActiveStatusItemState);
}

void ActivityWindowController::setNextActionTime(const QDateTime& time)
{
    if (time != m_nextActionTime) {
        m_nextActionTime = time;
        Q_EMIT nextActionTimeChanged();
    }
}

void ActivityWindowController::scheduleDidChange()
{
    const QVariantMap info = m_host->queryNextScheduledActionInfo().value_or(QVariantMap());
    const QVariant title = info.value(QStringLiteral("title"));
    // A missing title reads as the platform renders a missing value.
    m_nextActionTitle =
        QStringLiteral("Next Action: %1")
            .arg(title.isValid() && !title.isNull() ? title.toString() : QStringLiteral("(null)"));
    setNextActionTime(nextActionDate(info.value(QStringLiteral("time"))));
    nextActionDidChange();
}

void ActivityWindowController::schedulerDidDisconnect()
{
    m_nextActionTitle = QStringLiteral("Idle");
    setNextActionTime({});
    nextActionDidChange();
}

void ActivityWindowController::nextActionDidChange()
{
    const bool soon =
        m_nextActionTime.isValid() && m_clock().secsTo(m_nextActionTime) <= kIdlePaneLeadSeconds;
    const bool wanted = paneCount() == 0 || soon;
    m_idleViewController->setNextAction(m_nextActionTitle, m_nextActionTime);
    QWidget* idle = m_idleViewController->view();
    if (wanted && !idlePaneShown()) {
        putOnly(m_bottomGravity, idle);
    } else if (!wanted && idlePaneShown()) {
        takeOut(m_bottomGravity, idle);
    }
}

bool ActivityWindowController::idlePaneShown() const
{
    return m_bottomGravity->indexOf(m_idleViewController->view()) >= 0;
}

bool ActivityWindowController::updateNoticeShown() const
{
    return m_topGravity->indexOf(m_upgradeViewController->view()) >= 0;
}

bool ActivityWindowController::shouldShowUpdateNotice() const
{
    return m_host->updateAvailable();
}

void ActivityWindowController::updateAvailableChanged()
{
    QWidget* notice = m_upgradeViewController->view();
    if (!shouldShowUpdateNotice()) {
        if (updateNoticeShown()) {
            takeOut(m_topGravity, notice);
        }
        return;
    }
    m_newerVersion = m_host->readableVersionAvailable();
    m_upgradeViewController->setNewerVersion(m_newerVersion);
    if (!updateNoticeShown()) {
        putOnly(m_topGravity, notice);
        showActivityWindowInFront(false);
    }
}

void ActivityWindowController::checkForUpdate()
{
    m_host->setClientAppRunning(true);
    // The main application checks for updates at its start when its last check is this old.
    WTUserPreferences& preferences = WTUserPreferences::sharedPreferences();
    preferences.setValue(m_clock().addSecs(-kUpdateCheckAgeSeconds), kLastCheckTime,
                         WTUserPreferences::kClientDomain);
    preferences.synchronize();
    m_host->launchClient();
}

QWidget* ActivityWindowController::detailsHintPopoverView()
{
    return paneCount() > 0 ? m_centreGravity->itemAt(0)->widget() : nullptr;
}

quint64 ActivityWindowController::dimEventThreshold()
{
    if (m_activePaneControllers.empty()) {
        return 1;
    }
    const bool alert = std::any_of(m_activePaneControllers.cbegin(), m_activePaneControllers.cend(),
                                   [](const auto& pane) { return pane->showingAlert(); });
    return alert ? kNeverDim : kBusyDimThreshold;
}

void ActivityWindowController::putOnly(QVBoxLayout* gravity, QWidget* view)
{
    while (QLayoutItem* item = gravity->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
        }
        delete item;
    }
    gravity->addWidget(view);
    view->show();
}

void ActivityWindowController::takeOut(QVBoxLayout* gravity, QWidget* view)
{
    gravity->removeWidget(view);
    view->hide();
}
