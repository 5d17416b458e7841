#include "classic/rtsp/session.h"

#include "classic/rtsp/server_calls.h"
#include "foundation/clock.h"
#include "foundation/heap.h"
#include "foundation/result.h"
#include "foundation/scope_guard.h"
#include "foundation/text.h"

namespace {

static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t), "a plain word");
static_assert(alignof(std::atomic<int32_t>) == alignof(int32_t), "a plain word");

} // namespace

void GenerateSessionId(char *szSessionId)
{
    if (szSessionId == nullptr)
        return;
    for (unsigned nIndex = 0; nIndex < kSessionIdSize - 1; nIndex++)
        szSessionId[nIndex] = static_cast<char>('0' + rand() % 10);
    szSessionId[kSessionIdSize - 1] = '\0';
}

void GetSessionId(char *szSessionId)
{
    GenerateSessionId(szSessionId);
}

KovaRtspSession *KovaRtspSessionCreate(char *szSessionId, int32_t nTimeout)
{
    if (szSessionId == nullptr)
        return nullptr;
    // The id comes first: SETUP answers with it whatever happens to the session.
    if (szSessionId[0] == '\0')
        GenerateSessionId(szSessionId);
    KovaRtspSession *pSession = KovaHeapNew<KovaRtspSession>();
    if (pSession == nullptr)
        return nullptr;
    KovaTextCopy(pSession->szSessionId, sizeof(pSession->szSessionId),
                 KovaTextField(szSessionId, kSessionIdSize));
    pSession->nTimeout = nTimeout;
    pSession->tExpire = KovaClockSecondsAfter(KovaClockSeconds(), nTimeout);
    pthread_mutex_init(&pSession->mtxTransport, nullptr);
    return pSession;
}

void KovaRtspSessionDestroy(KovaRtspSession *pSession)
{
    if (pSession == nullptr)
        return;
    KovaRtspSessionRemoveAllTransport(pSession);
    pthread_mutex_destroy(&pSession->mtxTransport);
    free(pSession);
}

void KovaRtspSessionAddTransport(KovaRtspSession *pSession, KovaRtspTransport *pTransport)
{
    if (pSession == nullptr || pTransport == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport);
    KovaListPush(&pSession->pTransportList, pTransport);
}

void KovaRtspSessionRemoveTransport(KovaRtspSession *pSession, KovaRtspTransport *pTransport)
{
    if (pSession == nullptr || pTransport == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport);
    KovaListTake(&pSession->pTransportList, nullptr, pTransport);
}

void KovaRtspSessionRemoveAllTransport(KovaRtspSession *pSession)
{
    if (pSession == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport);
    while (pSession->pTransportList != nullptr)
        KovaRtspTransportDestroy(static_cast<KovaRtspTransport *>(
            KovaListTakeFirst(&pSession->pTransportList, nullptr)));
}

int32_t AddNewRtspSession(KovaRtspServer *pServer, char *szSessionId, int32_t nTimeout)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_RESULT_NULL;
    const bool bDrawn = szSessionId[0] == '\0';
    KovaRtspSession *pSession = KovaRtspSessionCreate(szSessionId, nTimeout);
    if (pSession == nullptr)
        return KOVA_RESULT_FAILED;
    const int32_t nResult = bDrawn ? KovaServerAddUniqueSession(pServer, pSession, szSessionId)
                                   : KovaRtspServerAddSession(pServer, pSession);
    if (nResult != KOVA_RESULT_OK)
        KovaRtspSessionDestroy(pSession);
    return nResult;
}
