#include "messaging/RemoteProxy.h"

#include "messaging/MessagingThread.h"

#include <QObject>

namespace {
// Receives one reply on the messaging thread, then goes.
class PendingReply : public QObject
{
    Q_OBJECT
public:
    PendingReply(RemoteProxy::ReplyHandler onReply, RemoteProxy::ErrorHandler onError)
        : m_onReply(std::move(onReply))
        , m_onError(std::move(onError))
    {}

public Q_SLOTS:
    void replied(const QDBusMessage& reply)
    {
        if (m_onReply) {
            m_onReply(reply);
        }
        deleteLater();
    }
    void failed(const QDBusError& error, const QDBusMessage& /*call*/)
    {
        if (m_onError) {
            m_onError(error);
        }
        deleteLater();
    }

private:
    RemoteProxy::ReplyHandler m_onReply;
    RemoteProxy::ErrorHandler m_onError;
};

QDBusError notSent(const QDBusConnection& connection)
{
    const QDBusError last = connection.lastError();
    return last.isValid() ? last
                          : QDBusError(QDBusError::Disconnected,
                                       QStringLiteral("the message could not be sent"));
}
// Errors always arrive on the messaging thread, as replies do, never inside the sender's call:
// a sender may hold the very lock its error handler takes.
void reportLater(const RemoteProxy::ErrorHandler& onError, const QDBusError& error)
{
    MessagingThread::instance().post([onError, error] { onError(error); });
}
} // namespace

RemoteProxy::RemoteProxy(QDBusConnection connection, QString service, QString path,
                         ErrorHandler errorHandler, std::shared_ptr<const std::atomic<bool>> valid)
    : m_connection(std::move(connection))
    , m_service(std::move(service))
    , m_path(std::move(path))
    , m_errorHandler(std::move(errorHandler))
    , m_valid(std::move(valid))
{}

bool RemoteProxy::refused() const
{
    if (!m_valid || m_valid->load()) {
        return false;
    }
    if (m_errorHandler) {
        reportLater(
            m_errorHandler,
            QDBusError(QDBusError::Disconnected,
                       QStringLiteral("the connection to %1 was invalidated").arg(m_service)));
    }
    return true;
}

QDBusMessage RemoteProxy::message(const QString& interface, const QString& member,
                                  const QVariantList& arguments) const
{
    QDBusMessage call = QDBusMessage::createMethodCall(m_service, m_path, interface, member);
    call.setArguments(arguments);
    return call;
}

void RemoteProxy::send(const QString& interface, const QString& member,
                       const QVariantList& arguments, Activation activation) const
{
    if (refused()) {
        return;
    }
    QDBusMessage call = message(interface, member, arguments);
    call.setAutoStartService(activation == Activation::Allowed);
    // A method call handed to send() goes out with no reply expected.
    if (!m_connection.send(call) && m_errorHandler) {
        reportLater(m_errorHandler, notSent(m_connection));
    }
}

void RemoteProxy::call(const QString& interface, const QString& member,
                       const QVariantList& arguments, ReplyHandler onReply, int timeoutMs) const
{
    if (refused()) {
        return;
    }
    callAsync(m_connection, message(interface, member, arguments), std::move(onReply),
              m_errorHandler, timeoutMs);
}

void RemoteProxy::callAsync(const QDBusConnection& connection, const QDBusMessage& message,
                            ReplyHandler onReply, ErrorHandler onError, int timeoutMs)
{
    auto* pending = new PendingReply(std::move(onReply), onError);
    pending->moveToThread(MessagingThread::instance().thread());
    // The call leaves at once from this thread, so it keeps its place among this thread's
    // other messages; only the answer is handled on the messaging thread.
    if (!connection.callWithCallback(message, pending, SLOT(replied(QDBusMessage)),
                                     SLOT(failed(QDBusError, QDBusMessage)), timeoutMs)) {
        pending->deleteLater();
        if (onError) {
            reportLater(onError, notSent(connection));
        }
    }
}

#include "RemoteProxy.moc"
