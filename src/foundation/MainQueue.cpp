#include "foundation/MainQueue.h"

#include <QCoreApplication>
#include <QRunnable>
#include <QThread>
#include <QThreadPool>
#include <limits>
#include <vector>

namespace {
std::vector<std::shared_ptr<void>>& pendingReleases()
{
    static std::vector<std::shared_ptr<void>> pending; // main thread only
    return pending;
}

QObject* mainContext()
{
    return QCoreApplication::instance();
}
} // namespace

bool MainQueue::isMainThread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    return app != nullptr && QThread::currentThread() == app->thread();
}

void MainQueue::dispatchMainAsync(std::function<void()> work)
{
    if (QObject* context = mainContext()) {
        QMetaObject::invokeMethod(context, std::move(work), Qt::QueuedConnection);
    }
}

void MainQueue::runPendingWork()
{
    if (QObject* context = mainContext(); context && isMainThread()) {
        QCoreApplication::sendPostedEvents(context, QEvent::MetaCall);
    }
}

void MainQueue::dispatchMainSync(const std::function<void()>& work)
{
    if (isMainThread()) {
        work();
    } else if (QObject* context = mainContext()) {
        QMetaObject::invokeMethod(context, work, Qt::BlockingQueuedConnection);
    }
}

void MainQueue::dispatchMainSoon(std::function<void()> work)
{
    if (isMainThread()) {
        work();
    } else {
        dispatchMainAsync(std::move(work));
    }
}

void MainQueue::releaseInBackground(std::shared_ptr<void> object)
{
    if (!isMainThread() || !object) {
        return;
    }
    auto& pending = pendingReleases();
    pending.push_back(std::move(object));
    if (pending.size() > 1) {
        return; // a hand-over is already queued for this turn
    }
    dispatchMainAsync([] {
        auto batch = std::make_shared<std::vector<std::shared_ptr<void>>>();
        batch->swap(pendingReleases());
        // The pool runs higher numbers first: releases wait behind every other job.
        QThreadPool::globalInstance()->start([batch] { batch->clear(); },
                                             std::numeric_limits<int>::min());
    });
}
