#pragma once

#include "errors/AlertActionSet.h"

#include <QMetaType>
#include <QString>
#include <QVariantMap>
#include <memory>

class Error;
class QObject;

// Everything an alert shows: style, texts, help anchor and buttons. Subclasses supply the
// texts; the base only has fallbacks that say the alert classes themselves went wrong. The
// platform alert built from it lives with the user interface (AlertBox), so that this layer
// runs without a display.
class AlertInfo
{
public:
    static inline const QString kErrorDomain = QStringLiteral("KestromErrorDomain");
    static inline const QString kRecoveryActionsKey = QStringLiteral("KSRecoveryActions");
    static inline const QString kAlertInfoKey = QStringLiteral("KSAlertInfo");

    AlertInfo() = default;
    explicit AlertInfo(AlertActionSet actionSet);
    virtual ~AlertInfo();

    virtual std::unique_ptr<AlertInfo> clone() const;

    // A platform alert style: 0 warning, 1 informational, 2 critical.
    virtual quint64 alertStyle() const;
    virtual QString message() const;
    virtual QString informativeText() const;
    // An anchor in the help book; empty when the alert offers no help.
    virtual QString helpTag() const;

    const AlertActionSet& actionSet() const { return m_actionSet; }
    // Callers may narrow or widen the buttons before the alert is shown.
    AlertActionSet& actionSet() { return m_actionSet; }

    // The alert as an error object in the product's domain: texts as localized description
    // and recovery suggestion, buttons as recovery options, and a copy of this alert. The
    // attempter (may be null) is stored as is; entries of extraInfo give way to these.
    Error errorWithRecoveryAttempter(QObject* recoveryAttempter,
                                     const QVariantMap& extraInfo) const;

protected:
    // Copying is for clone(): a copy through a base reference would lose the subclass.
    AlertInfo(const AlertInfo&) = default;
    AlertInfo& operator=(const AlertInfo&) = default;

private:
    AlertActionSet m_actionSet;
};

Q_DECLARE_METATYPE(std::shared_ptr<const AlertInfo>)
