#include "classic/server/session_end.h"

#include "classic/rtsp/server_calls.h"
#include "classic/server/server.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/client_walk.h"
#include "foundation/scope_guard.h"

namespace {

/// A stray gets no packets that would tell it after so many passes.
constexpr uint32_t kStrayPasses = 3;

/// Removes a client whose session has ended; pContext says whether because its
/// connection was lost.
bool RemoveStray(const KovaClientVisit &visit, void *pContext)
{
    KovaRtpClient *pClient = visit.pClient;
    const bool bConnectionLost = *static_cast<bool *>(pContext);
    if (bConnectionLost && pClient->bInterleaved != 0 && pClient->nState != kClientSetUp) {
        pClient->nStrayPasses = 1;
        return false;
    }
    KovaVisitCountOut(visit);
    return true;
}

} // namespace

int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *pServer, const char *szSessionId)
{
    constexpr char kName[] = "KovaRtspServerRemoveRtpClient";
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    KovaWalkTrace(kName, "Enter", "Streamer");
    KovaMutexLock lock(&pServer->mtxStreamer);
    bool bCounted = false;
    KovaList *pNode = pServer->pStreamerList;
    while (pNode != nullptr) {
        KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pNode->data);
        pNode = pNode->next;
        if (pStreamer != nullptr)
            KovaStreamerWalkSession(pStreamer, szSessionId, kName, KovaVisitRemoveClient,
                                    &bCounted);
    }
    lock.Unlock();
    KovaWalkTrace(kName, "Leave", "Streamer");
    return KOVA_OK;
}

void KovaServerEndSession(KovaRtspServer *pServer, const char *szSessionId, bool bConnectionLost)
{
    // All under mtxSession: once the session is gone its id may be drawn again,
    // and the clients of the one that gets it must not be taken for strays.
    KovaMutexLock sessionLock(&pServer->mtxSession);
    KovaRtspSession *pSession = KovaServerTakeSession(pServer, szSessionId);
    if (pSession == nullptr)
        return;
    KovaMutexLock streamLock(&pServer->mtxStreamer);
    for (KovaList *pNode = pServer->pStreamerList; pNode != nullptr; pNode = pNode->next) {
        if (pNode->data != nullptr)
            KovaStreamerWalkSession(static_cast<KovaRtspStreamer *>(pNode->data), szSessionId,
                                    nullptr, RemoveStray, &bConnectionLost);
    }
    streamLock.Unlock();
    sessionLock.Unlock();
    KovaRtspSessionDestroy(pSession);
}

bool KovaStrayIsDue(const KovaClientVisit &visit)
{
    KovaRtpClient *pClient = visit.pClient;
    if (pClient->nStrayPasses == 0 || ++pClient->nStrayPasses <= kStrayPasses)
        return false;
    KovaVisitCountOut(visit);
    return true;
}

void KovaServerIfSessionEnded(KovaRtspServer *pServer, const char *szSessionId,
                              void (*pfnAction)(void *pContext), void *pContext)
{
    const KovaMutexLock lock(&pServer->mtxSession);
    if (KovaServerFindSession(pServer, szSessionId) == nullptr)
        pfnAction(pContext);
}
