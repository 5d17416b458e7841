#pragma once

/// Shortens the long usleep()s of the whole program, the library's included, by
/// this divisor while the object lives: the monitor's second is what makes a
/// server's end slow. Waits of less than 100 ms are left alone. One at a time.
class KovaShortSleeps {
public:
    explicit KovaShortSleeps(unsigned nDivisor);
    ~KovaShortSleeps();
    KovaShortSleeps(const KovaShortSleeps &) = delete;
    KovaShortSleeps &operator=(const KovaShortSleeps &) = delete;
};
