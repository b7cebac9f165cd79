#pragma once

#include "platform/WorkspacePlacement.h"

#include <QList>
#include <QString>

class QWindow;

// Records what each window asked for, in order: "all" or "active".
class FakeWorkspacePlacement final : public WorkspacePlacement
{
public:
    void joinAllWorkspaces(QWindow& window) override
    {
        m_windows.append(&window);
        m_requests.append(QStringLiteral("all"));
    }
    void moveToActiveWorkspace(QWindow& window) override
    {
        m_windows.append(&window);
        m_requests.append(QStringLiteral("active"));
    }
    QList<QWindow*> m_windows;
    QStringList m_requests;
};
