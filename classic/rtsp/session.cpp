#include "classic/rtsp/session.h"

#include "foundation/clock.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

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
    KovaMutexInit(&pSession->mtxTransport);
    return pSession;
}

void KovaRtspSessionDestroy(KovaRtspSession *pSession)
{
    if (pSession == nullptr)
        return;
    KovaRtspSessionRemoveAllTransport(pSession);
    KovaMutexDestroy(&pSession->mtxTransport);
    free(pSession);
}

void KovaRtspSessionAddTransport(KovaRtspSession *pSession, KovaRtspTransport *pTransport)
{
    if (pSession == nullptr || pTransport == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport, kRankLeaf);
    KovaListPush(pSession->pTransportList, pTransport);
}

void KovaRtspSessionRemoveTransport(KovaRtspSession *pSession, KovaRtspTransport *pTransport)
{
    if (pSession == nullptr || pTransport == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport, kRankLeaf);
    KovaListTake(pSession->pTransportList, nullptr, pTransport);
}

void KovaRtspSessionRemoveAllTransport(KovaRtspSession *pSession)
{
    if (pSession == nullptr)
        return;
    const KovaMutexLock lock(&pSession->mtxTransport, kRankLeaf);
    while (pSession->pTransportList != nullptr)
        KovaRtspTransportDestroy(
            KovaListTakeFirstOf<KovaRtspTransport>(pSession->pTransportList, nullptr));
}
