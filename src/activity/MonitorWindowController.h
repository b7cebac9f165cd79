#pragma once

#include "activity/FadingWindowController.h"

#include <QLabel>
#include <QPointer>
#include <QString>

class WorkspacePlacement;

// The monitor's fading, self-sizing windows, with the one-time hint that a click on a pane
// shows its details: shown when the mouse enters until the user first toggles a pane. The
// windows go on every workspace, or come to the user's workspace when brought forward, as the
// user's preferences say and the window system allows. Main thread only.
class MonitorWindowController : public FadingWindowController
{
    Q_OBJECT

public:
    explicit MonitorWindowController(QObject* parent = nullptr);
    ~MonitorWindowController() override;

    // The process's way to ask for workspaces, chosen by the application for its window system;
    // it must outlive every window. Without one, windows stay where the window manager puts
    // them: tests and tools that show no desktop windows.
    static void setWorkspacePlacement(WorkspacePlacement* placement);

    // Reads "KSMonitorSpacesJoinAll" and "KSMonitorSpacesMoveToActive" for this window.
    void setWindow(QWidget* window, QScrollArea* scrollView) override;
    bool joinsAllWorkspaces() const { return m_joinAllWorkspaces; }
    bool movesToActiveWorkspace() const { return m_moveToActiveWorkspace; }
    // Shows the window, brought back from the dock when minimized, above the others; with
    // force it also takes the keyboard.
    void orderFront(bool force);

    // A boolean preference: "KSVer21DetailsHint." and the controller's class name.
    QString detailsHintShownKey() const;
    // The view the hint points at; none shows no hint.
    virtual QWidget* detailsHintPopoverView() { return nullptr; }
    bool detailsHintShown() const;
    void closeDetailsHint();
    void didToggleDetails();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void mouseEntered() override;
    void mouseExited() override;

private:
    void placeOnWorkspaces();

    QPointer<QLabel> m_detailsHintPopover;
    bool m_joinAllWorkspaces = false;
    bool m_moveToActiveWorkspace = false;
};
