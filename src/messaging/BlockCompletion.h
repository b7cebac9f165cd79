#pragma once

#include "exception/Error.h"

#include <QMutex>
#include <QWaitCondition>
#include <optional>

class PlatformConnection;

// The end of one synchronous block: the first of its barrier's reply, an error of one of its
// messages, or the loss of its connection ends it, and nothing that comes later changes that.
// Each block has its own, so a late answer can never end (or hang) another block.
class BlockCompletion
{
public:
    explicit BlockCompletion(const PlatformConnection* connection);
    BlockCompletion(const BlockCompletion&) = delete;
    BlockCompletion& operator=(const BlockCompletion&) = delete;

    const PlatformConnection* connection() const { return m_connection; }

    // Nothing for success. Only the first call counts.
    void finish(std::optional<Error> error);
    // Waits without limit: the bus ends every call, with its reply or with a timeout error.
    std::optional<Error> wait();

private:
    const PlatformConnection* m_connection;
    QMutex m_mutex;
    QWaitCondition m_finished;
    bool m_done = false;
    std::optional<Error> m_error;
};
