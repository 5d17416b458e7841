// Linked into kova_bench_host_unpaid in the place of two of the library's functions: the
// millisecond that each waiting client costs its group for a packet passes at once. So a crowd that
// joins shows what it costs apart from that.
#include "foundation/clock.h"
#include "foundation/event.h"

namespace {

/// Sending threads wait longer than this for work, and no longer for what is left to pay.
constexpr uint32_t kLongestPay = 10;

thread_local uint64_t t_nSkipped = 0; // microseconds

} // namespace

// The names are those of the linker, which asks for them (ld --wrap).
extern "C" {

void KovaRealEventWait(KovaEvent *pEvent,
                       uint32_t nMilliseconds) asm("__real__Z13KovaEventWaitP9KovaEventj");
void KovaUnpaidEventWait(KovaEvent *pEvent,
                         uint32_t nMilliseconds) asm("__wrap__Z13KovaEventWaitP9KovaEventj");
uint64_t KovaRealClockMonotonic() asm("__real__Z18KovaClockMonotonicv");
uint64_t KovaUnpaidClockMonotonic() asm("__wrap__Z18KovaClockMonotonicv");

void KovaUnpaidEventWait(KovaEvent *pEvent, uint32_t nMilliseconds)
{
    if (nMilliseconds > kLongestPay)
        KovaRealEventWait(pEvent, nMilliseconds);
    else
        t_nSkipped += uint64_t{nMilliseconds} * 1000;
}

uint64_t KovaUnpaidClockMonotonic()
{
    return KovaRealClockMonotonic() + t_nSkipped;
}

} // extern "C"
