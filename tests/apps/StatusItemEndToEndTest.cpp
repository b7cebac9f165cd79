#include "MonitorProcessFixture.h"
#include "support/PrivateBus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {
[[maybe_unused]] const bool s_privateBus = (PrivateBus::use(), true);

const QString kWatcher = u"org.kde.StatusNotifierWatcher"_s;
const QString kItem = u"org.kde.StatusNotifierItem"_s;
const QString kMenu = u"com.canonical.dbusmenu"_s;

QDBusConnection panelBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"panel"_s);
}
} // namespace

// What a panel serves: items register with it, and it says a host shows them.
class FakeStatusNotifierWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
public:
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const
    {
        QMutexLocker locker(&m_mutex);
        return m_items;
    }
    mutable QMutex m_mutex;
    QStringList m_items;

public Q_SLOTS:
    Q_SCRIPTABLE void RegisterStatusNotifierItem(const QString& service)
    {
        QMutexLocker locker(&m_mutex);
        m_items.append(service.startsWith(u'/') ? message().service() : service);
    }
    Q_SCRIPTABLE void RegisterStatusNotifierHost(const QString&) {}
};

class StatusItemEndToEndTest : public MonitorProcessFixture
{
protected:
    void SetUp() override
    {
        SwitchboardFixture::SetUp();
        ASSERT_TRUE(m_config.isValid());
        qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
        if (qEnvironmentVariableIsEmpty("DISPLAY")) {
            GTEST_SKIP() << "the panel's tray needs a display: run through scripts/headless";
        }
        // The panel answers on a thread of its own, whatever the test waits for meanwhile.
        m_panelThread.start();
        m_watcher.moveToThread(&m_panelThread);
        QDBusConnection bus = panelBus();
        ASSERT_TRUE(bus.registerObject(u"/StatusNotifierWatcher"_s, &m_watcher,
                                       QDBusConnection::ExportScriptableSlots |
                                           QDBusConnection::ExportAllProperties));
        ASSERT_TRUE(bus.registerService(kWatcher));
        startMonitor(QStringLiteral(MONITOR_PROGRAM), {}, u"xcb"_s);
        // As the main application's settings do: the item, with the archives' state on it.
        for (const QString& key : {u"KSShowStatusIndicatorInStatusMenu"_s, u"KSShowStatusMenu"_s}) {
            const QDBusMessage reply =
                ask(u"com.kestrom.KSComponentPreferencing"_s, u"setComponentPreferenceValue"_s,
                    {KeyedArchive::archivedData(true), key});
            ASSERT_TRUE(reply.arguments().value(0).toBool()) << key.toStdString();
        }
        ASSERT_TRUE(QTest::qWaitFor([this] { return !m_watcher.items().isEmpty(); }, 30000))
            << m_monitor->output().toStdString();
        m_service = m_watcher.items().first();
    }

    void TearDown() override
    {
        MonitorProcessFixture::TearDown();
        panelBus().unregisterService(kWatcher);
        panelBus().unregisterObject(u"/StatusNotifierWatcher"_s);
        m_panelThread.quit();
        m_panelThread.wait();
    }

    QVariant itemProperty(const QString& name) const
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            m_service, u"/StatusNotifierItem"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << kItem << name;
        const QDBusMessage reply = panelBus().call(get, QDBus::Block, 30000);
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    // The tool tip's title and text, as a panel shows them.
    QString toolTip() const
    {
        const QDBusArgument argument = itemProperty(u"ToolTip"_s).value<QDBusArgument>();
        QString icon, title, text;
        argument.beginStructure();
        argument >> icon;
        argument.beginArray();
        while (!argument.atEnd()) {
            argument.beginStructure();
            int width = 0, height = 0;
            QByteArray pixels;
            argument >> width >> height >> pixels;
            argument.endStructure();
        }
        argument.endArray();
        argument >> title >> text;
        argument.endStructure();
        return title + (text.isEmpty() ? QString() : u'\n' + text);
    }

    struct MenuItem
    {
        QString label;
        bool enabled = true;
        bool visible = true;
        QString type;
        QList<MenuItem> children;
    };

    static MenuItem readItem(const QDBusArgument& argument)
    {
        MenuItem item;
        int id = 0;
        QVariantMap properties;
        argument.beginStructure();
        argument >> id >> properties;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            item.children.append(readItem(child.variant().value<QDBusArgument>()));
        }
        argument.endArray();
        argument.endStructure();
        item.label = properties.value(u"label"_s).toString().remove(u'_');
        item.enabled = properties.value(u"enabled"_s, true).toBool();
        item.visible = properties.value(u"visible"_s, true).toBool();
        item.type = properties.value(u"type"_s).toString();
        return item;
    }

    // The menu as the panel reads it when the user opens it.
    MenuItem openMenu() const
    {
        const QString path = itemProperty(u"Menu"_s).value<QDBusObjectPath>().path();
        QDBusMessage aboutToShow =
            QDBusMessage::createMethodCall(m_service, path, kMenu, u"AboutToShow"_s);
        aboutToShow << 0;
        panelBus().call(aboutToShow, QDBus::Block, 30000);
        QDBusMessage layout =
            QDBusMessage::createMethodCall(m_service, path, kMenu, u"GetLayout"_s);
        layout << 0 << -1 << QStringList();
        const QDBusMessage reply = panelBus().call(layout, QDBus::Block, 30000);
        return readItem(reply.arguments().value(1).value<QDBusArgument>());
    }

    static QStringList labels(const MenuItem& menu)
    {
        QStringList shown;
        for (const MenuItem& item : menu.children) {
            if (item.visible) {
                shown << (item.type == u"separator"_s
                              ? u"-"_s
                              : item.label + (item.enabled ? u""_s : u" (off)"_s));
            }
        }
        return shown;
    }

    QTemporaryDir m_config;
    QThread m_panelThread;
    FakeStatusNotifierWatcher m_watcher;
    QString m_service;
};

TEST_F(StatusItemEndToEndTest, ThePanelShowsTheItemItsStateAndItsMenu)
{
    EXPECT_EQ(itemProperty(u"Status"_s).toString(), u"Active"_s);
    EXPECT_EQ(toolTip(), u"Kestrom Activity Monitor"_s);
    const QStringList idle = labels(openMenu());
    EXPECT_EQ(idle, (QStringList{u"Open Kestrom"_s, u"Show Activity"_s, u"Archive Status… (off)"_s,
                                 u"-"_s, u"Hold All Schedules (off)"_s, u"Resume Schedules (off)"_s,
                                 u"Run Action"_s, u"-"_s, u"Quit Activity Monitor"_s, u"-"_s,
                                 u"Idle (off)"_s}))
        << idle.join(u" | "_s).toStdString();

    // A command runs and an archive needs repair: the icon says both, the menu lists the command.
    QTemporaryDir archives;
    auto create = ctl({u"archive"_s, u"create"_s, archives.filePath(u"Laptop.stromi"_s),
                       u"--needs-repair"_s, u"--no-history"_s});
    ASSERT_TRUE(create->finished());
    auto command = ctl(words("command capture --id tray.capture --steps 400 --interval-ms 100"));
    ASSERT_TRUE(QTest::qWaitFor(
        [this] {
            return toolTip() == u"Kestrom Activity Monitor\nCommands are running\n"
                                "An archive needs attention now"_s;
        },
        30000))
        << toolTip().toStdString();
    const MenuItem running = openMenu();
    const QStringList shown = labels(running);
    EXPECT_EQ(shown.at(2), u"Archive Status…"_s);
    ASSERT_EQ(shown.size(), 11) << shown.join(u" | "_s).toStdString();
    EXPECT_TRUE(shown.last().startsWith(u"Capture"_s)) << shown.last().toStdString();
    // Its submenu is the pane's control menu, after the way to its details.
    const QStringList controls = labels(running.children.last());
    EXPECT_EQ(controls.value(0), u"Show Details"_s);
    EXPECT_TRUE(controls.contains(u"Stop"_s)) << controls.join(u" | "_s).toStdString();
}

#include "StatusItemEndToEndTest.moc"
