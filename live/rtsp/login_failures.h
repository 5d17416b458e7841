#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kLoginFailureSlots = 64;
constexpr uint64_t kLoginFailureForgotten = 30 * 1000000; ///< µs until one failure is forgotten

/// Wrong answers of one address.
struct KovaLoginFailure {
    uint32_t nAddress;
    uint32_t nFailures; ///< 0: the slot is free
    uint64_t nLast;     ///< µs, monotonic: of the last one, or of the last one forgotten
    uint64_t nUntil;    ///< µs, monotonic: no answer is looked at before
};

/// The addresses that failed last. Of more than there are slots, the one whose last
/// failure is the longest ago is forgotten. Zeroed at the beginning; guarded by the owner.
struct KovaLoginFailures {
    KovaLoginFailure slots[kLoginFailureSlots];
};

/// How long answers of that address are not looked at: milliseconds, 0 for not at all.
uint32_t KovaLoginFailuresWait(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow);

/// Notes an answer. After a right one the address starts anew. The first wrong one costs
/// nothing (people mistype), the next ones 250, 500, 1,000 and 2,000 ms, and so on.
/// @return milliseconds to wait, as KovaLoginFailuresWait will tell
uint32_t KovaLoginFailuresNote(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow,
                               bool bRight);
