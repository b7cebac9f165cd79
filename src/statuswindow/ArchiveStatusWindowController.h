#pragma once

#include "activity/MonitorWindowController.h"
#include "statuswindow/StatusMirrorScan.h"

#include <QDateTime>
#include <QPointer>
#include <QTimer>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class ArchiveStatusViewController;
class ImpermanentValues;
class MonitorDefaults;
class QVBoxLayout;
class SleepWatcher;
class StatusWindowHost;
class WindowPlacement;

// The archive status window: one graded row per archive the user has, freshest status per
// archive, sorted by name. It keeps itself current from the status notices on the switchboard,
// a wake from sleep and a refresh timer that also rolls "today" over at midnight, retires
// statuses nobody wrote for weeks, and tells the application whether any archive is in warning
// or critical. Reading the mirrors runs in the background; everything else on the main thread.
class ArchiveStatusWindowController : public MonitorWindowController
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;

    struct Services
    {
        StatusWindowHost* host = nullptr;
        MonitorDefaults* defaults = nullptr;
        ImpermanentValues* impermanentValues = nullptr;
        // Tells of a wake from sleep; the window reloads then.
        SleepWatcher* wake = nullptr;
        Clock clock;
        // Where the mirrors are.
        QString statusFolder;
    };

    static constexpr qint64 kRefreshSeconds = 10800;
    static constexpr quint64 kWarningStatusItemState = 4;
    static constexpr quint64 kCriticalStatusItemState = 8;
    static inline const QString kStatusObserver = QStringLiteral("MonitorStatusWindow.repStatus");
    // Where the window was left is kept under this name in the product's state folder.
    static inline const QString kPlacementName = QStringLiteral("StatusWindow");

    // Every service must be given; throws std::invalid_argument otherwise.
    explicit ArchiveStatusWindowController(Services services, QObject* parent = nullptr);
    ~ArchiveStatusWindowController() override;

    static ArchiveStatusWindowController* sharedStatusWindowController();

    // Reads the mirrors again; reloads asked for while one runs make one more.
    void reload();
    void restack();
    void showStatusWindowInFront(bool front);
    void statusChangedNotification();
    void statusRefreshTime();
    quint64 dimEventThreshold() override;

    // Any thread: peers ask it on the messaging thread.
    bool hasStatus() const { return m_hasStatus; }
    bool warnings() const { return m_warnings; }
    bool criticals() const { return m_criticals; }
    const std::vector<std::unique_ptr<ArchiveStatusViewController>>& statusControllers() const
    {
        return m_statusControllers;
    }
    QTimer* refreshTimer() const { return m_refreshTimer; }
    // When the refresh timer fires next.
    QDateTime refreshDate() const { return m_refreshDate; }
    bool isVisible() const;

    // A row's grade changed: the warning and critical states are told again.
    void statusesDidChange();
    // Deletes the row's mirror and tells every status window.
    void forgetStatus(const StatusMirrorScan::Entry& entry);

Q_SIGNALS:
    // A reload has been shown.
    void reloaded();

private:
    void observeStatusNotices();
    void applyScan(QList<StatusMirrorScan::Entry> entries);
    void setRefreshDate(const QDateTime& date);
    ArchiveStatusViewController* makeStatusController();

    Services m_services;
    std::vector<std::unique_ptr<ArchiveStatusViewController>> m_statusControllers;
    QWidget* m_window = nullptr;
    QVBoxLayout* m_stackView = nullptr;
    WindowPlacement* m_placement = nullptr;
    QPointer<QTimer> m_refreshTimer;
    QDateTime m_refreshDate;
    std::atomic<bool> m_hasStatus = false;
    bool m_warnings = false;
    bool m_criticals = false;
    bool m_scanRunning = false;
    bool m_reloadAgain = false;
    // A tick of the refresh timer waits for its reload before it looks at midnight.
    bool m_refreshTick = false;
};
