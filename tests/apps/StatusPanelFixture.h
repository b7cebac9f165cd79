#pragma once

#include "MonitorProcessFixture.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

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

public Q_SLOTS:
    Q_SCRIPTABLE void RegisterStatusNotifierItem(const QString& service)
    {
        QMutexLocker locker(&m_mutex);
        m_items.append(service.startsWith(u'/') ? message().service() : service);
    }
    Q_SCRIPTABLE void RegisterStatusNotifierHost(const QString&) {}

private:
    mutable QMutex m_mutex;
    QStringList m_items;
};

// The real hub and the real monitor on xcb, with its status item in a panel the test plays.
class StatusPanelFixture : public MonitorProcessFixture
{
protected:
    struct MenuItem
    {
        int id = 0;
        QString label;
        bool enabled = true;
        bool visible = true;
        QString type;
        QList<MenuItem> children;
    };

    // The settings the test turns on before it waits for the item.
    explicit StatusPanelFixture(QStringList shownBy)
        : m_shownBy(std::move(shownBy))
    {}

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
        ASSERT_TRUE(bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &m_watcher,
                                       QDBusConnection::ExportScriptableSlots |
                                           QDBusConnection::ExportAllProperties));
        ASSERT_TRUE(bus.registerService(kWatcher));
        startMonitor(QStringLiteral(MONITOR_PROGRAM), {}, QStringLiteral("xcb"));
        for (const QString& key : m_shownBy) {
            const QDBusMessage reply = ask(QStringLiteral("com.kestrom.KSComponentPreferencing"),
                                           QStringLiteral("setComponentPreferenceValue"),
                                           {KeyedArchive::archivedData(true), key});
            ASSERT_TRUE(reply.arguments().value(0).toBool()) << key.toStdString();
        }
        ASSERT_TRUE(QTest::qWaitFor([this] { return !m_watcher.items().isEmpty(); }, 30000))
            << m_monitor->output().toStdString();
    }

    void TearDown() override
    {
        MonitorProcessFixture::TearDown();
        panelBus().unregisterService(kWatcher);
        panelBus().unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
        m_panelThread.quit();
        m_panelThread.wait();
    }

    static QDBusConnection panelBus()
    {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("panel"));
    }

    // The item a panel would show: the one registered last.
    QString itemService() const { return m_watcher.items().last(); }

    QVariant itemProperty(const QString& name) const
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            itemService(), QStringLiteral("/StatusNotifierItem"),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QStringLiteral("org.kde.StatusNotifierItem") << name;
        const QDBusMessage reply = panelBus().call(get, QDBus::Block, 30000);
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    QString menuPath() const
    {
        return itemProperty(QStringLiteral("Menu")).value<QDBusObjectPath>().path();
    }

    static MenuItem readItem(const QDBusArgument& argument)
    {
        MenuItem item;
        QVariantMap properties;
        argument.beginStructure();
        argument >> item.id >> properties;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            item.children.append(readItem(child.variant().value<QDBusArgument>()));
        }
        argument.endArray();
        argument.endStructure();
        item.label = properties.value(QStringLiteral("label")).toString().remove(u'_');
        item.enabled = properties.value(QStringLiteral("enabled"), true).toBool();
        item.visible = properties.value(QStringLiteral("visible"), true).toBool();
        item.type = properties.value(QStringLiteral("type")).toString();
        return item;
    }

    // The menu as a panel reads it when the user opens it: the monitor rebuilds it first.
    MenuItem openMenu() const
    {
        const QString path = menuPath();
        QDBusMessage aboutToShow = QDBusMessage::createMethodCall(itemService(), path, kMenu,
                                                                  QStringLiteral("AboutToShow"));
        aboutToShow << 0;
        panelBus().call(aboutToShow, QDBus::Block, 30000);
        QDBusMessage layout =
            QDBusMessage::createMethodCall(itemService(), path, kMenu, QStringLiteral("GetLayout"));
        layout << 0 << -1 << QStringList();
        const QDBusMessage reply = panelBus().call(layout, QDBus::Block, 30000);
        return readItem(reply.arguments().value(1).value<QDBusArgument>());
    }

    // The first item, depth first, whose label starts so; id 0 when there is none.
    static MenuItem find(const MenuItem& menu, const QString& label)
    {
        for (const MenuItem& item : menu.children) {
            if (item.label.startsWith(label)) {
                return item;
            }
            if (const MenuItem found = find(item, label); found.id != 0) {
                return found;
            }
        }
        return {};
    }

    // As a panel does when the user chooses the item.
    void click(const QString& label) const
    {
        const MenuItem item = find(openMenu(), label);
        ASSERT_NE(item.id, 0) << label.toStdString();
        ASSERT_TRUE(item.enabled) << label.toStdString();
        QDBusMessage event = QDBusMessage::createMethodCall(itemService(), menuPath(), kMenu,
                                                            QStringLiteral("Event"));
        event << item.id << QStringLiteral("clicked") << QVariant::fromValue(QDBusVariant(0)) << 0U;
        const QDBusMessage reply = panelBus().call(event, QDBus::Block, 30000);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    static inline const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
    static inline const QString kMenu = QStringLiteral("com.canonical.dbusmenu");

    const QStringList m_shownBy;
    QTemporaryDir m_config;
    QThread m_panelThread;
    FakeStatusNotifierWatcher m_watcher;
};
