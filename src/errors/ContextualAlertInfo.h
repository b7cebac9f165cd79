#pragma once

#include "errors/CannedAlertInfo.h"

#include <QVariantMap>
#include <atomic>

class Exception;

// A canned alert whose texts are filled in from a context: "{Key}" placeholders take the
// description of the context's value for Key.
class ContextualAlertInfo : public CannedAlertInfo
{
public:
    // Turns a command name into the name users see ("capture" -> "Capture").
    using CommandNamer = QString (*)(const QString& commandName);

    explicit ContextualAlertInfo(const AlertTemplate& alertTemplate, QVariantMap context = {});

    static std::unique_ptr<ContextualAlertInfo>
    withAlertTemplate(const AlertTemplate* alertTemplate);
    static std::unique_ptr<ContextualAlertInfo>
    withAlertTemplateIn(std::span<const AlertAssociation> alertList, const QString& key);

    std::unique_ptr<AlertInfo> clone() const override;

    const QVariantMap& context() const { return m_context; }
    void setContext(QVariantMap context);
    void setContextUsingException(const Exception& exception);

    QString message() const override;
    QString informativeText() const override;

    // The exception's user info, plus "Command" (the readable command name, or the word
    // "Command"), "ExceptionName", "ExceptionReason" and "OSErr" ("none" when absent).
    static QVariantMap contextDictionaryFromException(const Exception& exception);
    // Replaces the first occurrence of each "{Key}" of the context; other placeholders stay.
    // A null text is a programming error: std::logic_error.
    static QString replacePlaceholders(const QString& text, const QVariantMap& context);

    // The command names live with command tracking, above this layer, which installs its
    // namer at start-up. Until then every command reads as "Command", as an unknown one does.
    static void setCommandNamer(CommandNamer namer);
    static QString humanReadableNameForCommandName(const QString& commandName);

protected:
    ContextualAlertInfo(const ContextualAlertInfo&) = default;
    ContextualAlertInfo& operator=(const ContextualAlertInfo&) = default;

private:
    QVariantMap m_context;
    static std::atomic<CommandNamer> s_commandNamer;
};
