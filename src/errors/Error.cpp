#include "errors/Error.h"

#include "foundation/KeyedArchive.h"
#include "foundation/KeyedDecoder.h"

#include <QObject>

Error::Error(QString domain, qint64 code, QVariantMap userInfo)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_userInfo(std::move(userInfo))
{}

QString Error::localizedDescription() const
{
    return m_userInfo.value(kLocalizedDescriptionKey).toString();
}

QString Error::localizedFailureReason() const
{
    return m_userInfo.value(kLocalizedFailureReasonKey).toString();
}

QString Error::failingURLString() const
{
    return m_userInfo.value(kFailingURLStringKey).toString();
}

QString Error::localizedRecoverySuggestion() const
{
    return m_userInfo.value(kLocalizedRecoverySuggestionKey).toString();
}

QStringList Error::localizedRecoveryOptions() const
{
    return m_userInfo.value(kLocalizedRecoveryOptionsKey).toStringList();
}

QObject* Error::recoveryAttempter() const
{
    return m_userInfo.value(kRecoveryAttempterKey).value<QObject*>();
}

QString Error::description() const
{
    const QString text = localizedDescription();
    return QStringLiteral("Error Domain=%1 Code=%2%3")
        .arg(m_domain)
        .arg(m_code)
        .arg(text.isEmpty() ? QString() : QStringLiteral(" \"%1\"").arg(text));
}

void Error::registerArchivableClass()
{
    KeyedArchive::registerClass<Error>(
        QStringLiteral("Error"),
        [](const QVariant& object) {
            const auto error = object.value<Error>();
            return QVariantMap{{QStringLiteral("domain"), error.domain()},
                               {QStringLiteral("code"), error.code()},
                               {QStringLiteral("userInfo"), error.userInfo()}};
        },
        [](const KeyedDecoder& coder) {
            auto allowed = KeyedArchive::propertyListClasses();
            const Error error(
                coder.decodeStringObject(QStringLiteral("domain")).value_or(QString()),
                coder.decodeInt64(QStringLiteral("code")),
                coder.decodeObject(QStringLiteral("userInfo"), allowed).toMap());
            return QVariant::fromValue(error);
        });
    QMetaType::registerConverter<Error, QString>(&Error::description);
}

namespace {
// Registered as soon as this file is linked in, so a peer's archive can always carry one.
[[maybe_unused]] const bool s_registered = (Error::registerArchivableClass(), true);
} // namespace
