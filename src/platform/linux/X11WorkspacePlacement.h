#pragma once

#include "platform/WorkspacePlacement.h"

#include <QByteArray>
#include <QHash>
#include <cstdint>
#include <initializer_list>
#include <optional>

struct xcb_connection_t;

// Workspaces on X11, through the window manager's hints: a window that is not mapped yet
// carries its wish in its own properties (_NET_WM_DESKTOP, _NET_WM_STATE), which the window
// manager reads as it maps the window; a mapped window asks by a client message to the root
// window. Main thread only.
class X11WorkspacePlacement final : public WorkspacePlacement
{
public:
    // The workspace number that stands for all of them.
    static constexpr std::uint32_t kAllDesktops = 0xFFFFFFFF;

    // The connection is the application's; it must outlive this object.
    explicit X11WorkspacePlacement(xcb_connection_t* connection);

    void joinAllWorkspaces(QWindow& window) override;
    // Nothing when the window manager does not publish the current workspace.
    void moveToActiveWorkspace(QWindow& window) override;

private:
    using Atom = std::uint32_t;
    using XWindow = std::uint32_t;

    Atom atom(const char* name);
    XWindow rootOf(XWindow window) const;
    std::optional<std::uint32_t> currentDesktop(XWindow root);
    void setDesktopProperty(XWindow window, std::uint32_t desktop);
    void addStateProperty(XWindow window, Atom state);
    // A client message of format 32 with up to five values.
    void sendToRoot(XWindow root, XWindow window, Atom type,
                    std::initializer_list<std::uint32_t> data);

    xcb_connection_t* m_connection;
    QHash<QByteArray, Atom> m_atoms;
};
