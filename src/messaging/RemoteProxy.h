#pragma once

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QString>
#include <QVariantList>
#include <atomic>
#include <functional>
#include <memory>

// The sending side of one platform connection: messages to one object of one peer. Replies and
// errors arrive on the messaging thread. An error of any message sent through the proxy goes to
// its error handler, and that message's reply handler is not called.
class RemoteProxy
{
public:
    using ErrorHandler = std::function<void(const QDBusError& error)>;
    using ReplyHandler = std::function<void(const QDBusMessage& reply)>;

    // With a validity flag, the proxy refuses to send once it is false: the message is not
    // sent and its error handler hears of it.
    RemoteProxy(QDBusConnection connection, QString service, QString path,
                ErrorHandler errorHandler,
                std::shared_ptr<const std::atomic<bool>> valid = nullptr);

    const QString& service() const { return m_service; }
    const QString& path() const { return m_path; }

    // Whether a message to a name nobody owns may start its owner through bus activation.
    enum class Activation
    {
        Allowed,
        Never
    };

    // One-way: sent with no reply expected; never blocks.
    void send(const QString& interface, const QString& member, const QVariantList& arguments,
              Activation activation = Activation::Allowed) const;
    // With a reply; never blocks. A negative timeout is the bus default.
    void call(const QString& interface, const QString& member, const QVariantList& arguments,
              ReplyHandler onReply, int timeoutMs = -1) const;

    // The same on any connection, for callers that have no proxy (the hub calling back).
    static void callAsync(const QDBusConnection& connection, const QDBusMessage& message,
                          ReplyHandler onReply, ErrorHandler onError, int timeoutMs = -1);

private:
    QDBusMessage message(const QString& interface, const QString& member,
                         const QVariantList& arguments) const;
    bool refused() const;

    QDBusConnection m_connection;
    QString m_service;
    QString m_path;
    ErrorHandler m_errorHandler;
    std::shared_ptr<const std::atomic<bool>> m_valid;
};
