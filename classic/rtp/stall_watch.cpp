#include "classic/rtp/stall_watch.h"

#include "foundation/clock.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cerrno>

namespace {

constexpr uint64_t kMostMicroseconds = 10000000;

/// Bytes that the peer has not taken yet; 0 where the system does not tell. It
/// takes in small steps what makes room for our next byte in large ones only.
/// Leaves errno as it is: it tells how the send ended.
int UnsentBytes(int nSocket)
{
    const int nError = errno;
    int nBytes = 0;
    const bool bTold = ioctl(nSocket, SIOCOUTQ, &nBytes) == 0;
    errno = nError;
    return bTold ? nBytes : 0;
}

} // namespace

void KovaStallWatchTaken(KovaStallWatch *pWatch)
{
    pWatch->nSince = 0;
}

bool KovaStallWatchRefused(KovaStallWatch *pWatch, int nSocket)
{
    const uint64_t nNow = KovaClockMonotonic();
    const int nUnsent = UnsentBytes(nSocket);
    if (pWatch->nSince == 0 || nUnsent < pWatch->nUnsent) {
        pWatch->nSince = nNow;
        pWatch->nUnsent = nUnsent;
        return false;
    }
    return nNow - pWatch->nSince >= kMostMicroseconds;
}
