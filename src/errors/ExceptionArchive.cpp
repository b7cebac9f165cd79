#include "errors/ExceptionArchive.h"

#include "exception/Error.h"
#include "exception/KSException.h"
#include "exception/LogHook.h"
#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

namespace {
QVariantMap encodeException(const Exception& exception)
{
    return {{QStringLiteral("name"), exception.name()},
            {QStringLiteral("reason"), exception.reason()},
            {QStringLiteral("userInfo"), exception.userInfo()}};
}

template <typename T> QVariant decodeException(const KeyedDecoder& coder)
{
    // A user info may hold anything a detail setter stores: property-list values, errors and
    // other exceptions (a "Cause").
    auto allowed = KeyedArchive::propertyListClasses();
    allowed << QStringLiteral("Exception") << QStringLiteral("KSException")
            << QStringLiteral("Error");
    T exception(coder.decodeStringObject(QStringLiteral("name")).value_or(QString()),
                coder.decodeStringObject(QStringLiteral("reason")).value_or(QString()),
                coder.decodeObject(QStringLiteral("userInfo"), allowed).toMap());
    // Addresses of this process's decoder say nothing about where the peer failed.
    exception.setCallStackReturnAddresses({});
    return QVariant::fromValue(exception);
}

QVariantMap encodeError(const QVariant& object)
{
    const auto error = object.value<Error>();
    return {{QStringLiteral("domain"), error.domain()},
            {QStringLiteral("code"), error.code()},
            {QStringLiteral("userInfo"), error.userInfo()}};
}

QVariant decodeError(const KeyedDecoder& coder)
{
    const Error error(
        coder.decodeStringObject(QStringLiteral("domain")).value_or(QString()),
        coder.decodeInt64(QStringLiteral("code")),
        coder.decodeObject(QStringLiteral("userInfo"), KeyedArchive::propertyListClasses())
            .toMap());
    return QVariant::fromValue(error);
}
} // namespace

QByteArray ExceptionArchive::dataForException(const Exception& exception)
{
    return KeyedArchive::archivedData(exception.toVariant());
}

std::unique_ptr<Exception> ExceptionArchive::exceptionFromData(const QByteArray& data)
{
    if (data.isEmpty()) {
        return nullptr;
    }
    registerArchivableClasses();
    // A peer's own exception class keeps its name, reason and details as a plain exception.
    const QVariant root = KeyedArchive::unarchiveObjectWithData(data, QStringLiteral("Exception"));
    auto decoded = Exception::fromVariant(root);
    if (!decoded) {
        const QString className = KeyedArchive::classNameOf(root);
        LogHook::logMessage(
            9, QStringLiteral("%1 exception object was actually a %2")
                   .arg(QStringLiteral("+[Exception exceptionFromData:]"),
                        className.isEmpty() ? QString::fromLatin1(root.typeName()) : className));
    }
    return decoded;
}

void ExceptionArchive::registerArchivableClasses()
{
    static const bool registered = [] {
        KeyedArchive::registerClass<Exception>(
            QStringLiteral("Exception"),
            [](const QVariant& object) { return encodeException(object.value<Exception>()); },
            decodeException<Exception>);
        KeyedArchive::registerClass<KSException>(
            QStringLiteral("KSException"),
            [](const QVariant& object) { return encodeException(object.value<KSException>()); },
            decodeException<KSException>);
        KeyedArchive::registerClass<Error>(QStringLiteral("Error"), encodeError, decodeError);
        return true;
    }();
    Q_UNUSED(registered);
}

namespace {
// Registered as soon as this file is linked in: a peer's archive can always carry one.
[[maybe_unused]] const bool s_registered = (ExceptionArchive::registerArchivableClasses(), true);
} // namespace
