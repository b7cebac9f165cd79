#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

// A platform error object: a domain, a code and a user info dictionary with the localized
// texts. Failures reported this way by a library are folded into a KSException.
class Error
{
public:
    static inline const QString kPOSIXDomain = QStringLiteral("POSIX");
    static inline const QString kOSStatusDomain = QStringLiteral("OSStatus");
    static inline const QString kURLDomain = QStringLiteral("URL");

    static inline const QString kLocalizedDescriptionKey = QStringLiteral("LocalizedDescription");
    static inline const QString kLocalizedFailureReasonKey =
        QStringLiteral("LocalizedFailureReason");
    static inline const QString kFailingURLStringKey = QStringLiteral("FailingURLString");

    Error() = default;
    Error(QString domain, qint64 code, QVariantMap userInfo = {});

    const QString& domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    const QVariantMap& userInfo() const { return m_userInfo; }
    QString localizedDescription() const;
    QString localizedFailureReason() const;
    QString failingURLString() const;
    QString description() const;

    bool operator==(const Error& other) const = default;

    static void registerArchivableClass();

private:
    QString m_domain;
    qint64 m_code = 0;
    QVariantMap m_userInfo;
};

Q_DECLARE_METATYPE(Error)
