#pragma once

#include <QDateTime>
#include <QDialog>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <functional>

class ScheduleControl;

// The "Hold All Schedules" dialog: the user picks a time before which no schedule starts and
// the scheduler is told once the dialog is confirmed. The dialog is built for each run, so
// nothing of it outlives the modal session. Main thread only.
class HoldSchedulesUntilController : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;
    using HelpOpener = std::function<void(const QUrl&)>;

    // An empty clock is the wall clock. The scheduler must outlive the controller.
    HoldSchedulesUntilController(ScheduleControl& scheduler, Clock clock,
                                 QObject* parent = nullptr);
    ~HoldSchedulesUntilController() override;

    // The process's controller, made on first use on the wall clock and owned by the
    // application. It needs the scheduler the composition root gives here first: until then,
    // and after nullptr, there is none. Another scheduler replaces the controller, so give it
    // while no hold dialog runs.
    static void setSharedScheduleControl(ScheduleControl* scheduler);
    static HoldSchedulesUntilController* sharedHoldController();

    void setHelpButtonHidden(bool hidden);
    bool isHelpButtonHidden() const { return m_helpButtonHidden; }
    // The help defaults to the desktop's browser on the product's help book.
    void setHelpOpener(HelpOpener opener);

    // Shows the dialog modally and returns when it is closed; the scheduler hears of the
    // chosen time only when the user confirmed it.
    void runHoldDialog();
    // The dialog's buttons.
    void holdSchedulesUntil();
    void cancelHoldUntil();
    void showHelp();

    // The running dialog; none outside runHoldDialog().
    QDialog* dialog() const { return m_dialog; }

private:
    QDateTime initialHoldDate(const QDateTime& now) const;

    ScheduleControl& m_scheduler;
    Clock m_clock;
    HelpOpener m_openHelp;
    bool m_helpButtonHidden = false;
    QPointer<QDialog> m_dialog;
};
