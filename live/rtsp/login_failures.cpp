#include "live/rtsp/login_failures.h"

namespace {

constexpr uint16_t kWaits[] = {0, 250, 500, 1000, 2000}; ///< ms, after so many failures and one
constexpr uint32_t kMostFailures = sizeof(kWaits) / sizeof(kWaits[0]);

/// The address's slot, or null.
KovaLoginFailure *Find(KovaLoginFailures *pFailures, uint32_t nAddress)
{
    for (KovaLoginFailure &slot : pFailures->slots) {
        if (slot.nFailures != 0 && slot.nAddress == nAddress)
            return &slot;
    }
    return nullptr;
}

/// A free slot, or the one of the longest ago, for an address.
KovaLoginFailure *MakeRoom(KovaLoginFailures *pFailures, uint32_t nAddress)
{
    KovaLoginFailure *pRoom = pFailures->slots;
    for (KovaLoginFailure &slot : pFailures->slots) {
        if (slot.nFailures == 0 || slot.nLast < pRoom->nLast)
            pRoom = &slot;
        if (slot.nFailures == 0)
            break;
    }
    *pRoom = KovaLoginFailure();
    pRoom->nAddress = nAddress;
    return pRoom;
}

void Forget(KovaLoginFailure *pSlot, uint64_t nNow)
{
    // The other way round a clock that another loop read a little earlier would be far ahead.
    while (pSlot->nFailures != 0 && nNow >= pSlot->nLast + kLoginFailureForgotten) {
        pSlot->nFailures--;
        pSlot->nLast += kLoginFailureForgotten;
    }
}

} // namespace

uint32_t KovaLoginFailuresWait(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow)
{
    const KovaLoginFailure *pSlot = Find(pFailures, nAddress);
    if (pSlot == nullptr || nNow >= pSlot->nUntil)
        return 0;
    return (static_cast<uint32_t>(pSlot->nUntil - nNow) + 999) / 1000;
}

uint32_t KovaLoginFailuresNote(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow,
                               bool bRight)
{
    KovaLoginFailure *pSlot = Find(pFailures, nAddress);
    if (bRight) {
        if (pSlot != nullptr)
            pSlot->nFailures = 0;
        return 0;
    }
    if (pSlot != nullptr)
        Forget(pSlot, nNow);
    else
        pSlot = MakeRoom(pFailures, nAddress);
    if (pSlot->nFailures < kMostFailures)
        pSlot->nFailures++;
    const uint32_t nWait = kWaits[pSlot->nFailures - 1];
    pSlot->nLast = nNow;
    pSlot->nUntil = nNow + uint64_t{nWait} * 1000;
    return nWait;
}
