#pragma once

#include <functional>
#include <memory>

// The main thread's queue, as the rest of the program uses it.
class MainQueue
{
public:
    static bool isMainThread();
    // Always queued, even from the main thread.
    static void dispatchMainAsync(std::function<void()> work);
    // Inline on the main thread; elsewhere run on the main thread while the caller waits.
    static void dispatchMainSync(const std::function<void()>& work);
    // Runs the work still queued; main thread, once the event loop has ended. Work left in the
    // queue would be destroyed in the application object's teardown, under the framework's
    // event lock, where a widget it holds deadlocks as it goes.
    static void runPendingWork();
    // Inline on the main thread; elsewhere queued.
    static void dispatchMainSoon(std::function<void()> work);
    // Main thread only: the last reference is dropped on a low-priority background thread,
    // once per turn of the main loop for everything collected in that turn. Elsewhere, nothing
    // is done and the caller's reference goes as usual.
    static void releaseInBackground(std::shared_ptr<void> object);
};
