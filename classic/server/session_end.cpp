#include "classic/server/session_end.h"

#include "classic/rtsp/server_calls.h"
#include "classic/server/server.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/client_walk.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"

namespace {

void EndOnAllStreams(KovaRtspServer *pServer, const char *szSessionId, KovaPlayerEnd end)
{
    bool bCounted = false;
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    for (KovaRtspStreamer *pStreamer : KovaListOf<KovaRtspStreamer>(pServer->pStreamerList))
        KovaPlayersEnd(pStreamer, szSessionId, end, &bCounted);
}

} // namespace

int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *pServer, const char *szSessionId)
{
    constexpr char kName[] = "KovaRtspServerRemoveRtpClient";
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    KovaWalkTrace(kName, "Enter", "Streamer");
    EndOnAllStreams(pServer, szSessionId, kEndExpired);
    KovaWalkTrace(kName, "Leave", "Streamer");
    return KOVA_OK;
}

void KovaServerEndSession(KovaRtspServer *pServer, const char *szSessionId, KovaPlayerEnd end)
{
    // All under mtxSession: once the session is gone its id may be drawn again,
    // and the clients of the one that gets it must not be taken for its own.
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    const KovaOwner<KovaRtspSession, KovaRtspSessionDestroy> session(
        KovaServerTakeSession(pServer, szSessionId));
    if (session)
        EndOnAllStreams(pServer, szSessionId, end);
}

void KovaServerEndOvertaken(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer,
                            const char *szSessionId, const KovaPlay *pPlay)
{
    // Nobody can get the id meanwhile: clients with it are the ended session's.
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    if (KovaServerFindSession(pServer, szSessionId) != nullptr)
        return;
    bool bCounted = false;
    if (pPlay != nullptr)
        KovaPlayersTakeBackPlay(pStreamer, *pPlay);
    else
        KovaPlayersEnd(pStreamer, szSessionId, kEndOvertaken, &bCounted);
}
