#include "classic/server/handler_registry.h"

#include "classic/rtp/tcp_channel.h"
#include "classic/rtsp/server_calls.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"

#include <unistd.h>

namespace {

/// Whether somebody has stopped the handler, and so is going to destroy it.
bool IsClaimed(const KovaRtspServerHandler *pHandler)
{
    const uint32_t nState = pHandler->nState;
    return nState == kThreadStopRequested || nState == kThreadStopped;
}

bool Register(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
    KOVA_REQUIRES(pServer->mtxHandler)
{
    return KovaKeyedPush(&pServer->handlerKeys, pServer->pHandlerList, KovaKeyOfAddress(pHandler),
                         pHandler);
}

void Unlink(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
    KOVA_REQUIRES(pServer->mtxHandler)
{
    KovaKeyedTake(&pServer->handlerKeys, pServer->pHandlerList, KovaKeyOfAddress(pHandler),
                  pHandler);
}

} // namespace

int32_t KovaRtspServerAddServerHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
{
    if (pServer == nullptr || pHandler == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    return Register(pServer, pHandler) ? KOVA_OK : KOVA_ERROR_FAILED;
}

int32_t KovaServerStartHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
{
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    if (!Register(pServer, pHandler))
        return KOVA_ERROR_FAILED;
    const int32_t nResult = KovaRtspServerHandlerStart(pHandler);
    if (nResult != KOVA_OK)
        Unlink(pServer, pHandler);
    return nResult;
}

int32_t KovaRtspServerRemoveServerHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
{
    if (pServer == nullptr || pHandler == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    Unlink(pServer, pHandler);
    return KOVA_OK;
}

void KovaRtspServerRemoveAllServerHandler(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return;
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    while (pServer->pHandlerList != nullptr) {
        KovaRtspServerHandler *pHandler = static_cast<KovaRtspServerHandler *>(
            KovaKeyedTakeFirst(&pServer->handlerKeys, pServer->pHandlerList));
        KovaRtspServerHandlerStop(pHandler);
        KovaRtspServerHandlerDestroy(pHandler);
    }
}

void KovaServerWakeStopped(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    for (KovaRtspServerHandler *pHandler :
         KovaListOf<KovaRtspServerHandler>(pServer->pHandlerList)) {
        if (!KovaThreadRuns(pHandler->nState))
            KovaTcpChannelWakeReader(pHandler->pChannel, kWakeFromWait);
    }
}

KovaRtspServerHandler *KovaRtspServerGetHandlerBySessionId(KovaRtspServer *pServer,
                                                           const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    return KovaListFindIf<KovaRtspServerHandler>(
        pServer->pHandlerList, [szSessionId](KovaRtspServerHandler *pHandler) {
            return KovaHandlerHasSessionId(pHandler, szSessionId);
        });
}

bool KovaServerReleaseHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler)
{
    // RemoveAll asks for the stop and waits for it under mtxHandler. So this
    // thread only tries for the mutex, and gives way once it has been claimed.
    while (!IsClaimed(pHandler)) {
        if (!KovaMutexTryTake(&pServer->mtxHandler, kRankHandlers)) {
            usleep(kPollMicroseconds);
            continue;
        }
        const bool bOwn = !IsClaimed(pHandler);
        if (bOwn)
            Unlink(pServer, pHandler);
        KovaMutexGive(&pServer->mtxHandler, kRankHandlers);
        return bOwn;
    }
    return false;
}
