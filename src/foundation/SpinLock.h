#pragma once

#include <atomic>
#include <thread>

// A lock for a few instructions' worth of work (one write, one table insert), where a mutex's
// sleep and wake-up would cost more than the wait. Use it with std::lock_guard.
class SpinLock
{
public:
    void lock() noexcept
    {
        while (m_flag.test_and_set(std::memory_order_acquire)) {
            std::this_thread::yield();
        }
    }
    void unlock() noexcept { m_flag.clear(std::memory_order_release); }

private:
    std::atomic_flag m_flag = ATOMIC_FLAG_INIT;
};
