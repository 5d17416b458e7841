#include "foundation/heap.h"
#include "live/engine/loop.h"
#include "live/engine/stream.h"

namespace {

constexpr uint32_t kMostSpare = 32;

KovaLoopMessage *TakeSpare(KovaLiveLoop *pLoop) KOVA_REQUIRES(pLoop->inboxMutex)
{
    KovaLoopMessage *pMessage = pLoop->pSpare;
    if (pMessage == nullptr)
        return static_cast<KovaLoopMessage *>(KovaHeapAlloc(sizeof(KovaLoopMessage)));
    pLoop->pSpare = pMessage->pNext;
    pLoop->nSpare--;
    return pMessage;
}

bool Post(KovaLiveLoop *pLoop, const KovaLoopMessage &message)
{
    KovaMutexLock lock(&pLoop->inboxMutex, kRankLiveInbox);
    KovaLoopMessage *pMessage = TakeSpare(pLoop);
    if (pMessage == nullptr)
        return false;
    *pMessage = message;
    const bool bWake = pLoop->pInbox == nullptr;
    *pLoop->ppInboxEnd = pMessage;
    pLoop->ppInboxEnd = &pMessage->pNext;
    lock.Unlock();
    if (bWake)
        KovaWakeSignal(&pLoop->wake);
    return true;
}

} // namespace

bool KovaLoopPost(KovaLiveLoop *pLoop, KovaLoopOrder order, KovaLiveStream *pStream,
                  KovaUnit *pUnit)
{
    return Post(pLoop, {nullptr, order, pStream, pUnit, nullptr, 0, 0});
}

bool KovaLoopPostConnection(KovaLiveLoop *pLoop, KovaLiveConnection *pConnection)
{
    return Post(pLoop, {nullptr, kOrderConnection, nullptr, nullptr, pConnection, 0, 0});
}

void KovaLoopLook(KovaLiveLoop *pLoop)
{
    pLoop->bLook = true;
    KovaWakeSignal(&pLoop->wake);
}

KovaLoopMessage *KovaLoopTakeInbox(KovaLiveLoop *pLoop)
{
    const KovaMutexLock lock(&pLoop->inboxMutex, kRankLiveInbox);
    KovaLoopMessage *pMessages = pLoop->pInbox;
    pLoop->pInbox = nullptr;
    pLoop->ppInboxEnd = &pLoop->pInbox;
    return pMessages;
}

void KovaLoopRecycle(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage)
{
    KovaMutexLock lock(&pLoop->inboxMutex, kRankLiveInbox);
    if (pLoop->nSpare < kMostSpare) {
        pMessage->pNext = pLoop->pSpare;
        pLoop->pSpare = pMessage;
        pLoop->nSpare++;
        return;
    }
    lock.Unlock();
    free(pMessage);
}
