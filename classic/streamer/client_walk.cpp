#include "classic/streamer/client_walk.h"

#include "classic/rtp/session_tally.h"
#include "foundation/scope_guard.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char kEnter[] = "Enter";
constexpr char kLeave[] = "Leave";

void WalkGroup(KovaClientVisit visit, const KovaClientWalk &walk)
{
    KovaWalkTrace(walk.szTrace, kEnter, "Client");
    KovaRtpSendGroupLockClients(visit.pGroup);
    KovaList *pNode = visit.pGroup->pClientList;
    while (pNode != nullptr) {
        visit.pClient = static_cast<KovaRtpClient *>(pNode->data);
        pNode = pNode->next;
        if (visit.pClient == nullptr || !walk.pfnVisit(visit, walk.pContext))
            continue;
        KovaListTake(&visit.pGroup->pClientList, nullptr, visit.pClient);
        KovaRtpClientDestroy(visit.pClient);
    }
    pthread_mutex_unlock(&visit.pGroup->clientMutex);
    KovaWalkTrace(walk.szTrace, kLeave, "Client");
}

void WalkSender(KovaClientVisit visit, const KovaClientWalk &walk)
{
    KovaWalkTrace(walk.szTrace, kEnter, "SendGroup");
    KovaMutexLock lock(&visit.pSender->mutex);
    for (KovaList *pNode = visit.pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next) {
        visit.pGroup = static_cast<KovaRtpSendGroup *>(pNode->data);
        if (visit.pGroup != nullptr)
            WalkGroup(visit, walk);
    }
    lock.Unlock();
    KovaWalkTrace(walk.szTrace, kLeave, "SendGroup");
}

/// A visitor for one session's clients only.
struct SessionFilter {
    const char *szSessionId;
    KovaClientVisitor pfnVisit;
    void *pContext;
};

bool VisitSession(const KovaClientVisit &visit, void *pContext)
{
    const SessionFilter *pFilter = static_cast<SessionFilter *>(pContext);
    if (strcmp(visit.pClient->szSessionId, pFilter->szSessionId) != 0)
        return false;
    return pFilter->pfnVisit(visit, pFilter->pContext);
}

} // namespace

void KovaStreamerWalkClients(KovaRtspStreamer *pStreamer, const KovaClientWalk &walk)
{
    KovaWalkTrace(walk.szTrace, kEnter, "Sender");
    KovaMutexLock lock(walk.pSenderListMutex);
    for (KovaList *pNode = pStreamer->pSenderList; pNode != nullptr; pNode = pNode->next) {
        KovaRtpSender *pSender = static_cast<KovaRtpSender *>(pNode->data);
        if (pSender != nullptr)
            WalkSender({pStreamer, pSender, nullptr, nullptr}, walk);
    }
    lock.Unlock();
    KovaWalkTrace(walk.szTrace, kLeave, "Sender");
}

void KovaStreamerWalkSession(KovaRtspStreamer *pStreamer, const char *szSessionId,
                             const char *szTrace, KovaClientVisitor pfnVisit, void *pContext)
{
    SessionFilter filter = {szSessionId, pfnVisit, pContext};
    KovaStreamerWalkClients(pStreamer, {&pStreamer->senderMutex, szTrace, VisitSession, &filter});
}

bool KovaVisitRemoveClient(const KovaClientVisit &visit, void *pContext)
{
    bool *pCounted = static_cast<bool *>(pContext);
    if (!*pCounted && KovaSessionTallyTake(visit.pClient->pTally))
        visit.pStreamer->nClientCount--;
    *pCounted = true;
    return true;
}

void KovaVisitCountOut(const KovaClientVisit &visit)
{
    const KovaRtpClient *pClient = visit.pClient;
    if (KovaSessionTallyTakePlaying(pClient->pTally, pClient->nState != kClientSetUp))
        visit.pStreamer->nClientCount--;
}

void KovaWalkTrace(const char *szTrace, const char *szStep, const char *szLevel)
{
    if (szTrace != nullptr)
        printf("%s, %s %s\n", szTrace, szStep, szLevel);
}
