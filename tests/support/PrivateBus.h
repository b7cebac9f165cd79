#pragma once

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// A session bus of the test process's own, so tests that run side by side (ctest -j) never see
// each other's hubs, names or notifications. Registered as a global environment, it starts
// before any test touches the bus; every child process inherits its address.
class PrivateBus : public ::testing::Environment
{
public:
    void SetUp() override
    {
        // Its own folder of activatable services, so a test that adds one affects no other bus.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_data.path());
        QDir(m_data.path()).mkpath(QStringLiteral("dbus-1/services"));
        s_serviceFolder = m_data.filePath(QStringLiteral("dbus-1/services"));
        m_daemon.setProcessEnvironment(environment);
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"),
                        QStringLiteral("--print-address=1")});
        ASSERT_TRUE(m_daemon.waitForStarted(30000)) << "dbus-daemon is missing";
        QByteArray address;
        while (!address.contains('\n') && m_daemon.waitForReadyRead(30000)) {
            address += m_daemon.readAllStandardOutput();
        }
        ASSERT_TRUE(address.contains('\n')) << "dbus-daemon printed no address";
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.trimmed());
    }

    void TearDown() override
    {
        m_daemon.kill();
        m_daemon.waitForFinished(30000);
    }

    static void use() { ::testing::AddGlobalTestEnvironment(new PrivateBus); }
    // Where a .service file makes a name activatable on this bus (after ReloadConfig).
    static QString serviceFolder() { return s_serviceFolder; }

private:
    QTemporaryDir m_data;
    QProcess m_daemon;
    static inline QString s_serviceFolder;
};
