#pragma once

#include "foundation/KeyedArchive.h"
#include "messaging/KSPublishedConnection.h"
#include "messaging/SwitchboardFixture.h"

#include <QDBusArgument>
#include <QDBusMessage>

// A command line written as one string; none of these tests' arguments holds a space.
inline QStringList words(const char* line)
{
    return QString::fromLatin1(line).split(u' ');
}

// The real hub and the real monitor as processes on the test's bus.
class MonitorProcessFixture : public SwitchboardFixture
{
protected:
    // The program is the monitor itself or a wrapper whose arguments end with the monitor.
    // Offscreen unless a test needs the display (a panel's tray, say).
    void startMonitor(const QString& program, const QStringList& arguments = {},
                      const QString& platform = QStringLiteral("offscreen"))
    {
        m_monitor = std::make_unique<ChildProcess>(
            program, arguments + QStringList{QStringLiteral("-platform"), platform});
        ASSERT_TRUE(m_monitor->started());
        ASSERT_TRUE(QTest::qWaitFor([] { return monitorEndpoint().has_value(); }, 30000))
            << m_monitor->output().toStdString();
    }

    void TearDown() override
    {
        m_monitor.reset();
        SwitchboardFixture::TearDown();
    }

    static std::optional<Endpoint> monitorEndpoint()
    {
        return KSPublishedConnection::lookUpEndpoint(QStringLiteral("com.kestrom.monitor"));
    }

    static QDBusMessage monitorCall(const QString& interface, const QString& member,
                                    const QVariantList& arguments)
    {
        const auto endpoint = monitorEndpoint();
        QDBusMessage call = QDBusMessage::createMethodCall(endpoint->service(), endpoint->path(),
                                                           interface, member);
        call.setArguments(arguments);
        return call;
    }

    // A synchronous question to the monitor, as a command or the client would ask it.
    static QDBusMessage ask(const QString& interface, const QString& member,
                            const QVariantList& arguments = {})
    {
        return MessagingThread::instance().connection().call(
            monitorCall(interface, member, arguments), QDBus::Block, 30000);
    }

    // The first value the monitor answers; the interface is named without "com.kestrom.".
    static QVariant answer(const QString& interface, const QString& member,
                           const QVariantList& arguments = {})
    {
        return ask(QStringLiteral("com.kestrom.") + interface, member, arguments)
            .arguments()
            .value(0);
    }

    // The listener the monitor gives a verify command of that identifier.
    static Endpoint listenerFor(const QString& identifier)
    {
        const QVariantMap command{{QStringLiteral("name"), QStringLiteral("verify")}};
        return qdbus_cast<Endpoint>(answer(QStringLiteral("CommandListenerServiceProvider"),
                                           QStringLiteral("queryListenerForCommandIdentifier"),
                                           {identifier, KeyedArchive::archivedData(command)}));
    }

    // A shell script only its owner may change, as the monitor insists.
    static QString writeScript(const QString& path, const QByteArray& body)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + body);
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    std::unique_ptr<ChildProcess> m_monitor;
};
