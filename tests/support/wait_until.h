#pragma once

#include <chrono>
#include <thread>

/// Polls a condition every few milliseconds; returns whether it came true in time.
template <typename Condition> bool KovaWaitUntil(int nMilliseconds, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(nMilliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/// The same with the time in which everything comes true that does so at all.
template <typename Condition> bool KovaWaitUntil(Condition condition)
{
    return KovaWaitUntil(10000, condition);
}
