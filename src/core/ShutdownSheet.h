#pragma once

#include <QtGlobal>
#include <functional>

// The seam of the sheet that holds back a log-out or shut-down while commands run. It answers
// exactly once: true to go on with the quit, false to cancel it.
class ShutdownSheet
{
public:
    using Reply = std::function<void(bool shouldTerminate)>;

    virtual ~ShutdownSheet() = default;
    virtual void runShutdownSheet(quint32 reason, Reply reply) = 0;
};
