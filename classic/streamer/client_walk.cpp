#include "classic/streamer/client_walk.h"

#include "foundation/list_view.h"
#include "foundation/mutex.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr char kEnter[] = "Enter";
constexpr char kLeave[] = "Leave";

void WalkGroup(KovaClientVisit visit, const KovaClientWalk &walk)
{
    KovaWalkTrace(walk.szTrace, kEnter, "Client");
    {
        const KovaClientLock lock(visit.pGroup);
        for (KovaRtpClient *pClient : KovaListOf<KovaRtpClient>(visit.pGroup->pClientList)) {
            visit.pClient = pClient;
            if (!walk.pfnVisit(visit, walk.pContext))
                continue;
            KovaListTake(visit.pGroup->pClientList, nullptr, pClient);
            KovaRtpClientDestroy(pClient);
        }
    }
    KovaWalkTrace(walk.szTrace, kLeave, "Client");
}

void WalkSender(KovaClientVisit visit, const KovaClientWalk &walk)
{
    KovaWalkTrace(walk.szTrace, kEnter, "SendGroup");
    KovaMutexLock lock(&visit.pSender->mutex, kRankGroups);
    for (KovaRtpSendGroup *pGroup : KovaListOf<KovaRtpSendGroup>(visit.pSender->pSendGroupList)) {
        visit.pGroup = pGroup;
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
    KovaMutexLock lock(walk.pSenderListMutex, walk.rank);
    // Held, or packerMutex in its place: a change of the list takes both.
    KovaMutexAssertHeld(&pStreamer->senderMutex);
    for (KovaRtpSender *pSender : KovaListOf<KovaRtpSender>(pStreamer->pSenderList))
        WalkSender({pStreamer, pSender, nullptr, nullptr}, walk);
    lock.Unlock();
    KovaWalkTrace(walk.szTrace, kLeave, "Sender");
}

void KovaStreamerWalkSession(KovaRtspStreamer *pStreamer, const char *szSessionId,
                             const char *szTrace, KovaClientVisitor pfnVisit, void *pContext)
{
    SessionFilter filter = {szSessionId, pfnVisit, pContext};
    KovaStreamerWalkClients(
        pStreamer, {&pStreamer->senderMutex, kRankSenders, szTrace, VisitSession, &filter});
}

void KovaWalkTrace(const char *szTrace, const char *szStep, const char *szLevel)
{
    if (szTrace != nullptr)
        printf("%s, %s %s\n", szTrace, szStep, szLevel);
}
