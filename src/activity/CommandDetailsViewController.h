#pragma once

#include "activity/CommandProgressViewController.h"
#include "activity/ProgressDescriptionField.h"

#include <QProgressBar>
#include <memory>

class AlertInfo;

// The detailed form of a command pane: the collapsed form's fields plus the task description,
// the thermometer, the action button with the control menu and, in subclasses, the command's
// own counters. It also decides which alert, if any, the pane shows when the command fails.
// Main thread only.
class CommandDetailsViewController : public CommandProgressViewController
{
    Q_OBJECT

public:
    explicit CommandDetailsViewController(QObject* parent = nullptr);

    virtual std::unique_ptr<CommandProgressViewController> makeCollapsedViewController() const;
    // The form's own alert for a failure; none leaves the choice to the progress manager.
    virtual std::unique_ptr<AlertInfo> alertInfoForException(const Exception& exception) const;
    // None suppresses the alert: the pane retires quietly.
    virtual std::unique_ptr<AlertInfo> adjustAlert(std::unique_ptr<AlertInfo> alert,
                                                   const Exception& exception) const;

    ProgressDescriptionField* taskDescription() const { return m_taskDescription; }
    QProgressBar* thermometer() const { return m_thermometer; }
    QToolButton* actionButton() const { return m_actionButton; }
    bool thermometerIndeterminate() const { return m_thermometerInterderminate; }

    void willBeginStatus() override;
    void updateStatus(const QVariantMap& progress) override;
    void didEndStatusWithException(const Exception* exception) override;

public Q_SLOTS:
    void actionMenu();

protected:
    QWidget* loadView() override;
    // Fills the counters' place below the thermometer; the base form has none.
    virtual void loadCounters(QWidget* host);

private:
    bool m_thermometerInterderminate = false;
    // The last "value" given, kept to place the bar again when the range changes.
    double m_thermometerValue = 0;
    QPointer<QToolButton> m_actionButton;
    QPointer<ProgressDescriptionField> m_taskDescription;
    QPointer<QProgressBar> m_thermometer;
};
