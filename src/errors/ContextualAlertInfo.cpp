#include "errors/ContextualAlertInfo.h"

#include "exception/Exception.h"
#include "exception/ValueDescription.h"

#include <stdexcept>

std::atomic<ContextualAlertInfo::CommandNamer> ContextualAlertInfo::s_commandNamer{nullptr};

namespace {
const QString kCommandKey = QStringLiteral("Command");
const QString kCommandNameKey = QStringLiteral(".Command");
const QString kOSErrKey = QStringLiteral("OSErr");
} // namespace

ContextualAlertInfo::ContextualAlertInfo(const AlertTemplate& alertTemplate, QVariantMap context)
    : CannedAlertInfo(alertTemplate)
    , m_context(std::move(context))
{}

std::unique_ptr<ContextualAlertInfo>
ContextualAlertInfo::withAlertTemplate(const AlertTemplate* alertTemplate)
{
    if (alertTemplate == nullptr) {
        return nullptr;
    }
    return std::make_unique<ContextualAlertInfo>(*alertTemplate);
}

std::unique_ptr<ContextualAlertInfo>
ContextualAlertInfo::withAlertTemplateIn(std::span<const AlertAssociation> alertList,
                                         const QString& key)
{
    return withAlertTemplate(templateIn(alertList, key));
}

std::unique_ptr<AlertInfo> ContextualAlertInfo::clone() const
{
    return std::unique_ptr<AlertInfo>(new ContextualAlertInfo(*this));
}

void ContextualAlertInfo::setContext(QVariantMap context)
{
    m_context = std::move(context);
}

void ContextualAlertInfo::setContextUsingException(const Exception& exception)
{
    setContext(contextDictionaryFromException(exception));
}

QString ContextualAlertInfo::message() const
{
    return replacePlaceholders(CannedAlertInfo::message(), m_context);
}

QString ContextualAlertInfo::informativeText() const
{
    return replacePlaceholders(CannedAlertInfo::informativeText(), m_context);
}

QVariantMap ContextualAlertInfo::contextDictionaryFromException(const Exception& exception)
{
    QVariantMap context = exception.userInfo();
    const QVariant commandName = context.value(kCommandNameKey);
    if (commandName.isValid()) {
        context.insert(kCommandKey, humanReadableNameForCommandName(commandName.toString()));
    }
    context.insert(QStringLiteral("ExceptionName"), exception.name());
    context.insert(QStringLiteral("ExceptionReason"), exception.reason());
    if (!context.contains(kCommandKey)) {
        context.insert(kCommandKey, QStringLiteral("Command"));
    }
    if (!context.contains(kOSErrKey)) {
        context.insert(kOSErrKey, QStringLiteral("none"));
    }
    return context;
}

QString ContextualAlertInfo::replacePlaceholders(const QString& text, const QVariantMap& context)
{
    if (text.isNull()) {
        throw std::logic_error("message!=nil");
    }
    if (!text.contains(QLatin1Char('{')) && !text.contains(QLatin1Char('}'))) {
        return text;
    }
    QString filled = text;
    for (auto it = context.cbegin(); it != context.cend(); ++it) {
        const QString placeholder = QLatin1Char('{') + it.key() + QLatin1Char('}');
        const qsizetype at = filled.indexOf(placeholder);
        if (at >= 0) {
            filled.replace(at, placeholder.size(), ValueDescription::describe(it.value()));
        }
    }
    return filled;
}

void ContextualAlertInfo::setCommandNamer(CommandNamer namer)
{
    s_commandNamer.store(namer);
}

QString ContextualAlertInfo::humanReadableNameForCommandName(const QString& commandName)
{
    const CommandNamer namer = s_commandNamer.load();
    return namer != nullptr ? namer(commandName) : QStringLiteral("Command");
}
