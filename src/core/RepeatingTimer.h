#pragma once

#include <chrono>
#include <functional>
#include <memory>

// A repeating timer of the main thread, behind a factory so that tests move time themselves.
// It stops when stopped or destroyed. Main thread only.
class RepeatingTimer
{
public:
    using Factory = std::function<std::unique_ptr<RepeatingTimer>(
        std::chrono::milliseconds interval, std::function<void()> fire)>;

    virtual ~RepeatingTimer() = default;
    virtual void stop() = 0;

    // Timers of the main event loop.
    static Factory mainThreadFactory();
};
