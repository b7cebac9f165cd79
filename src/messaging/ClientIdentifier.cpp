#include "messaging/ClientIdentifier.h"

#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QHash>

ClientIdentifier::ClientIdentifier(QString name, quint32 serialNumber)
    : m_name(std::move(name))
    , m_number(serialNumber)
{}

bool ClientIdentifier::isEqual(const ClientIdentifier& other) const
{
    return m_number == other.m_number || isWildcard() || other.isWildcard();
}

size_t ClientIdentifier::hash() const
{
    if (isWildcard()) {
        return qHash(m_name);
    }
    return (m_number << 4U) | (m_number >> 28U);
}

QString ClientIdentifier::description() const
{
    // Peers print the number signed, so the wildcard reads "#-1" everywhere alike.
    return QStringLiteral("%1(#%2)").arg(m_name).arg(qint32(m_number));
}

void ClientIdentifier::registerArchivableClass()
{
    KeyedArchive::registerClass<ClientIdentifier>(
        QStringLiteral("ClientIdentifier"),
        [](const QVariant& object) {
            const auto client = object.value<ClientIdentifier>();
            // Written as a signed 32-bit integer, as peers write it.
            return QVariantMap{{QStringLiteral("name"), client.name()},
                               {QStringLiteral("number"), qint32(client.serialNumber())}};
        },
        [](const KeyedDecoder& coder) {
            const QString name =
                coder.decodeStringObject(QStringLiteral("name")).value_or(QString());
            // Either sign of the same 32 bits reads back as the same number.
            const auto number = quint32(coder.decodeInt64(QStringLiteral("number")) & 0xFFFFFFFF);
            return QVariant::fromValue(ClientIdentifier(name, number));
        });
    QMetaType::registerConverter<ClientIdentifier, QString>(&ClientIdentifier::description);
}

namespace {
// Registered as soon as this file is linked in, so a peer's archive can always carry one.
[[maybe_unused]] const bool s_registered = (ClientIdentifier::registerArchivableClass(), true);
} // namespace
