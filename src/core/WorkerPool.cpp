#include "core/WorkerPool.h"

QThreadPool& WorkerPool::shared()
{
    static QThreadPool* pool = [] {
        auto* made = new QThreadPool;
        made->setMaxThreadCount(4096);
        made->setExpiryTimeout(10000);
        return made;
    }();
    return *pool;
}
