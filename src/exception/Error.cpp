#include "exception/Error.h"

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

namespace {
// Logs and exception descriptions show an error by its own description.
[[maybe_unused]] const bool s_describable =
    QMetaType::registerConverter<Error, QString>(&Error::description);
} // namespace
