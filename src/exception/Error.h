#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QObject;

// A platform error object: a domain, a code and a user info dictionary with the localized
// texts. Failures reported this way by a library are folded into a KSException; an alert can
// also be handed on as one, with its buttons as recovery options.
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
    static inline const QString kLocalizedRecoverySuggestionKey =
        QStringLiteral("LocalizedRecoverySuggestion");
    // Button titles, in the order the buttons appear.
    static inline const QString kLocalizedRecoveryOptionsKey =
        QStringLiteral("LocalizedRecoveryOptions");
    // A QObject that acts on the chosen option; it is the presenter's to define how.
    static inline const QString kRecoveryAttempterKey = QStringLiteral("RecoveryAttempter");

    Error() = default;
    Error(QString domain, qint64 code, QVariantMap userInfo = {});

    const QString& domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    const QVariantMap& userInfo() const { return m_userInfo; }
    QString localizedDescription() const;
    QString localizedFailureReason() const;
    QString failingURLString() const;
    QString localizedRecoverySuggestion() const;
    QStringList localizedRecoveryOptions() const;
    QObject* recoveryAttempter() const;
    QString description() const;

    bool operator==(const Error& other) const = default;

private:
    QString m_domain;
    qint64 m_code = 0;
    QVariantMap m_userInfo;
};

Q_DECLARE_METATYPE(Error)
