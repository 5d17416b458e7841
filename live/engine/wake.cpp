#include "live/engine/wake.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

bool KovaWakeOpen(KovaWake *pWake)
{
    const int nEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (nEvent >= 0) {
        *pWake = {nEvent, nEvent};
        return true;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    *pWake = {ends[0], ends[1]};
    return true;
}

void KovaWakeClose(KovaWake *pWake)
{
    close(pWake->nReadEnd);
    if (pWake->nWriteEnd != pWake->nReadEnd)
        close(pWake->nWriteEnd);
}

void KovaWakeSignal(const KovaWake *pWake)
{
    const uint64_t nOne = 1;
    // A full pipe or counter wakes as well.
    const ssize_t nWritten = write(pWake->nWriteEnd, &nOne, sizeof(nOne));
    (void)nWritten;
}

void KovaWakeTake(const KovaWake *pWake)
{
    uint8_t signals[64];
    while (read(pWake->nReadEnd, signals, sizeof(signals)) == sizeof(signals)) {
    }
}
