#include "kova_rtsp_server.h"

#include "classic/server/handler_registry.h"
#include "classic/server/listener.h"
#include "classic/server/monitor.h"
#include "classic/server/server.h"
#include "classic/server/session_registry.h"
#include "classic/server/stream_registry.h"
#include "foundation/clock.h"
#include "foundation/heap.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"

#include <cstdlib>
#include <cstring>

// The calls of the public header but for two: KovaRtspServerPushData is in
// kova_rtsp_server_push.cpp, RTSP_SetLogLevel in foundation/log.cpp.

namespace {

constexpr uint32_t kInitialLogLevel = kLogOverflow;

} // namespace

int32_t KovaRtspServerInit(KovaRtspServer **ppServer, const char *szAddress, uint32_t nPort,
                           int32_t nMaxClient)
{
    RTSP_SetLogLevel(kInitialLogLevel);
    if (ppServer == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtspServer *pServer = KovaRtspServerCreate(szAddress, nPort, nMaxClient);
    if (pServer == nullptr)
        return KOVA_ERROR_CREATE;
    const int32_t nResult = KovaRtspServerStart(pServer);
    if (nResult == KOVA_OK)
        *ppServer = pServer;
    else
        KovaRtspServerUninit(pServer);
    return nResult;
}

int32_t KovaRtspServerUninit(KovaRtspServer *pServer)
{
    KovaRtspServerStop(pServer);
    return KovaRtspServerDestroy(pServer);
}

KovaRtspServer *KovaRtspServerCreate(const char *szAddress, uint32_t nPort, int32_t nMaxClient)
{
    if (szAddress == nullptr || nMaxClient > KOVA_MAX_CLIENTS)
        return nullptr;
    KovaRtspServer *pServer = KovaHeapNew<KovaRtspServer>();
    if (pServer == nullptr)
        return nullptr;
    srand(static_cast<unsigned>(KovaClockSeconds()));
    memcpy(pServer->szAddr, szAddress, sizeof(pServer->szAddr));
    pServer->nPort = static_cast<uint16_t>(nPort);
    pServer->nMaxClient = nMaxClient;
    pServer->nListenSocket = -1;
    KovaMutexInit(&pServer->mtxHandler);
    KovaMutexInit(&pServer->mtxSession);
    KovaMutexInit(&pServer->mtxStreamer);
    KovaMutexInit(&pServer->mtxListen);
    return pServer;
}

int32_t KovaRtspServerDestroy(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    // The streams come first: they wait for the requests that use them, and one of
    // those may set up one more session.
    KovaRtspServerRemoveAllStreamer(pServer);
    KovaRtspServerRemoveAllSession(pServer);
    KovaRtspServerRemoveAllServerHandler(pServer);
    KovaMutexDestroy(&pServer->mtxHandler);
    KovaMutexDestroy(&pServer->mtxSession);
    KovaMutexDestroy(&pServer->mtxStreamer);
    KovaServerCloseListener(pServer);
    KovaMutexDestroy(&pServer->mtxListen);
    free(pServer);
    return KOVA_OK;
}

int32_t KovaRtspServerStart(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    // A start that failed has left its socket open, and another try would forget it.
    if (pServer->nListenState.exchange(kThreadStarting) == kThreadStarting)
        KovaServerCloseListener(pServer);
    const int32_t nResult = KovaServerOpenListener(pServer);
    if (nResult != KOVA_OK)
        return nResult;
    // Each state is running before its thread exists, and stays so when the
    // thread cannot be made: a stop then waits for it in vain.
    pServer->nListenState = kThreadRunning;
    if (!KovaThreadStart(&pServer->hListenThread, pListenProc, pServer))
        return KOVA_ERROR_THREAD;
    pServer->nMonitorState = kThreadRunning;
    if (!KovaThreadStart(&pServer->hMonitorThread, pMonitorProc, pServer))
        return KOVA_ERROR_THREAD;
    return KOVA_OK;
}

int32_t KovaRtspServerStop(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    if (KovaThreadRequestStop(pServer->nListenState))
        KovaServerWakeListener(pServer);
    KovaThreadRequestStop(pServer->nMonitorState);
    KovaThreadWaitStopped(pServer->nMonitorState);
    KovaThreadWaitStopped(pServer->nListenState);
    KovaServerCloseListener(pServer);
    return KOVA_OK;
}

KovaRtspStreamer *KovaRtspServerAddUri(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return nullptr;
    KovaOwner<KovaRtspStreamer, KovaRtspStreamerDestroy> stream(
        KovaRtspStreamerCreate(pServer, szUri));
    return stream && KovaRtspServerAddStreamer(pServer, stream.Get()) == KOVA_OK ? stream.Release()
                                                                                 : nullptr;
}

int32_t KovaRtspServerRemoveUri(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return KOVA_ERROR_NULL;
    // Null, of an unknown URI, is not destroyed.
    return KovaRtspStreamerDestroy(KovaServerTakeStreamer(pServer, szUri)) == KOVA_OK
               ? KOVA_OK
               : KOVA_ERROR_FAILED;
}

int32_t KovaRtspServerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                     uint32_t *pPayloadId, const void *pDescription)
{
    return KovaRtspStreamerAddPayloadType(pStreamer, nMediaType, pPayloadId, pDescription);
}

int32_t KovaRtspServerRemovePayloadType(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    return KovaRtspStreamerRemovePayloadType(pStreamer, nPayloadId);
}

int32_t KovaRtspServerGetStatus(KovaRtspStreamer *pStreamer, KovaRtspStatus *pStatus)
{
    if (pStreamer == nullptr || pStatus == nullptr)
        return KOVA_ERROR_NULL;
    uint64_t nThroughput = 0;
    switch (pStatus->nType) {
    case KOVA_STATUS_CLIENT_COUNT:
        return KovaRtspStreamerGetClientCount(pStreamer, &pStatus->value.nClientCount);
    case KOVA_STATUS_BITRATE:
        KovaRtspStreamerGetAveThroughput(pStreamer, &nThroughput);
        pStatus->value.nBitrateWord[0] = static_cast<uint32_t>(nThroughput);
        pStatus->value.nBitrateWord[1] = static_cast<uint32_t>(nThroughput >> 32);
        return KOVA_OK;
    case KOVA_STATUS_STREAM:
        return KovaRtspStreamerGetServerStatus(pStreamer, &pStatus->value.nStreamStatus);
    default:
        return KOVA_ERROR_NULL;
    }
}
