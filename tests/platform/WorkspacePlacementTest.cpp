#include "platform/linux/UnsupportedWorkspacePlacement.h"
#include "platform/linux/X11WorkspacePlacement.h"

#include <QGuiApplication>
#include <QTest>
#include <QWindow>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <optional>
#include <vector>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {
// Waits until the X server has handled every request sent so far on the connection.
void sync(xcb_connection_t* connection)
{
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

// A connection of the test's own to the X server: it reads what the adapter left on windows
// and hears the client messages sent to the root window, as a window manager would.
class XServer
{
public:
    using Message = std::array<std::uint32_t, 5>;

    XServer()
        : m_connection(xcb_connect(nullptr, nullptr))
    {}
    ~XServer() { xcb_disconnect(m_connection); }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    xcb_window_t root() const
    {
        return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }

    xcb_atom_t atom(const char* name) const
    {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            m_connection, xcb_intern_atom(m_connection, 0, std::uint16_t(std::strlen(name)), name),
            nullptr);
        const xcb_atom_t value = reply != nullptr ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
        return value;
    }

    std::vector<std::uint32_t> property(xcb_window_t window, const char* name) const
    {
        xcb_get_property_reply_t* reply = xcb_get_property_reply(
            m_connection,
            xcb_get_property(m_connection, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 64),
            nullptr);
        std::vector<std::uint32_t> values;
        if (reply != nullptr && reply->format == 32) {
            const auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply));
            values.assign(data, data + reply->value_len);
        }
        std::free(reply);
        return values;
    }

    void setRootCardinal(const char* name, std::uint32_t value)
    {
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, root(), atom(name),
                            XCB_ATOM_CARDINAL, 32, 1, &value);
        sync(m_connection);
    }

    void deleteRootProperty(const char* name)
    {
        xcb_delete_property(m_connection, root(), atom(name));
        sync(m_connection);
    }

    void listenToRoot()
    {
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(m_connection, root(), XCB_CW_EVENT_MASK, &mask);
        sync(m_connection);
    }

    // The next client message of this type about the window; none if none comes.
    std::optional<Message> clientMessage(xcb_window_t window, const char* type)
    {
        const xcb_atom_t wanted = atom(type);
        std::optional<Message> found;
        // The caller asserts on what came; the wait's own answer says the same.
        static_cast<void>(QTest::qWaitFor([&] {
            receive();
            const auto match =
                std::find_if(m_messages.cbegin(), m_messages.cend(),
                             [&](const xcb_client_message_event_t& message) {
                                 return message.window == window && message.type == wanted;
                             });
            if (match != m_messages.cend()) {
                found = Message();
                std::copy_n(match->data.data32, 5, found->begin());
                m_messages.erase(match);
            }
            return found.has_value();
        }));
        return found;
    }

private:
    void receive()
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
            if ((event->response_type & 0x7f) == XCB_CLIENT_MESSAGE) {
                m_messages.push_back(*reinterpret_cast<xcb_client_message_event_t*>(event));
            }
            std::free(event);
        }
    }

    xcb_connection_t* m_connection;
    std::deque<xcb_client_message_event_t> m_messages;
};

xcb_window_t idOf(QWindow& window)
{
    return xcb_window_t(window.winId());
}

// The adapter on the application's own connection, as the monitor makes it.
class X11WorkspacePlacementTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (QGuiApplication::platformName() != "xcb"_L1) {
            GTEST_SKIP() << "needs an X server (scripts/headless runs the tests on Xvfb)";
        }
        m_application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
        m_placement.emplace(m_application);
        m_window.resize(200, 100);
    }

    std::vector<std::uint32_t> desktopOf(QWindow& window)
    {
        sync(m_application);
        return m_server.property(idOf(window), "_NET_WM_DESKTOP");
    }

    bool isSticky(QWindow& window)
    {
        sync(m_application);
        const std::vector<std::uint32_t> states = m_server.property(idOf(window), "_NET_WM_STATE");
        return std::count(states.cbegin(), states.cend(), m_server.atom("_NET_WM_STATE_STICKY")) ==
               1;
    }

    xcb_connection_t* m_application = nullptr;
    std::optional<X11WorkspacePlacement> m_placement;
    XServer m_server;
    QWindow m_window;
};
} // namespace

TEST_F(X11WorkspacePlacementTest, AWindowNotYetMappedCarriesTheWishThroughItsMapping)
{
    m_window.create();
    m_placement->joinAllWorkspaces(m_window);
    m_placement->joinAllWorkspaces(m_window); // asked again: the state is not doubled
    EXPECT_EQ(desktopOf(m_window), std::vector<std::uint32_t>{0xFFFFFFFF});
    EXPECT_TRUE(isSticky(m_window));
    // Qt writes its own window states as it maps the window; the wish must survive that.
    m_window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m_window, 30000));
    EXPECT_EQ(desktopOf(m_window), std::vector<std::uint32_t>{0xFFFFFFFF});
    EXPECT_TRUE(isSticky(m_window));
}

TEST_F(X11WorkspacePlacementTest, AShownWindowAsksTheWindowManagerThroughTheRootWindow)
{
    m_server.listenToRoot();
    m_window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m_window, 30000));
    m_placement->joinAllWorkspaces(m_window);
    const auto desktop = m_server.clientMessage(idOf(m_window), "_NET_WM_DESKTOP");
    ASSERT_TRUE(desktop);
    EXPECT_EQ((*desktop)[0], 0xFFFFFFFF);
    EXPECT_EQ((*desktop)[1], 1u) << "an application's request";
    const auto state = m_server.clientMessage(idOf(m_window), "_NET_WM_STATE");
    ASSERT_TRUE(state);
    EXPECT_EQ(*state, (XServer::Message{1, m_server.atom("_NET_WM_STATE_STICKY"), 0, 1, 0}));

    // Moved to the workspace the window manager says is current: asked for while shown, set
    // on a window that is not shown yet.
    m_server.setRootCardinal("_NET_CURRENT_DESKTOP", 2);
    m_placement->moveToActiveWorkspace(m_window);
    const auto moved = m_server.clientMessage(idOf(m_window), "_NET_WM_DESKTOP");
    QWindow hidden;
    hidden.create();
    m_placement->moveToActiveWorkspace(hidden);
    const std::vector<std::uint32_t> hiddenDesktop = desktopOf(hidden);
    m_server.deleteRootProperty("_NET_CURRENT_DESKTOP");
    ASSERT_TRUE(moved);
    EXPECT_EQ((*moved)[0], 2u);
    EXPECT_EQ(hiddenDesktop, std::vector<std::uint32_t>{2});
}

TEST(UnsupportedWorkspacePlacementTest, EachPreferenceIsReportedOnceAsUnavailable)
{
    QStringList reports;
    UnsupportedWorkspacePlacement placement(
        u"wayland"_s, [&reports](const QString& message) { reports.append(message); });
    QWindow window;
    placement.joinAllWorkspaces(window);
    placement.joinAllWorkspaces(window);
    ASSERT_EQ(reports.size(), 1);
    EXPECT_TRUE(reports.at(0).contains(u"KSMonitorSpacesJoinAll"_s)) << reports.at(0).toStdString();
    EXPECT_TRUE(reports.at(0).contains(u"\"wayland\""_s));
    placement.moveToActiveWorkspace(window);
    placement.moveToActiveWorkspace(window);
    ASSERT_EQ(reports.size(), 2);
    EXPECT_TRUE(reports.at(1).contains(u"KSMonitorSpacesMoveToActive"_s))
        << reports.at(1).toStdString();
}
