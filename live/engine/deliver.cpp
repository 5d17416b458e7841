#include "live/engine/deliver.h"

#include "foundation/divide.h"
#include "live/engine/media_out.h"
#include "live/engine/stream.h"

#include <cstddef>

namespace {

/// A unit of more bytes is spread; a piece has about as many.
constexpr uint32_t kSpreadBytes = 64 * 1024;

/// Pieces of one unit, at most: a unit of any size is out in time.
constexpr uint32_t kMostPieces = 32;

void Finish(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    KovaUnitRelease(pMessage->pUnit);
    KovaStreamRelease(pMessage->pStream);
    KovaLoopRecycle(pLoop, pMessage);
}

uint32_t PacketsOfPiece(const KovaUnit *pUnit)
{
    const uint32_t nPieces = pUnit->nBytes / kSpreadBytes + 1;
    const uint32_t nUsed = nPieces < kMostPieces ? nPieces : kMostPieces;
    return (pUnit->nPackets + nUsed - 1) / nUsed;
}

/// Half the distance of two units of the track, for all pieces of one.
uint64_t StepOf(KovaLiveStream *pStream, const KovaUnit *pUnit)
{
    const uint32_t nPiece = PacketsOfPiece(pUnit);
    const uint32_t nPieces = (pUnit->nPackets + nPiece - 1) / nPiece;
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    return KovaDivide(static_cast<uint64_t>(pStream->pTracks[pUnit->nTrack]->nInterval) / 2,
                      nPieces);
}

void SendRest(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    KovaMediaDistribute(pLoop, pMessage->pStream, pMessage->pUnit, pMessage->nNext,
                        pMessage->pUnit->nPackets);
    Finish(pLoop, pMessage);
}

KovaLoopMessage *TakeSpread(KovaLiveLoop *pLoop, const KovaLiveStream *pStream, uint32_t nTrack)
{
    for (KovaLoopMessage **ppLink = &pLoop->pSpread; *ppLink != nullptr;
         ppLink = &(*ppLink)->pNext) {
        KovaLoopMessage *pMessage = *ppLink;
        if (pMessage->pStream == pStream && pMessage->pUnit->nTrack == nTrack) {
            *ppLink = pMessage->pNext;
            return pMessage;
        }
    }
    return nullptr;
}

void ArmSpread(KovaLiveLoop *pLoop)
{
    uint64_t nDue = UINT64_MAX;
    for (const KovaLoopMessage *pMessage = pLoop->pSpread; pMessage != nullptr;
         pMessage = pMessage->pNext)
        nDue = pMessage->nDue < nDue ? pMessage->nDue : nDue;
    if (nDue != UINT64_MAX)
        KovaTimersSet(&pLoop->timers, &pLoop->spreadTimer, nDue);
}

/// The next piece. What remains afterwards waits for its time.
void SendPiece(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    KovaUnit *pUnit = pMessage->pUnit;
    const uint32_t nPiece = PacketsOfPiece(pUnit);
    const uint32_t nLeft = pUnit->nPackets - pMessage->nNext;
    const uint32_t nNow = nLeft < nPiece ? nLeft : nPiece;
    KovaMediaDistribute(pLoop, pMessage->pStream, pUnit, pMessage->nNext, pMessage->nNext + nNow);
    pMessage->nNext += nNow;
    if (pMessage->nNext == pUnit->nPackets) {
        Finish(pLoop, pMessage);
        return;
    }
    pMessage->nDue = pLoop->nNow + StepOf(pMessage->pStream, pUnit);
    pMessage->pNext = pLoop->pSpread;
    pLoop->pSpread = pMessage;
}

void HandleSpreadTime(KovaTimer *pTimer, uint64_t nNow)
{
    auto *pLoop = reinterpret_cast<KovaLiveLoop *>(reinterpret_cast<char *>(pTimer) -
                                                   offsetof(KovaLiveLoop, spreadTimer));
    KovaLoopMessage *pDue = nullptr;
    for (KovaLoopMessage **ppLink = &pLoop->pSpread; *ppLink != nullptr;) {
        KovaLoopMessage *pMessage = *ppLink;
        if (pMessage->nDue > nNow) {
            ppLink = &pMessage->pNext;
            continue;
        }
        *ppLink = pMessage->pNext;
        pMessage->pNext = pDue;
        pDue = pMessage;
    }
    while (pDue != nullptr) {
        KovaLoopMessage *pNext = pDue->pNext;
        SendPiece(pLoop, pDue);
        pDue = pNext;
    }
    ArmSpread(pLoop);
}

void Send(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    // Packets of a track leave in their order: what is left of the unit before goes first.
    KovaLoopMessage *pBefore = TakeSpread(pLoop, pMessage->pStream, pMessage->pUnit->nTrack);
    if (pBefore != nullptr)
        SendRest(pLoop, pBefore);
    if (pMessage->pUnit->nBytes <= kSpreadBytes) {
        SendRest(pLoop, pMessage);
        return;
    }
    SendPiece(pLoop, pMessage);
    ArmSpread(pLoop);
}

void HandleDelayTime(KovaTimer *pTimer, uint64_t nNow)
{
    auto *pLoop = reinterpret_cast<KovaLiveLoop *>(reinterpret_cast<char *>(pTimer) -
                                                   offsetof(KovaLiveLoop, delayTimer));
    while (pLoop->pDelayed != nullptr && pLoop->pDelayed->nDue <= nNow) {
        KovaLoopMessage *pMessage = pLoop->pDelayed;
        pLoop->pDelayed = pMessage->pNext;
        if (pLoop->pDelayed == nullptr)
            pLoop->ppDelayedEnd = &pLoop->pDelayed;
        Send(pLoop, pMessage);
    }
    if (pLoop->pDelayed != nullptr)
        KovaTimersSet(&pLoop->timers, pTimer, pLoop->pDelayed->nDue);
}

void ForgetIn(KovaLiveLoop *pLoop, KovaLoopMessage **ppLink, const KovaLiveStream *pStream)
{
    while (*ppLink != nullptr) {
        KovaLoopMessage *pMessage = *ppLink;
        if (pStream != nullptr && pMessage->pStream != pStream) {
            ppLink = &pMessage->pNext;
            continue;
        }
        *ppLink = pMessage->pNext;
        Finish(pLoop, pMessage);
    }
}

} // namespace

void KovaDeliverInit(KovaLiveLoop *pLoop)
{
    pLoop->delayTimer.pfnHandle = HandleDelayTime;
    pLoop->spreadTimer.pfnHandle = HandleSpreadTime;
}

void KovaDeliverUnit(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    const uint64_t nDelay = pLoop->pLive->settings.nDelay;
    if (nDelay == 0) {
        Send(pLoop, pMessage);
        return;
    }
    pMessage->nDue = pMessage->pUnit->nArrived + nDelay;
    // Units that were kept for a newcomer come later than younger ones of other streams.
    KovaLoopMessage **ppLink = &pLoop->pDelayed;
    if (*ppLink != nullptr && pMessage->nDue >= pLoop->nDelayedLast)
        ppLink = pLoop->ppDelayedEnd;
    while (*ppLink != nullptr && (*ppLink)->nDue <= pMessage->nDue)
        ppLink = &(*ppLink)->pNext;
    pMessage->pNext = *ppLink;
    *ppLink = pMessage;
    if (pMessage->pNext == nullptr) {
        pLoop->ppDelayedEnd = &pMessage->pNext;
        pLoop->nDelayedLast = pMessage->nDue;
    }
    if (pLoop->pDelayed == pMessage)
        KovaTimersSet(&pLoop->timers, &pLoop->delayTimer, pMessage->nDue);
}

void KovaDeliverForget(KovaLiveLoop *pLoop, const KovaLiveStream *pStream)
{
    ForgetIn(pLoop, &pLoop->pSpread, pStream);
    ForgetIn(pLoop, &pLoop->pDelayed, pStream);
    pLoop->ppDelayedEnd = &pLoop->pDelayed;
    while (*pLoop->ppDelayedEnd != nullptr)
        pLoop->ppDelayedEnd = &(*pLoop->ppDelayedEnd)->pNext;
}
