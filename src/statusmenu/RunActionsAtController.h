#pragma once

#include <QDateTime>
#include <QDialog>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

class QAbstractButton;
class RunActionsControllerDelegate;

namespace Ui {
class RunActionAt;
}

// The "Run the action at … / in …" sheet: the user picks when the chosen actions run next,
// either at a date or after a delay, and the delegate sends each action its time. The sheet
// keeps the mode, delay and unit between runs. Main thread only.
class RunActionsAtController : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;

    // The units of the delay, as tagged on the unit menu's items; an unknown tag is minutes.
    enum ScaleTag
    {
        kMinutesTag = 1,
        kHoursTag = 2,
        kDaysTag = 3,
        kWeeksTag = 4,
        kMonthsTag = 5
    };
    static constexpr int kMinimumDelay = 1;
    static constexpr int kMaximumDelay = 9999;

    // An empty clock is the wall clock.
    explicit RunActionsAtController(Clock clock, QObject* parent = nullptr);
    ~RunActionsAtController() override;

    // Not owned: whoever sets a delegate clears it before the delegate goes away.
    void setDelegate(RunActionsControllerDelegate* delegate) { m_delegate = delegate; }
    RunActionsControllerDelegate* delegate() const { return m_delegate; }

    // Attached to the delegate's window it returns at once; without one it runs as a modal
    // window and returns when that is closed.
    void runSheetWithDefaultDate(std::optional<QDateTime> date, QStringList actions);
    // The radio button the user chose decides which of the fields can be edited.
    void toggleAtOrIn(QAbstractButton* sender);
    void runAt();
    void cancelRunAt();

    // The sheet, made on first use; the window it is attached to may take it down with it.
    QDialog* window();
    QStringList actions() const { return m_actions; }

private:
    void loadWindow();
    void attachToDelegateWindow(QWidget* parent);
    // The delay the field asks for; out of range reads as the minimum and the field says so.
    int delayFromField();
    QDateTime delayedDate(const QDateTime& now, int delay) const;
    void sendActions(const QDateTime& date);

    Clock m_clock;
    RunActionsControllerDelegate* m_delegate = nullptr;
    QStringList m_actions;
    QPointer<QDialog> m_window;
    std::unique_ptr<Ui::RunActionAt> m_form;
};
