#pragma once

#include "platform/ApplicationSession.h"

#include <QStringList>

// A session whose quit reason and windows a test chooses; it records what it is asked to do.
class FakeApplicationSession final : public ApplicationSession
{
public:
    quint32 currentQuitReason() const override { return m_quitReason; }
    void disableRelaunchOnLogin() override { ++m_relaunchDisabled; }
    bool hasVisiblePanel() const override { return m_panelVisible; }
    void activateApplication(const QString& identifier) override { m_activated.append(identifier); }

    quint32 m_quitReason = 0;
    bool m_panelVisible = false;
    int m_relaunchDisabled = 0;
    QStringList m_activated;
};
