#pragma once

#include "activity/CommandPaneViewController.h"
#include "errors/AlertActionSet.h"

#include <QByteArray>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <memory>

class AlertInfo;

// The pane of a command that failed with an alert: which command, why, and what can be done,
// with OK, View Log and Repair Archive. It stays until the user presses one. Main thread only.
class CommandFailureViewController : public CommandPaneViewController
{
    Q_OBJECT

public:
    // The main application's open-with-action codes (not alert actions).
    static constexpr qint32 kOpenToRepair = 3;
    static constexpr qint32 kOpenToReindex = 4;

    explicit CommandFailureViewController(QObject* parent = nullptr);
    ~CommandFailureViewController() override;

    // Fills the pane; called once, right after the view is loaded.
    void setEndAlert(const AlertInfo& alert, const Exception& exception);

    const AlertActionSet& offeredActions() const { return m_offeredActions; }
    qint32 repairActionCommand() const { return m_repairActionCommand; }
    const QString& repairRepositoryPath() const { return m_repairRepositoryPath; }
    QLabel* titleField() const { return m_titleField; }
    QLabel* failureReasonField() const { return m_failureReasonField; }
    QLabel* failureDescriptionField() const { return m_failureDescriptionField; }
    QPushButton* okButton() const { return m_okButton; }
    QPushButton* viewLogButton() const { return m_viewLogButton; }
    QPushButton* repairArchiveButton() const { return m_repairArchiveButton; }

public Q_SLOTS:
    void dismiss();
    void viewLog();
    void repairArchive();

protected:
    QWidget* loadView() override;
    void viewDidLoad() override;

private:
    std::unique_ptr<Exception> m_exception;
    std::unique_ptr<AlertInfo> m_endAlert;
    AlertActionSet m_offeredActions;
    QByteArray m_repairRepositoryRef;
    QString m_repairRepositoryPath;
    qint32 m_repairActionCommand = 0;
    QPointer<QLabel> m_iconField;
    QPointer<QLabel> m_titleField;
    QPointer<QLabel> m_failureReasonField;
    QPointer<QLabel> m_failureDescriptionField;
    QPointer<QPushButton> m_okButton;
    QPointer<QPushButton> m_repairArchiveButton;
    QPointer<QPushButton> m_viewLogButton;
};
