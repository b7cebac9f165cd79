#include "messaging/ClientIdentifier.h"

#include "exception/KSException.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QHash>

ClientIdentifier::ClientIdentifier(QString name, quint32 serialNumber)
    : m_name(std::move(name))
    , m_number(serialNumber)
{}

namespace {
constexpr quint8 kStringValue = 0x01;
constexpr qsizetype kStringValueHeader = 1 + 4;
constexpr qsizetype kNumberSize = 4;
} // namespace

void ClientIdentifier::assembleContents(QDataStream& out) const
{
    out.setByteOrder(QDataStream::BigEndian);
    out << kStringValue << m_name.toUtf8() << m_number;
}

qsizetype ClientIdentifier::sizeEstimate() const
{
    return kStringValueHeader + m_name.toUtf8().size() + kNumberSize;
}

ClientIdentifier ClientIdentifier::readContents(QDataStream& in)
{
    in.setByteOrder(QDataStream::BigEndian);
    quint8 type = 0;
    QByteArray name;
    quint32 number = 0;
    in >> type;
    if (type == kStringValue) {
        in >> name >> number;
    }
    const auto fail = [](const QString& reason) {
        KSException::exceptionWithName(QStringLiteral("Archive"), reason).raise();
    };
    if (type != kStringValue || in.status() != QDataStream::Ok) {
        fail(QStringLiteral("no client identifier in archive data"));
    }
    if (number == 0) {
        fail(QStringLiteral("invalid client number"));
    }
    return {QString::fromUtf8(name), number};
}

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
