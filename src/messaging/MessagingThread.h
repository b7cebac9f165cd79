#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QThread>
#include <functional>

// The thread that serves every incoming message of this process and receives every reply,
// with the process's one bus connection. Peers know the process by that connection's unique
// name, so all traffic of the product goes through it. A handler running here never waits.
class MessagingThread
{
public:
    static MessagingThread& instance();

    QDBusConnection connection() const;
    QString uniqueName() const;
    QThread* thread() { return &m_thread; }
    // An object living on the messaging thread, to queue work to or parent replies under.
    QObject* context() const { return m_context; }
    bool isCurrent() const { return QThread::currentThread() == &m_thread; }

    void post(std::function<void()> work) const;
    // Runs the work on the messaging thread and waits for it; never call from that thread.
    void runAndWait(std::function<void()> work) const;

    static inline const QString kConnectionName = QStringLiteral("kestrom-messaging");

private:
    MessagingThread();

    QThread m_thread;
    QObject* m_context = nullptr;
};
