#pragma once

#include "platform/DockBadge.h"

#include <QList>

// Keeps every badge count it is given.
class FakeDockBadge final : public DockBadge
{
public:
    void setBadgeCount(quint64 count) override { m_counts.append(count); }
    QList<quint64> m_counts;
};
