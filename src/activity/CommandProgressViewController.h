#pragma once

#include "activity/CommandPaneViewController.h"
#include "activity/MonitorProgressIndicator.h"

#include <QLabel>
#include <QMenu>
#include <QMetaObject>
#include <QPointer>
#include <QToolButton>

class CommandPaneContainerView;

// The collapsed form of a command pane: title, small progress bar, run time and stop button,
// with the control menu as the pane's context menu. Main thread only.
class CommandProgressViewController : public CommandPaneViewController
{
    Q_OBJECT

public:
    explicit CommandProgressViewController(QObject* parent = nullptr);
    ~CommandProgressViewController() override;

    QLabel* titleField() const { return m_titleField; }
    QLabel* runTimeField() const { return m_runTimeField; }
    QToolButton* stopButton() const { return m_stopButton; }
    MonitorProgressIndicator* progressIndicator() const { return m_progressIndicator; }
    QMenu* controlMenu() const { return m_controlMenu; }

    void willBeginStatus() override;
    void didBeginStatus() override;
    void updateStatus(const QVariantMap& progress) override;
    void didEndStatusWithException(const Exception* exception) override;

    // Shows pause or resume, whichever the command's state calls for, and enables each item
    // as the pane allows.
    void menuNeedsUpdate(QMenu* menu);

public Q_SLOTS:
    void stopButtonClicked();

protected:
    QWidget* loadView() override;
    void viewDidLoad() override;
    // Forms with more fields make their own view and hand over the shared fields.
    void adoptFields(QLabel* title, QLabel* runTime, QToolButton* stop,
                     MonitorProgressIndicator* indicator);

private:
    void loadControlMenu(QWidget* view);
    void showControlMenu(const QPoint& position);

    QPointer<QLabel> m_titleField;
    QPointer<QLabel> m_runTimeField;
    QPointer<QToolButton> m_stopButton;
    QPointer<MonitorProgressIndicator> m_progressIndicator;
    QMenu* m_controlMenu = nullptr;
    QMetaObject::Connection m_runTimeConnection;
    QMetaObject::Connection m_workingConnection;
};
