#include "tracking/CommandProxy.h"

#include "exception/KSException.h"

CommandProxy::CommandProxy(RemoteProxy proxy, CommandInterface interface)
    : m_proxy(std::move(proxy))
    , m_interface(std::move(interface))
{}

QString CommandProxy::interfaceFor(const QString& member) const
{
    const QString name = m_interface.interfaceNameFor(member);
    if (name.isEmpty()) {
        // The protocol follows the name the command gave itself, so a peer can bring this
        // about: it fails like any other exchange with the command, never as an assertion.
        throw KSException(QStringLiteral("IPC"),
                          QStringLiteral("%1 is not part of the command's protocol %2")
                              .arg(member, m_interface.protocol()));
    }
    return name;
}

void CommandProxy::send(const QString& member, const QVariantList& arguments) const
{
    m_proxy.send(interfaceFor(member), member, arguments);
}

void CommandProxy::call(const QString& member, const QVariantList& arguments,
                        RemoteProxy::ReplyHandler onReply) const
{
    m_proxy.call(interfaceFor(member), member, arguments, std::move(onReply));
}
