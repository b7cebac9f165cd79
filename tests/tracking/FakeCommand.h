#pragma once

#include "messaging/ServedObject.h"

#include <QMutex>
#include <QStringList>
#include <atomic>

// The command side of the generic command protocol, as far as the monitor's tracking uses it.
// It answers queries from its fields and records every message it is sent, as
// "member:argument".
class FakeCommand : public ServedObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.kestrom.CommandMessaging")

public:
    explicit FakeCommand(QString name)
        : m_name(std::move(name))
    {}

    QStringList calls() const
    {
        QMutexLocker locker(&m_mutex);
        return m_calls;
    }

    std::atomic<bool> finished{false};

public Q_SLOTS:
    QString queryNameWithReply()
    {
        record(QStringLiteral("queryNameWithReply"));
        return m_name;
    }
    bool queryIsFinishedWithReply()
    {
        record(QStringLiteral("queryIsFinishedWithReply"));
        return finished.load();
    }
    QString queryProcessIdentifierWithReply()
    {
        record(QStringLiteral("queryProcessIdentifierWithReply"));
        return QStringLiteral("pid-of-") + m_name;
    }
    Q_NOREPLY void run() { record(QStringLiteral("run")); }
    Q_NOREPLY void cancelFrom(int origin) { record(QStringLiteral("cancelFrom:%1").arg(origin)); }
    Q_NOREPLY void addListenerToPublishedService(const QString& serviceName)
    {
        record(QStringLiteral("addListenerToPublishedService:") + serviceName);
    }
    Q_NOREPLY void removeListenerWithIdentifier(const QString& identifier)
    {
        record(QStringLiteral("removeListenerWithIdentifier:") + identifier);
    }

private:
    void record(const QString& call)
    {
        QMutexLocker locker(&m_mutex);
        m_calls.append(call);
    }

    QString m_name;
    mutable QMutex m_mutex;
    QStringList m_calls;
};
