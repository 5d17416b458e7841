#include "classic/server/session_registry.h"

#include "classic/rtp/session_tally.h"
#include "classic/rtsp/server_calls.h"
#include "foundation/clock.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"
#include "foundation/text.h"

#include <atomic>
#include <cstring>
#include <ctime>

namespace {

/// Seconds that a refresh grants beyond the session's time-out.
constexpr int32_t kRefreshGrace = 30;

/// Redraws of all servers. Coarse clocks show many of them the same time, and each
/// is to begin elsewhere.
std::atomic<uint32_t> g_nRedraws{0};

/// Draws an id without rand(). Connections seed that with the second, so whoever
/// meets a taken id there would meet those of all players of that second.
void Redraw(char *szSessionId)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    // 32 bits at a time: the board has no more in a register.
    uint32_t nState = (++g_nRedraws * 2654435769U) ^ (static_cast<uint32_t>(now.tv_sec) << 20) ^
                      static_cast<uint32_t>(now.tv_nsec);
    for (unsigned nIndex = 0; nIndex < kSessionIdSize - 1; nIndex++) {
        nState = nState * 1664525U + 1013904223U; // of "Numerical Recipes"
        szSessionId[nIndex] = static_cast<char>('0' + (nState >> 16) % 10U);
    }
    szSessionId[kSessionIdSize - 1] = '\0';
}

/// Gives the session an id that nobody has. Nor may a client
/// of a session that has just ended have it: connections of one second draw the
/// same ids, and that client's end would end the new session.
void MakeUnique(KovaRtspServer *pServer, KovaRtspSession *pSession)
    KOVA_REQUIRES(pServer->mtxSession)
{
    while (KovaServerFindSession(pServer, pSession->szSessionId) != nullptr ||
           KovaSessionTallyExists(pSession->szSessionId))
        Redraw(pSession->szSessionId);
}

bool HasId(const void *pData, const void *pWanted)
{
    return strcmp(static_cast<const KovaRtspSession *>(pData)->szSessionId,
                  static_cast<const char *>(pWanted)) == 0;
}

int32_t Register(KovaRtspServer *pServer, KovaRtspSession *pSession)
    KOVA_REQUIRES(pServer->mtxSession)
{
    return KovaKeyedPush(&pServer->sessionKeys, pServer->pSessionList,
                         KovaKeyOfText(pSession->szSessionId), pSession)
               ? KOVA_OK
               : KOVA_ERROR_FAILED;
}

} // namespace

KovaRtspSession *KovaServerFindSession(KovaRtspServer *pServer, const char *szSessionId)
{
    return static_cast<KovaRtspSession *>(
        KovaKeyedFind(&pServer->sessionKeys, pServer->pSessionList, KovaKeyOfText(szSessionId),
                      HasId, szSessionId));
}

void KovaServerUnlinkSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    KovaKeyedTake(&pServer->sessionKeys, pServer->pSessionList,
                  KovaKeyOfText(pSession->szSessionId), pSession);
}

int32_t KovaRtspServerAddSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    if (pServer == nullptr || pSession == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    return Register(pServer, pSession);
}

int32_t AddNewRtspSession(KovaRtspServer *pServer, char *szSessionId, int32_t nTimeout)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    const bool bDrawn = szSessionId[0] == '\0';
    KovaOwner<KovaRtspSession, KovaRtspSessionDestroy> session(
        KovaRtspSessionCreate(szSessionId, nTimeout));
    if (!session)
        return KOVA_ERROR_FAILED;
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    if (bDrawn) {
        MakeUnique(pServer, session.Get());
        KovaTextCopy(szSessionId, kSessionIdSize, session->szSessionId);
    }
    const int32_t nResult = Register(pServer, session.Get());
    if (nResult == KOVA_OK)
        session.Release();
    return nResult;
}

int32_t KovaRtspServerRemoveSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    if (pServer == nullptr || pSession == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    KovaServerUnlinkSession(pServer, pSession);
    return KOVA_OK;
}

void KovaRtspServerRemoveAllSession(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return;
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    while (pServer->pSessionList != nullptr)
        KovaRtspSessionDestroy(static_cast<KovaRtspSession *>(
            KovaKeyedTakeFirst(&pServer->sessionKeys, pServer->pSessionList)));
}

KovaRtspSession *KovaRtspServerGetSessionBySessionId(KovaRtspServer *pServer,
                                                     const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    return KovaServerFindSession(pServer, szSessionId);
}

int32_t KovaRtspServerIsSessionExist(KovaRtspServer *pServer, const char *szSessionId)
{
    return KovaRtspServerGetSessionBySessionId(pServer, szSessionId) != nullptr ? 1 : 0;
}

int32_t KovaRtspServerUpdateSession(KovaRtspServer *pServer, const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    // Found and written in one step: the monitor may be about to destroy it.
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    KovaRtspSession *pSession = KovaServerFindSession(pServer, szSessionId);
    if (pSession == nullptr)
        return KOVA_ERROR_NO_SESSION;
    const int32_t tExpire = KovaClockSecondsAfter(KovaClockSeconds(), pSession->nTimeout);
    pSession->tExpire = KovaClockSecondsAfter(tExpire, kRefreshGrace);
    return KOVA_OK;
}

KovaRtspSession *KovaServerTakeSession(KovaRtspServer *pServer, const char *szSessionId)
{
    KovaRtspSession *pSession = KovaServerFindSession(pServer, szSessionId);
    if (pSession != nullptr)
        KovaServerUnlinkSession(pServer, pSession);
    return pSession;
}

int32_t KovaRtspServerRemoveSessionBySessionId(KovaRtspServer *pServer, const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    KovaRtspSession *pSession = KovaServerTakeSession(pServer, szSessionId);
    lock.Unlock();
    if (pSession == nullptr)
        return KOVA_ERROR_NO_SESSION;
    KovaRtspSessionDestroy(pSession);
    return KOVA_OK;
}
