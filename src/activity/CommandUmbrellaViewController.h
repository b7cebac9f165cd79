#pragma once

#include "logging/LogLineIdentifier.h"
#include "tracking/ActivityProgressManager.h"
#include "tracking/ProgressPane.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>

class ActivityWindowHost;
class CommandDetailsViewController;
class CommandFailureViewController;
class CommandProgressViewController;
class QAction;
class QMenu;

// One command's pane in the activity window: it owns the collapsed, detailed and failure forms,
// switches between them, retires the pane 3.5 s after a good end, and carries out the pane's
// commands (stop, pause, resume, reschedule, ignore hold). Its progress manager owns it; it
// refers back weakly. Main thread only.
class CommandUmbrellaViewController : public QObject, public ProgressPane
{
    Q_OBJECT
    Q_PROPERTY(bool showingDetails READ showingDetails WRITE setShowingDetails NOTIFY
                   showingDetailsChanged)

public:
    static inline const QString kMonitorViewControllerResigning =
        QStringLiteral("MonitorViewControllerResigning");
    static inline const QString kActionDetailsKey = QStringLiteral("actionDetails");
    static constexpr int kRetirementMs = 3500;
    // Seconds a pause lasts for the menu tags 201 to 206; any other tag pauses this long.
    static constexpr double kDefaultPauseSeconds = 14400;
    static constexpr double kUntaggedPauseSeconds = 300;

    using AlertPresenter = std::function<void(const QString& message, const QString& informative)>;
    using LogViewerOpener = std::function<void(const LogLine& line)>;

    // None for a command that gets no pane.
    static std::shared_ptr<CommandUmbrellaViewController>
    umbrellaControllerForCommand(const QString& commandName, ActivityWindowHost* host = nullptr);
    static std::shared_ptr<CommandUmbrellaViewController>
    umbrellaControllerForKind(ProgressPane::Kind kind, ActivityWindowHost* host = nullptr);

    CommandUmbrellaViewController(std::unique_ptr<CommandDetailsViewController> details,
                                  ActivityWindowHost* host = nullptr);
    ~CommandUmbrellaViewController() override;

    // How the reschedule failure is shown; by default a modal alert.
    static void setAlertPresenter(AlertPresenter presenter);
    // Where the log goes when the client does not take it; by default the monitor's own viewer.
    static void setLogViewerOpener(LogViewerOpener opener);
    static double pauseSecondsForTag(const QVariant& tag);

    ActivityWindowHost& host() const { return *m_host; }
    ActivityProgressManager* progressManager() const { return m_progressManager; }
    const QString& actionID() const { return m_actionID; }
    QWidget* view();
    CommandProgressViewController* collapsedViewController() const { return m_collapsed.get(); }
    CommandDetailsViewController* detailedViewController() const { return m_detailed.get(); }
    CommandFailureViewController* failureViewController() const { return m_failure.get(); }
    QTimer* selfRetirementTimer() const { return m_selfRetirementTimer; }

    // The command's live status; all false without a manager or when the command cannot say.
    ActivityProgressManager::LiveStatus safeCommandStatus() const;
    bool hasCommandStatus() const { return !m_progressManager.isNull(); }

    bool showingDetails();
    void setShowingDetails(bool showing);
    bool showingAlert();
    // The control menu of the form shown now; none while the failure shows.
    QMenu* controlMenu();
    bool detailsDefaultState();
    void saveDetailsDefaultState(bool showing);

    void willAddToWindow();
    void resignAfter(int milliseconds);

    // ProgressPane
    void setProgressManager(ActivityProgressManager* manager) override;
    void setActionID(const QString& actionID) override;
    void didBeginStatus() override;
    void updateStatus(const QVariantMap& progress) override;
    void didEndStatusWithException(const Exception* exception) override;
    void holdManagerUntilResigned(std::shared_ptr<ActivityProgressManager> manager) override;
    void resign() override;

    // Performs a pane action by name, as the forms and menus ask; false for an unknown one.
    bool tryToPerform(const char* action, QObject* sender);
    bool validateUserInterfaceItem(const QAction* item) const;
    bool validateAction(const QByteArray& action) const;
    // Tells the scheduler to run the action at the date (none: run it now, as scheduled).
    // Raises a KSException "Process" when the scheduler cannot be reached.
    void runAction(const QString& actionID, const QDateTime& date);
    void viewLogLine(const QVariant& line);

public Q_SLOTS:
    void toggleDetails(QObject* sender = nullptr);
    void stopCommand(QObject* sender = nullptr);
    void stopCommandAndReschedule(QObject* sender = nullptr);
    void ignoreHoldAndRun(QObject* sender = nullptr);
    void pauseCommand(QObject* sender = nullptr);
    void resumeCommand(QObject* sender = nullptr);

Q_SIGNALS:
    void viewChanged(QWidget* oldView, QWidget* newView);
    void showingDetailsChanged();
    void detailsToggled();
    void actionIDChanged();
    void windowInFrontWanted();

private:
    void setView(QWidget* view);
    void performOnCommand(const QString& member, const QVariantList& arguments = {});

    ActivityWindowHost* m_host;
    QPointer<QTimer> m_selfRetirementTimer;
    QPointer<QWidget> m_view;
    QPointer<ActivityProgressManager> m_progressManager;
    std::shared_ptr<ActivityProgressManager> m_heldManager;
    QString m_actionID;
    std::unique_ptr<CommandProgressViewController> m_collapsed;
    std::unique_ptr<CommandDetailsViewController> m_detailed;
    std::unique_ptr<CommandFailureViewController> m_failure;
};
