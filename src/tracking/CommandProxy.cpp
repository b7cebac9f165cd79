#include "tracking/CommandProxy.h"

#include <stdexcept>

CommandProxy::CommandProxy(RemoteProxy proxy, CommandInterface interface)
    : m_proxy(std::move(proxy))
    , m_interface(std::move(interface))
{}

QString CommandProxy::interfaceFor(const QString& member) const
{
    const QString name = m_interface.interfaceNameFor(member);
    if (name.isEmpty()) {
        // A message the command's protocol lacks is a mistake of this program, not of the peer.
        throw std::logic_error("no protocol of " + m_interface.protocol().toStdString() +
                               " declares " + member.toStdString());
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
