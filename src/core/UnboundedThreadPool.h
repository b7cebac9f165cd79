#pragma once

#include <QThreadPool>

// A pool that starts a thread for every job that finds none idle, for jobs that may block for
// minutes and must never queue behind one another. Idle threads end after ten seconds.
inline QThreadPool* makeUnboundedThreadPool()
{
    auto* pool = new QThreadPool;
    pool->setMaxThreadCount(4096);
    pool->setExpiryTimeout(10000);
    return pool;
}
