#pragma once

/// Counts the calls of usleep() that other threads than the one that made the
/// object make while it lives. One object at a time.
class KovaSleepCounter {
public:
    KovaSleepCounter();
    ~KovaSleepCounter();
    KovaSleepCounter(const KovaSleepCounter &) = delete;
    KovaSleepCounter &operator=(const KovaSleepCounter &) = delete;

    int Count() const;
};
