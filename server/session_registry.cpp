#include "server/session_registry.h"

#include "foundation/clock.h"
#include "foundation/scope_guard.h"
#include "foundation/text.h"
#include "rtp/session_tally.h"
#include "rtsp/server_calls.h"

#include <cstring>

namespace {

/// Seconds that a refresh grants beyond the session's time-out.
constexpr int32_t kRefreshGrace = 30;

/// Draws before ids are counted up instead: a generator that only repeats
/// itself must not keep a SETUP for ever.
constexpr unsigned kMostDraws = 2000;

/// The next id in decimal counting, from 99999999999 on to 00000000000.
void CountUp(char *szSessionId)
{
    for (unsigned nIndex = kSessionIdSize - 1; nIndex > 0; nIndex--) {
        char *pDigit = &szSessionId[nIndex - 1];
        if (*pDigit < '9') {
            ++*pDigit;
            return;
        }
        *pDigit = '0';
    }
}

/// Under mtxSession: gives the session an id that nobody has. Nor may a client
/// of a session that has just ended have it: connections of one second draw the
/// same ids, and that client's end would end the new session.
void MakeUnique(const KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    unsigned nDraws = 0;
    while (KovaServerFindSession(pServer, pSession->szSessionId) != nullptr ||
           KovaSessionTallyExists(pSession->szSessionId)) {
        if (nDraws++ < kMostDraws)
            GenerateSessionId(pSession->szSessionId);
        else
            CountUp(pSession->szSessionId);
    }
}

} // namespace

KovaRtspSession *KovaServerFindSession(const KovaRtspServer *pServer, const char *szSessionId)
{
    for (KovaList *pNode = pServer->pSessionList; pNode != nullptr; pNode = pNode->next) {
        KovaRtspSession *pSession = static_cast<KovaRtspSession *>(pNode->data);
        if (pSession != nullptr && strcmp(pSession->szSessionId, szSessionId) == 0)
            return pSession;
    }
    return nullptr;
}

int32_t KovaRtspServerAddSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    if (pServer == nullptr || pSession == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxSession);
    return KovaListPush(&pServer->pSessionList, pSession) ? KOVA_OK : KOVA_ERROR_FAILED;
}

int32_t KovaServerAddUniqueSession(KovaRtspServer *pServer, KovaRtspSession *pSession,
                                   char *szSessionId)
{
    const KovaMutexLock lock(&pServer->mtxSession);
    MakeUnique(pServer, pSession);
    KovaTextCopy(szSessionId, kSessionIdSize, pSession->szSessionId);
    return KovaListPush(&pServer->pSessionList, pSession) ? KOVA_OK : KOVA_ERROR_FAILED;
}

int32_t KovaRtspServerRemoveSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
{
    if (pServer == nullptr || pSession == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxSession);
    KovaListTake(&pServer->pSessionList, nullptr, pSession);
    return KOVA_OK;
}

void KovaRtspServerRemoveAllSession(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return;
    const KovaMutexLock lock(&pServer->mtxSession);
    while (pServer->pSessionList != nullptr)
        KovaRtspSessionDestroy(
            static_cast<KovaRtspSession *>(KovaListTakeFirst(&pServer->pSessionList, nullptr)));
}

KovaRtspSession *KovaRtspServerGetSessionBySessionId(KovaRtspServer *pServer,
                                                     const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxSession);
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
    const KovaMutexLock lock(&pServer->mtxSession);
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
        KovaListTake(&pServer->pSessionList, nullptr, pSession);
    return pSession;
}

int32_t KovaRtspServerRemoveSessionBySessionId(KovaRtspServer *pServer, const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    KovaMutexLock lock(&pServer->mtxSession);
    KovaRtspSession *pSession = KovaServerTakeSession(pServer, szSessionId);
    lock.Unlock();
    if (pSession == nullptr)
        return KOVA_ERROR_NO_SESSION;
    KovaRtspSessionDestroy(pSession);
    return KOVA_OK;
}
