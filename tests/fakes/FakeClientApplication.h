#pragma once

#include "platform/ClientApplication.h"

#include <QList>
#include <QPair>

// Stands in for the main application; answers with the codes a test chooses.
class FakeClientApplication final : public ClientApplication
{
public:
    FakeClientApplication() { setDefaultClient(this); }
    ~FakeClientApplication() override { setDefaultClient(nullptr); }
    FakeClientApplication(const FakeClientApplication&) = delete;
    FakeClientApplication& operator=(const FakeClientApplication&) = delete;

    int locate() override { return m_locateResult; }
    int activateAction(const QString& action, const QVariantList& parameters) override
    {
        m_actions.append({action, parameters});
        return m_activateResult;
    }
    int launch() override
    {
        m_actions.append({QStringLiteral("launch"), {}});
        return m_activateResult;
    }

    int m_locateResult = kNoError;
    int m_activateResult = kNoError;
    QList<QPair<QString, QVariantList>> m_actions;
};
