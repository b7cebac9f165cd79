#include "platform/linux/X11WorkspacePlacement.h"

#include <QWindow>
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace {
// Says that the request comes from an ordinary application, not a pager.
constexpr std::uint32_t kSourceApplication = 1;
constexpr std::uint32_t kStateAdd = 1;

struct FreeReply
{
    void operator()(void* reply) const { std::free(reply); }
};
template <typename Reply> using ReplyPointer = std::unique_ptr<Reply, FreeReply>;
} // namespace

X11WorkspacePlacement::X11WorkspacePlacement(xcb_connection_t* connection)
    : m_connection(connection)
{}

void X11WorkspacePlacement::joinAllWorkspaces(QWindow& window)
{
    const XWindow id = XWindow(window.winId());
    const Atom sticky = atom("_NET_WM_STATE_STICKY");
    if (!window.isVisible()) {
        setDesktopProperty(id, kAllDesktops);
        addStateProperty(id, sticky);
    } else {
        const XWindow root = rootOf(id);
        sendToRoot(root, id, atom("_NET_WM_DESKTOP"), {kAllDesktops, kSourceApplication});
        sendToRoot(root, id, atom("_NET_WM_STATE"), {kStateAdd, sticky, 0, kSourceApplication});
    }
    xcb_flush(m_connection);
}

void X11WorkspacePlacement::moveToActiveWorkspace(QWindow& window)
{
    const XWindow id = XWindow(window.winId());
    const XWindow root = rootOf(id);
    const std::optional<std::uint32_t> current = currentDesktop(root);
    if (!current) {
        return;
    }
    if (!window.isVisible()) {
        setDesktopProperty(id, *current);
    } else {
        sendToRoot(root, id, atom("_NET_WM_DESKTOP"), {*current, kSourceApplication});
    }
    xcb_flush(m_connection);
}

X11WorkspacePlacement::Atom X11WorkspacePlacement::atom(const char* name)
{
    const QByteArray key(name);
    if (const auto known = m_atoms.constFind(key); known != m_atoms.cend()) {
        return *known;
    }
    const ReplyPointer<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, std::uint16_t(key.size()), name), nullptr));
    const Atom value = reply ? reply->atom : Atom(XCB_ATOM_NONE);
    m_atoms.insert(key, value);
    return value;
}

X11WorkspacePlacement::XWindow X11WorkspacePlacement::rootOf(XWindow window) const
{
    // The window's own root, not the first screen's: X servers may have several screens.
    const ReplyPointer<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
    if (geometry) {
        return geometry->root;
    }
    return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
}

std::optional<std::uint32_t> X11WorkspacePlacement::currentDesktop(XWindow root)
{
    const ReplyPointer<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(m_connection,
                               xcb_get_property(m_connection, 0, root, atom("_NET_CURRENT_DESKTOP"),
                                                XCB_ATOM_CARDINAL, 0, 1),
                               nullptr));
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) {
        return std::nullopt;
    }
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
}

void X11WorkspacePlacement::setDesktopProperty(XWindow window, std::uint32_t desktop)
{
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &desktop);
}

void X11WorkspacePlacement::addStateProperty(XWindow window, Atom state)
{
    // Other states may be there already (Qt writes its own as it maps the window and keeps
    // what it finds): only this one is added.
    const Atom property = atom("_NET_WM_STATE");
    const ReplyPointer<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, property, XCB_ATOM_ATOM, 0, 1024),
        nullptr));
    std::vector<Atom> states;
    if (reply && reply->format == 32 && reply->type == XCB_ATOM_ATOM) {
        const auto* values = static_cast<const Atom*>(xcb_get_property_value(reply.get()));
        states.assign(values, values + reply->value_len);
    }
    if (std::find(states.cbegin(), states.cend(), state) != states.cend()) {
        return;
    }
    states.push_back(state);
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, window, property, XCB_ATOM_ATOM, 32,
                        std::uint32_t(states.size()), states.data());
}

void X11WorkspacePlacement::sendToRoot(XWindow root, XWindow window, Atom type,
                                       std::initializer_list<std::uint32_t> data)
{
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), 5), message.data.data32);
    xcb_send_event(m_connection, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
}
