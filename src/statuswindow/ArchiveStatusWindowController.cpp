#include "statuswindow/ArchiveStatusWindowController.h"

#include "activity/WindowPlacement.h"
#include "foundation/MainQueue.h"
#include "messaging/KSConnection.h"
#include "messaging/KSSwitchboardConnection.h"
#include "platform/SleepWatcher.h"
#include "preferences/MonitorDefaults.h"
#include "status/RepositoryStatus.h"
#include "statuswindow/ArchiveStatusViewController.h"
#include "statuswindow/StatusWindowHost.h"
#include "ui_StatusWindow.h"

#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <stdexcept>

namespace {

ArchiveStatusWindowController* s_shared = nullptr;

ArchiveStatusWindowController::Services checked(ArchiveStatusWindowController::Services services)
{
    if (!services.host || !services.defaults || !services.impermanentValues || !services.wake ||
        !services.clock || services.statusFolder.isEmpty()) {
        throw std::invalid_argument("the archive status window needs every one of its services");
    }
    return services;
}

} // namespace

ArchiveStatusWindowController::ArchiveStatusWindowController(Services services, QObject* parent)
    : MonitorWindowController(parent)
    , m_services(checked(std::move(services)))
{
    s_shared = this;
    m_window = new QWidget(nullptr, Qt::Window);
    Ui::StatusWindow form;
    form.setupUi(m_window);
    m_window->setAttribute(Qt::WA_QuitOnClose, false);
    m_placement = new WindowPlacement(m_window, WindowPlacement::defaultPath(kPlacementName));
    m_stackView = form.stackView;
    setWindow(m_window, form.scrollView);

    m_refreshTimer = new QTimer(this);
    m_refreshTimer->setSingleShot(true);
    connect(m_refreshTimer, &QTimer::timeout, this,
            &ArchiveStatusWindowController::statusRefreshTime);
    setRefreshDate(m_services.clock().addSecs(kRefreshSeconds));
    observeStatusNotices();
    m_services.wake->setWakeHandler([self = QPointer<ArchiveStatusWindowController>(this)] {
        if (self) {
            self->statusChangedNotification();
        }
    });
    reload();
}

ArchiveStatusWindowController::~ArchiveStatusWindowController()
{
    KSConnection::switchboardConnection()->removeObserver(kStatusObserver);
    m_services.wake->setWakeHandler({});
    if (s_shared == this) {
        s_shared = nullptr;
    }
    m_statusControllers.clear();
    if (m_window->isVisible()) {
        m_placement->save();
    }
    delete m_window;
}

ArchiveStatusWindowController* ArchiveStatusWindowController::sharedStatusWindowController()
{
    return s_shared;
}

void ArchiveStatusWindowController::observeStatusNotices()
{
    KSConnection::switchboardConnection()->addObserver(
        kStatusObserver, RepositoryStatus::kDidChangeNotification,
        RepositoryStatus::kNotificationSource,
        [self = QPointer<ArchiveStatusWindowController>(this)](const QString&, const QVariantMap&) {
            MainQueue::dispatchMainAsync([self] {
                if (self) {
                    self->statusChangedNotification();
                }
            });
        });
}

void ArchiveStatusWindowController::statusChangedNotification()
{
    reload();
}

void ArchiveStatusWindowController::reload()
{
    if (m_scanRunning) {
        m_reloadAgain = true;
        return;
    }
    m_scanRunning = true;
    const QDateTime cutoff = StatusMirrorScan::cutoffDate(
        m_services.clock(), m_services.defaults->monitorStatusRetirementDays());
    m_services.host->runInBackground([self = QPointer<ArchiveStatusWindowController>(this),
                                      folder = m_services.statusFolder, cutoff] {
        QList<StatusMirrorScan::Entry> entries = StatusMirrorScan::collect(folder, cutoff);
        MainQueue::dispatchMainAsync([self, entries = std::move(entries)]() mutable {
            if (self) {
                self->applyScan(std::move(entries));
            }
        });
    });
}

ArchiveStatusViewController* ArchiveStatusWindowController::makeStatusController()
{
    auto* controller = new ArchiveStatusViewController(
        {m_services.host, m_services.defaults, m_services.impermanentValues});
    controller->setWindowController(this);
    connect(controller, &ArchiveStatusViewController::viewChanged, this,
            &WTAutoResizingWindowController::documentSizeChanged);
    return controller;
}

void ArchiveStatusWindowController::applyScan(QList<StatusMirrorScan::Entry> entries)
{
    m_scanRunning = false;
    std::vector<std::unique_ptr<ArchiveStatusViewController>> rows;
    rows.reserve(size_t(entries.size()));
    for (const StatusMirrorScan::Entry& entry : entries) {
        const QString uuid = entry.uuid();
        const auto reused = std::find_if(
            m_statusControllers.begin(), m_statusControllers.end(),
            [&uuid](const auto& controller) { return controller && controller->uuid() == uuid; });
        if (reused != m_statusControllers.end()) {
            rows.push_back(std::move(*reused));
            rows.back()->setStatus(entry);
            continue;
        }
        rows.emplace_back(makeStatusController());
        rows.back()->setStatus(entry);
        rows.back()->restoreDefaultView();
    }
    // Rows of statuses that went are deleted with their views.
    m_statusControllers = std::move(rows);
    m_hasStatus = !m_statusControllers.empty();
    restack();
    statusesDidChange();
    if (!hasStatus()) {
        m_window->hide();
    }
    const QDateTime now = m_services.clock();
    setRefreshDate(now.addSecs(kRefreshSeconds));
    if (std::exchange(m_refreshTick, false)) {
        // So that "today" and "yesterday" roll over: ten seconds after midnight.
        const QDateTime local = now.toLocalTime();
        const QDateTime startOfToday = local.date().startOfDay();
        if (local.secsTo(local.date().addDays(1).startOfDay()) <= kRefreshSeconds) {
            setRefreshDate(startOfToday.addSecs(86410));
        }
    }
    Q_EMIT reloaded();
    if (std::exchange(m_reloadAgain, false)) {
        reload();
    }
}

void ArchiveStatusWindowController::statusesDidChange()
{
    m_warnings = std::any_of(m_statusControllers.cbegin(), m_statusControllers.cend(),
                             [](const auto& row) { return row->warning(); });
    m_criticals = std::any_of(m_statusControllers.cbegin(), m_statusControllers.cend(),
                              [](const auto& row) { return row->critical(); });
    m_services.host->showStatusItemStates(m_warnings, kWarningStatusItemState);
    m_services.host->showStatusItemStates(m_criticals, kCriticalStatusItemState);
}

void ArchiveStatusWindowController::restack()
{
    int index = 0;
    for (const auto& row : m_statusControllers) {
        QWidget* view = row->view();
        QLayoutItem* there = m_stackView->itemAt(index);
        if (!there || there->widget() != view) {
            m_stackView->removeWidget(view);
            m_stackView->insertWidget(index, view);
            view->show();
        }
        ++index;
    }
    documentSizeChanged();
}

void ArchiveStatusWindowController::statusRefreshTime()
{
    m_refreshTick = true;
    reload();
}

void ArchiveStatusWindowController::setRefreshDate(const QDateTime& date)
{
    m_refreshDate = date;
    const qint64 wait = std::max<qint64>(0, m_services.clock().msecsTo(date));
    m_refreshTimer->start(std::chrono::milliseconds(wait));
}

void ArchiveStatusWindowController::showStatusWindowInFront(bool front)
{
    orderFront(front);
    undimWindow();
}

bool ArchiveStatusWindowController::isVisible() const
{
    return m_window->isVisible();
}

quint64 ArchiveStatusWindowController::dimEventThreshold()
{
    if (m_criticals) {
        return 24;
    }
    return m_warnings ? 6 : 2;
}

void ArchiveStatusWindowController::forgetStatus(const StatusMirrorScan::Entry& entry)
{
    m_services.host->runInBackground([self = QPointer<ArchiveStatusWindowController>(this), entry] {
        if (StatusMirrorScan::retire(entry)) {
            KSConnection::switchboardConnection()->postNotification(
                RepositoryStatus::kDidChangeNotification, RepositoryStatus::kNotificationSource,
                {});
        }
        // This window reloads even when the hub is away.
        MainQueue::dispatchMainAsync([self] {
            if (self) {
                self->reload();
            }
        });
    });
}
