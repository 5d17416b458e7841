#include "live/media/rtp_time.h"

#include "foundation/divide.h"

namespace {

constexpr uint32_t kSecond = 1000000;
constexpr uint32_t kTolerancesPerSecond = 50;

} // namespace

uint32_t KovaRtpTicks(int64_t nPts, uint32_t nRate)
{
    // Whole seconds and the rest apart: nothing of it can overflow.
    uint32_t nRest = 0;
    const int64_t nSeconds = KovaDivideDown(nPts, kSecond, &nRest);
    const uint64_t nPart = uint64_t{nRest} * nRate + kSecond / 2;
    return static_cast<uint32_t>(nSeconds) * nRate +
           static_cast<uint32_t>(KovaDivide(nPart, kSecond));
}

uint32_t KovaSoundTimeOf(const KovaSoundTime &time, uint32_t nPushed, uint32_t nFrameTicks,
                         uint32_t nRate)
{
    if (!time.bRunning)
        return nPushed;
    const uint32_t nHalf = nFrameTicks / 2;
    const uint32_t nMost = nRate / kTolerancesPerSecond;
    const uint32_t nTolerance = nHalf < nMost ? nHalf : nMost;
    // Both are modulo 2^32, so the distance is as well: this is -nTolerance..nTolerance.
    return time.nNext - nPushed + nTolerance <= 2 * nTolerance ? time.nNext : nPushed;
}
