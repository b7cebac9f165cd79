#include "messaging/NodeIdentifier.h"

#include "exception/ValueDescription.h"
#include "messaging/ClientIdentifier.h"
#include "messaging/VolumeIdentifier.h"

#include <QHash>
#include <cmath>
#include <limits>

namespace {
// A number in the one form that equal values share: a signed integer when it fits, an
// unsigned one only beyond the signed range, a double only when it is no integer at all.
struct Number
{
    enum class Kind
    {
        Signed,
        Unsigned,
        Real
    } kind = Kind::Signed;
    qint64 signedValue = 0;
    quint64 unsignedValue = 0;
    double realValue = 0;

    bool operator==(const Number& other) const = default;
};

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

bool isNumber(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

Number fromUnsigned(quint64 value)
{
    if (value <= quint64(std::numeric_limits<qint64>::max())) {
        return {Number::Kind::Signed, qint64(value), 0, 0};
    }
    return {Number::Kind::Unsigned, 0, value, 0};
}

Number fromDouble(double value)
{
    if (std::isfinite(value) && value == std::trunc(value)) {
        if (value >= -kTwoTo63 && value < kTwoTo63) {
            return {Number::Kind::Signed, qint64(value), 0, 0};
        }
        if (value >= kTwoTo63 && value < kTwoTo64) {
            return {Number::Kind::Unsigned, 0, quint64(value), 0};
        }
    }
    return {Number::Kind::Real, 0, 0, value};
}

Number normalised(const QVariant& value)
{
    switch (value.metaType().id()) {
    case QMetaType::Float:
    case QMetaType::Double:
        return fromDouble(value.toDouble());
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return fromUnsigned(value.toULongLong());
    default:
        return {Number::Kind::Signed, value.toLongLong(), 0, 0};
    }
}

size_t hashOf(const Number& number)
{
    switch (number.kind) {
    case Number::Kind::Signed:
        break;
    case Number::Kind::Unsigned:
        return qHash(number.unsignedValue);
    case Number::Kind::Real:
        return qHash(number.realValue);
    }
    return qHash(number.signedValue);
}

template <typename T> bool holds(const QVariant& value)
{
    return value.metaType() == QMetaType::fromType<T>();
}
} // namespace

bool NodeIdentifier::isEqual(const QVariant& a, const QVariant& b)
{
    if (isNumber(a) || isNumber(b)) {
        return isNumber(a) && isNumber(b) && normalised(a) == normalised(b);
    }
    if (a.metaType() != b.metaType()) {
        return false;
    }
    if (holds<ClientIdentifier>(a)) {
        return a.value<ClientIdentifier>().isEqual(b.value<ClientIdentifier>());
    }
    if (holds<VolumeIdentifier>(a)) {
        return a.value<VolumeIdentifier>().isEqual(b.value<VolumeIdentifier>());
    }
    return a == b;
}

size_t NodeIdentifier::hash(const QVariant& node)
{
    if (isNumber(node)) {
        return hashOf(normalised(node));
    }
    if (holds<ClientIdentifier>(node)) {
        return node.value<ClientIdentifier>().hash();
    }
    if (holds<VolumeIdentifier>(node)) {
        return node.value<VolumeIdentifier>().hash();
    }
    if (holds<QString>(node)) {
        return qHash(node.toString());
    }
    // Classes registered later have no hash known here; equal ones describe themselves alike.
    return qHash(description(node));
}

QString NodeIdentifier::name(const QVariant& node)
{
    if (holds<ClientIdentifier>(node)) {
        return node.value<ClientIdentifier>().name();
    }
    return description(node);
}

QString NodeIdentifier::description(const QVariant& node)
{
    return ValueDescription::describe(node);
}
