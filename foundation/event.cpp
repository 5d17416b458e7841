#include "foundation/event.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

enum : uint32_t {
    kIdle = 0,
    kSignalled = 1,
    kWaiting = 2
};

long Futex(std::atomic<uint32_t> *pWord, int nOperation, uint32_t nValue, const void *pTimeout)
{
    return syscall(SYS_futex, reinterpret_cast<uint32_t *>(pWord), nOperation, nValue, pTimeout,
                   nullptr, 0);
}

} // namespace

void KovaEventSignal(KovaEvent *pEvent)
{
    if (pEvent->nWord.exchange(kSignalled, std::memory_order_acq_rel) == kWaiting)
        Futex(&pEvent->nWord, FUTEX_WAKE_PRIVATE, 1, nullptr);
}

void KovaEventWait(KovaEvent *pEvent, uint32_t nMilliseconds)
{
    uint32_t nSeen = kIdle;
    if (pEvent->nWord.compare_exchange_strong(nSeen, kWaiting, std::memory_order_acq_rel)) {
        // The system call takes the machine's own word size, whatever width the
        // C library gives its time_t. A relative time-out does not mind when
        // somebody sets the clock.
        struct {
            long nSeconds;
            long nNanoseconds;
        } timeout = {static_cast<long>(nMilliseconds / 1000),
                     static_cast<long>(nMilliseconds % 1000) * 1000000L};
        Futex(&pEvent->nWord, FUTEX_WAIT_PRIVATE, kWaiting, &timeout);
    }
    pEvent->nWord.exchange(kIdle, std::memory_order_acq_rel);
}
