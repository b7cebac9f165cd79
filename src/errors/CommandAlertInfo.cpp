#include "errors/CommandAlertInfo.h"

#include "errors/AlertTemplates.h"
#include "exception/KSException.h"

#include <stdexcept>

namespace {
const QString kExplainKey = QStringLiteral(".Explain");
const QString kCommandNameKey = QStringLiteral(".Command");
const QString kDataBadKey = QStringLiteral(".DataBad");
const QString kIndexBadKey = QStringLiteral(".IndexBad");
const QString kExceptionKey = QStringLiteral(".Exception");
const QString kCanceledPrefix = QStringLiteral("canceled_");

// A detail as a lookup key; an absent detail gives the null string, which matches nothing.
QString detailText(const QVariantMap& details, const QString& key)
{
    const QVariant value = details.value(key);
    return value.isValid() ? value.toString() : QString();
}

std::unique_ptr<ContextualAlertInfo> withContext(std::unique_ptr<ContextualAlertInfo> info,
                                                 const Exception& exception)
{
    if (info) {
        info->setContextUsingException(exception);
    }
    return info;
}

std::unique_ptr<ContextualAlertInfo> lookUp(std::span<const AlertAssociation> alertList,
                                            const QString& key)
{
    return ContextualAlertInfo::withAlertTemplateIn(alertList, key);
}

std::unique_ptr<ContextualAlertInfo> alertForKSException(const KSException& exception)
{
    const QVariantMap& details = exception.details();
    if (auto info = lookUp(AlertTemplates::archiveAlerts(), detailText(details, kExplainKey))) {
        return info;
    }
    if (exception.name() == QStringLiteral("Data")) {
        if (auto info = lookUp(AlertTemplates::posixErrorAlerts(),
                               detailText(details, QStringLiteral("POSIXErr")))) {
            return info;
        }
        if (auto info = lookUp(AlertTemplates::osErrorAlerts(),
                               detailText(details, QStringLiteral("OSErr")))) {
            return info;
        }
    }
    // Flags count as set whenever present, as everywhere else.
    if (exception.hasFlag(kDataBadKey)) {
        return ContextualAlertInfo::withAlertTemplate(&AlertTemplates::damagedData());
    }
    if (exception.hasFlag(kIndexBadKey)) {
        return ContextualAlertInfo::withAlertTemplate(&AlertTemplates::badIndex());
    }
    if (auto info = lookUp(AlertTemplates::exceptionNameAlerts(), exception.name())) {
        return info;
    }
    return ContextualAlertInfo::withAlertTemplate(&AlertTemplates::internalError());
}
} // namespace

std::unique_ptr<ContextualAlertInfo> AlertInfoForFileException(const Exception* exception)
{
    if (exception == nullptr) {
        throw std::logic_error("fileException!=nil");
    }
    return withContext(
        lookUp(AlertTemplates::fileCommandAlerts(), detailText(exception->userInfo(), kExplainKey)),
        *exception);
}

std::unique_ptr<ContextualAlertInfo> AlertInfoForCanceledCommand(const Exception* cancelException)
{
    if (cancelException == nullptr) {
        throw std::logic_error("cancelException!=nil");
    }
    if (cancelException->name() != QStringLiteral("Cancel")) {
        return nullptr;
    }
    return withContext(lookUp(AlertTemplates::canceledAlerts(),
                              detailText(cancelException->userInfo(), kCommandNameKey)),
                       *cancelException);
}

std::unique_ptr<ContextualAlertInfo> AlertInfoForAnyCommand(const Exception* exception)
{
    if (exception == nullptr) {
        throw std::logic_error("exception!=nil");
    }
    const KSException* ks = exception->asKSException();
    auto info = ks != nullptr
                    ? alertForKSException(*ks)
                    : ContextualAlertInfo::withAlertTemplate(&AlertTemplates::internalError());
    // The guarantee of a titled alert with Close and Open Log, whatever the tables hold.
    if (!info) {
        info = ContextualAlertInfo::withAlertTemplate(&AlertTemplates::lastResort());
    }
    return withContext(std::move(info), *exception);
}

std::unique_ptr<ContextualAlertInfo> AlertInfoForFailureSummary(const QVariantMap& summary)
{
    const QString explain = detailText(summary, kExplainKey);
    if (explain.startsWith(kCanceledPrefix)) {
        if (auto info =
                lookUp(AlertTemplates::canceledAlerts(), explain.mid(kCanceledPrefix.size()))) {
            return info;
        }
    } else {
        if (auto info = lookUp(AlertTemplates::archiveAlerts(), explain)) {
            return info;
        }
        if (auto info = lookUp(AlertTemplates::fileCommandAlerts(), explain)) {
            return info;
        }
    }
    if (summary.value(kDataBadKey).toBool()) {
        return ContextualAlertInfo::withAlertTemplate(&AlertTemplates::damagedData());
    }
    if (summary.value(kIndexBadKey).toBool()) {
        return ContextualAlertInfo::withAlertTemplate(&AlertTemplates::badIndex());
    }
    return lookUp(AlertTemplates::exceptionNameAlerts(), detailText(summary, kExceptionKey));
}
