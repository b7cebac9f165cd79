#pragma once

#include "core/ShutdownSheet.h"
#include "core/UnavailableNotice.h"

// Stands in for the shutdown sheet until it is built: says so once, and lets a held quit go on
// rather than never end.
class UnavailableShutdownSheet final : public ShutdownSheet
{
public:
    void runShutdownSheet(quint32 reason, Reply reply) override;

private:
    UnavailableNotice m_notice;
};
