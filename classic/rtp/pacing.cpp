#include "classic/rtp/pacing.h"

namespace {

constexpr int64_t kEarlyLimit = 3000;
constexpr int64_t kDelay = 1000;

} // namespace

bool KovaPacingHolds(int64_t nDue, int64_t nElapsed)
{
    return nDue - kEarlyLimit < nElapsed && nElapsed < nDue + kDelay;
}

bool KovaPacingStillHolds(int64_t nDue, int64_t nElapsed)
{
    return nDue - kEarlyLimit < nElapsed && nElapsed <= nDue + kDelay;
}

uint32_t KovaPacingRemaining(int64_t nDue, int64_t nElapsed)
{
    const int64_t nLeft = nDue + kDelay + 1 - nElapsed;
    return nLeft > 0 ? static_cast<uint32_t>(nLeft) : 1;
}
