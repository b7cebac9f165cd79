#pragma once

#include "core/SchedulerClient.h"
#include "core/UnavailableNotice.h"

// Stands in for the scheduler client until it is built: says once what cannot be done, and
// refuses a reschedule rather than pretend it happened.
class UnavailableScheduler final : public SchedulerClient
{
public:
    void initializeScheduler() override;
    std::optional<QVariantMap> queryNextScheduledActionInfo() override { return std::nullopt; }
    bool setActionToExecuteAt(const QString& actionID, double seconds) override;
    bool connected() const override { return false; }
    std::optional<QDateTime> holdDate() const override { return std::nullopt; }
    std::optional<QVariantList> queryActionsInfo() override { return std::nullopt; }
    void holdSchedules(int) override;
    void resumeSchedules() override;

private:
    UnavailableNotice m_notice;
};
