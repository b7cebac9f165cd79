#include "errors/AlertInfo.h"

#include "errors/AlertTemplate.h"
#include "exception/Error.h"

#include <QObject>
#include <QStringList>

AlertInfo::AlertInfo(AlertActionSet actionSet)
    : m_actionSet(std::move(actionSet))
{}

AlertInfo::~AlertInfo() = default;

std::unique_ptr<AlertInfo> AlertInfo::clone() const
{
    return std::unique_ptr<AlertInfo>(new AlertInfo(*this));
}

quint64 AlertInfo::alertStyle() const
{
    return AlertTemplate::kCriticalStyle;
}

QString AlertInfo::message() const
{
    return QStringLiteral("Internal Alert error");
}

QString AlertInfo::informativeText() const
{
    return QStringLiteral("Something is seriously wrong with the alert system classes in this "
                          "application. Please chew out the developer.");
}

QString AlertInfo::helpTag() const
{
    return {};
}

Error AlertInfo::errorWithRecoveryAttempter(QObject* recoveryAttempter,
                                            const QVariantMap& extraInfo) const
{
    QVariantMap userInfo = extraInfo;
    if (recoveryAttempter != nullptr) {
        userInfo.insert(Error::kRecoveryAttempterKey, QVariant::fromValue(recoveryAttempter));
    }
    userInfo.insert(Error::kLocalizedDescriptionKey, message());
    userInfo.insert(Error::kLocalizedRecoverySuggestionKey, informativeText());
    QStringList titles;
    QVariantList codes;
    for (const qint32 action : m_actionSet.buttonActions()) {
        titles << AlertActionSet::descriptionForAction(action);
        codes << action;
    }
    userInfo.insert(Error::kLocalizedRecoveryOptionsKey, titles);
    if (!codes.isEmpty()) {
        userInfo.insert(kRecoveryActionsKey, codes);
    }
    userInfo.insert(kAlertInfoKey, QVariant::fromValue(std::shared_ptr<const AlertInfo>(clone())));
    return Error(kErrorDomain, 0, userInfo);
}
