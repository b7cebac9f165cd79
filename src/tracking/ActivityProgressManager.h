#pragma once

#include "tracking/ProgressManager.h"

#include <QByteArray>
#include <chrono>
#include <functional>
#include <memory>

class ProgressPane;

// The progress manager of one command shown in the activity window: it drives the command's
// pane, keeps the command's live status for the pane's buttons and menus, fetches the archive
// the command works on, wakes the panes, announces the end and asks for user notifications.
// Owned through std::shared_ptr; it owns its pane. Main thread only.
class ActivityProgressManager : public ProgressManager
{
    Q_OBJECT

public:
    static inline const QString kMonitorWakeUpCall = QStringLiteral("MonitorWakeUpCall");
    static inline const QString kMonitorProgressDidEnd = QStringLiteral("MonitorProgressDidEnd");
    static constexpr std::chrono::milliseconds kHistoryUpdateDelay{1000};

    // The command's own view of its state, in this order; all false when it is not running.
    struct LiveStatus
    {
        bool isRunning = false;
        bool canCancel = false;
        bool isHeld = false;
        bool isPaused = false;
        bool canPause = false;
        bool canReschedule = false;

        friend bool operator==(const LiveStatus&, const LiveStatus&) = default;
    };

    // Runs the work once the delay has passed; tests run it when they choose.
    using DelayedCall =
        std::function<void(std::chrono::milliseconds delay, std::function<void()> work)>;

    // None for a command that gets no pane.
    static std::shared_ptr<ActivityProgressManager> initWithCommand(const QString& commandName);
    explicit ActivityProgressManager(std::shared_ptr<ProgressPane> viewController,
                                     QObject* parent = nullptr);
    ~ActivityProgressManager() override;

    static void fireWakeUpNotification();

    const std::shared_ptr<ProgressPane>& viewController() const { return m_viewController; }
    // The keyed archive of the reference to the archive the command works on; empty when the
    // command has none or never said.
    const QByteArray& repositoryRef() const { return m_repositoryRef; }
    // Refreshed from the command when a message has come since the last read. A failed query
    // raises and leaves the status to be refreshed at the next read.
    const LiveStatus& liveStatus();
    void setDelayedCall(DelayedCall delayedCall);

    void beginProgress() override;
    void endProgress() override;
    void endProgressWithException(const Exception& exception) override;

    void commandDidStart() override;
    void commandProgressDidUpdate(const QVariantMap& dictionary) override;
    void commandDidStopWithException(const ExceptionPtr& exception) override;

private:
    void fetchRepositoryRef();
    void discardAfterPostMortem();
    void updateHistoryLater();

    LiveStatus m_liveStatus;
    bool m_liveStatusStale = false;
    std::shared_ptr<ProgressPane> m_viewController;
    QByteArray m_repositoryRef;
    DelayedCall m_delayedCall;
};
