#pragma once

#include "activity/MonitorWindowController.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/CommandListenerServiceDelegate.h"

#include <QDateTime>
#include <QList>
#include <QPointer>
#include <functional>
#include <memory>
#include <vector>

class ActivityIdleViewController;
class ActivityWindowHost;
class CommandUmbrellaViewController;
class QVBoxLayout;
class UpgradeViewController;
class WindowPlacement;

// The activity window: one pane per running or just-ended command in arrival order, the update
// notice above them and the idle pane with the next scheduled action below. It makes the panes
// for the listener service, shows and hides itself by the user's preferences, fades when left
// alone (never while a failure pane shows) and grows with its panes. Main thread only.
class ActivityWindowController : public MonitorWindowController,
                                 public CommandListenerServiceDelegate
{
    Q_OBJECT
    Q_PROPERTY(QDateTime nextActionTime READ nextActionTime WRITE setNextActionTime NOTIFY
                   nextActionTimeChanged)

public:
    using Clock = std::function<QDateTime()>;
    static constexpr quint64 kActiveStatusItemState = 1;
    static constexpr qint64 kIdlePaneLeadSeconds = 600;
    static constexpr qint64 kUpdateCheckAgeSeconds = 3628800; // 42 days
    static constexpr quint64 kBusyDimThreshold = 12;
    static inline const QString kScheduleObserver = QStringLiteral("MonitorWindow.schedule");
    // Where the window was left is kept under this name in the product's state folder.
    static inline const QString kPlacementName = QStringLiteral("ActivityWindow");

    explicit ActivityWindowController(ActivityWindowHost* host = nullptr, Clock clock = {},
                                      QObject* parent = nullptr);
    ~ActivityWindowController() override;

    // The window of the process; made with the quiet host unless the application made one.
    static ActivityWindowController& sharedActivityWindowController();

    ActivityWindowHost& host() const { return *m_host; }

    // Follows "ActionScheduleDidChange" on the switchboard.
    void observeScheduleBroadcasts();

    // CommandListenerServiceDelegate
    std::shared_ptr<CommandListener> listenerForCommandIdentifier(const QString& identifier,
                                                                  const QVariantMap& info) override;
    void willAddListener(CommandListener* listener) override;

    void showActivityWindowInFront(bool force);
    void hideActivityWindow();
    bool isVisible() const;
    bool waitForRunningCommandsBecause(quint32 reason);
    QList<ActivityProgressManager*> runningManagers() const;
    QList<CommandUmbrellaViewController*> orderedViewControllers() const;
    int paneCount() const;

    const QString& nextActionTitle() const { return m_nextActionTitle; }
    QDateTime nextActionTime() const { return m_nextActionTime; }
    void setNextActionTime(const QDateTime& time);
    const QString& newerVersion() const { return m_newerVersion; }
    ActivityIdleViewController* idleViewController() const { return m_idleViewController.get(); }
    UpgradeViewController* upgradeViewController() const { return m_upgradeViewController.get(); }
    bool idlePaneShown() const;
    bool updateNoticeShown() const;
    bool shouldShowUpdateNotice() const;

    void activityCountDidChange();
    void scheduleDidChange();
    void schedulerDidDisconnect();
    void nextActionDidChange();
    void updateAvailableChanged();
    void checkForUpdate();

    QWidget* detailsHintPopoverView() override;
    quint64 dimEventThreshold() override;

Q_SIGNALS:
    void nextActionTimeChanged();

private:
    void paneControllerDidResign(const void* controller);
    // Resigns another pane of the same action; the index its view had, or -1.
    int replacedPaneIndex(const CommandUmbrellaViewController* controller, const QString& action);
    void actionDidBecomeKnown(CommandUmbrellaViewController* controller);
    void paneViewChanged(CommandUmbrellaViewController* controller, QWidget* oldView,
                         QWidget* newView);
    static void putOnly(QVBoxLayout* gravity, QWidget* view);
    static void takeOut(QVBoxLayout* gravity, QWidget* view);

    ActivityWindowHost* m_host;
    Clock m_clock;
    std::vector<std::shared_ptr<CommandUmbrellaViewController>> m_activePaneControllers;
    // Resigned panes wait here for the next turn: a queued call that held one would destroy
    // its widgets under Qt's posted-event lock if the loop ended first.
    std::vector<std::shared_ptr<CommandUmbrellaViewController>> m_resignedPaneControllers;
    QWidget* m_window = nullptr;
    WindowPlacement* m_placement = nullptr;
    QVBoxLayout* m_topGravity = nullptr;
    QVBoxLayout* m_centreGravity = nullptr;
    QVBoxLayout* m_bottomGravity = nullptr;
    std::unique_ptr<ActivityIdleViewController> m_idleViewController;
    std::unique_ptr<UpgradeViewController> m_upgradeViewController;
    QString m_nextActionTitle;
    QDateTime m_nextActionTime;
    QString m_newerVersion;
    QList<int> m_notificationTokens;
    bool m_observingSchedule = false;
};
