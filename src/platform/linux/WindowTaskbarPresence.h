#pragma once

#include "platform/TaskbarPresence.h"

#include <QObject>

class QWindow;

// The activation policy as a Linux desktop shows it: a regular application's main windows
// are taskbar entries; an accessory's become utility windows, which taskbars leave out.
// Windows shown later follow the policy too. Main thread only.
class WindowTaskbarPresence final : public QObject, public TaskbarPresence
{
    Q_OBJECT
public:
    explicit WindowTaskbarPresence(Policy initial, QObject* parent = nullptr);

    Policy activationPolicy() const override { return m_policy; }
    void setActivationPolicy(Policy policy) override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void apply(QWindow& window) const;

    Policy m_policy;
};
