#include "live/rtsp/login_failures.h"

namespace {

constexpr uint16_t kWaits[] = {0, 250, 500, 1000, 2000}; ///< ms, after so many failures and one
constexpr uint32_t kMostFailures = sizeof(kWaits) / sizeof(kWaits[0]);

KovaLoginFailure *Find(KovaLoginFailures *pFailures, uint32_t nAddress)
{
    for (KovaLoginFailure &slot : pFailures->slots) {
        if (slot.nFailures != 0 && slot.nAddress == nAddress)
            return &slot;
    }
    return nullptr;
}

/// A free slot, or the one of the longest ago.
KovaLoginFailure *FindRoom(KovaLoginFailures *pFailures)
{
    KovaLoginFailure *pRoom = pFailures->slots;
    for (KovaLoginFailure &slot : pFailures->slots) {
        if (slot.nFailures == 0)
            return &slot;
        if (slot.nLast < pRoom->nLast)
            pRoom = &slot;
    }
    return pRoom;
}

void Forget(KovaLoginFailure *pSlot, uint64_t nNow)
{
    // Loops read the clock before they take the lock: one may be a little behind another.
    if (nNow <= pSlot->nLast)
        return;
    const uint64_t nCount = (nNow - pSlot->nLast) / kLoginFailureForgotten;
    pSlot->nFailures -=
        nCount < pSlot->nFailures ? static_cast<uint32_t>(nCount) : pSlot->nFailures;
    pSlot->nLast += nCount * kLoginFailureForgotten;
}

} // namespace

uint32_t KovaLoginFailuresWait(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow)
{
    const KovaLoginFailure *pSlot = Find(pFailures, nAddress);
    if (pSlot == nullptr || nNow >= pSlot->nUntil)
        return 0;
    return static_cast<uint32_t>((pSlot->nUntil - nNow + 999) / 1000);
}

uint32_t KovaLoginFailuresAdd(KovaLoginFailures *pFailures, uint32_t nAddress, uint64_t nNow)
{
    KovaLoginFailure *pSlot = Find(pFailures, nAddress);
    if (pSlot != nullptr) {
        Forget(pSlot, nNow);
    } else {
        pSlot = FindRoom(pFailures);
        *pSlot = KovaLoginFailure();
        pSlot->nAddress = nAddress;
    }
    if (pSlot->nFailures < kMostFailures)
        pSlot->nFailures++;
    const uint32_t nWait = kWaits[pSlot->nFailures - 1];
    pSlot->nLast = nNow;
    pSlot->nUntil = nNow + nWait * 1000U;
    return nWait;
}

void KovaLoginFailuresClear(KovaLoginFailures *pFailures, uint32_t nAddress)
{
    KovaLoginFailure *pSlot = Find(pFailures, nAddress);
    if (pSlot != nullptr)
        pSlot->nFailures = 0;
}
