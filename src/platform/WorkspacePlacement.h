#pragma once

class QWindow;

// Which workspaces (virtual desktops) a window shows on: all of them, or the one the user is on
// whenever the window is brought forward. The window manager has the last word; an adapter only
// asks. Main thread only.
class WorkspacePlacement
{
public:
    virtual ~WorkspacePlacement();

    // Asks that the window show on every workspace. Called as the window is shown, before the
    // window system maps it, and again while it shows.
    virtual void joinAllWorkspaces(QWindow& window) = 0;
    // Asks that the window come to the workspace the user is on.
    virtual void moveToActiveWorkspace(QWindow& window) = 0;
};
