#include "tracking/CommandInterface.h"

#include "messaging/ProtocolCatalogue.h"

CommandInterface::CommandInterface(const QString& protocol)
    : m_protocol(protocol)
{
    // Walks up the single-parent chains of the command protocols; CommandMessaging's own
    // ancestors are served by every component and reached through it.
    QString current = protocol;
    while (!current.isEmpty() && !m_chain.contains(current)) {
        m_chain.append(current);
        if (current == kCommandMessaging) {
            break;
        }
        const QStringList parents = ProtocolCatalogue::parentsOf(current);
        current = parents.size() == 1 ? parents.constFirst() : QString();
    }
}

bool CommandInterface::declares(const QString& member) const
{
    return !interfaceNameFor(member).isEmpty();
}

QString CommandInterface::interfaceNameFor(const QString& member) const
{
    const QString declaring = ProtocolCatalogue::declaringProtocol(m_protocol, member);
    return declaring.isEmpty() ? QString() : ProtocolCatalogue::interfaceName(declaring);
}

QSet<QString> CommandInterface::allowedClassesFor(const QString& member, int argumentIndex) const
{
    const auto configured = m_classes.constFind(slot(member, argumentIndex));
    if (configured != m_classes.cend()) {
        return *configured;
    }
    return ProtocolCatalogue::allowedClassesFor(m_protocol, member, argumentIndex);
}

void CommandInterface::setClasses(const QSet<QString>& classes, const QString& member,
                                  int argumentIndex)
{
    m_classes.insert(slot(member, argumentIndex), classes);
}

QString CommandInterface::slot(const QString& member, int argumentIndex)
{
    return member + QLatin1Char('#') + QString::number(argumentIndex);
}
