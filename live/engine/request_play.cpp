#include "live/engine/requests.h"

#include "foundation/text.h"
#include "live/engine/media_out.h"
#include "live/engine/player_queue.h"
#include "live/engine/rtcp_out.h"
#include "live/rtsp/words.h"

namespace {

constexpr size_t kInfoSize = 1600;
constexpr size_t kBaseSize = 1100;

/// A live stream plays from now on: ranges in normal play time are taken for that (players
/// ask for "npt=0.000-"), other clocks are not kept (RFC 2326, 12.29).
bool RangeIsServed(const KovaRequest &request)
{
    const std::string_view range = KovaRequestHeaderOf(request, "Range");
    return range.empty() || KovaWordIs(KovaPart(range, 0, 3), "npt");
}

/// The oldest waiting unit of a track; null when none is there yet.
const KovaUnit *FirstUnit(const KovaLiveSession *pSession, const KovaLiveSetup *pSetup)
{
    for (uint32_t nEntry = 0; nEntry < pSession->queue.nCount; nEntry++) {
        const KovaQueueEntry *pEntry = KovaQueueAt(pSession, nEntry);
        if (pEntry->pSetup == pSetup && pEntry->nNext == 0)
            return pEntry->pUnit;
    }
    return nullptr;
}

/// RTP-Info (RFC 2326, 12.33): sequence number and time stamp only of a packet that exists.
bool WriteInfo(const KovaLiveSession *pSession, const char *szBase, char *szInfo, size_t nCapacity)
{
    size_t nLength = 0;
    bool bFits = true;
    for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr;
         pSetup = pSetup->pNext) {
        const KovaUnit *pUnit = FirstUnit(pSession, pSetup);
        bFits = bFits && KovaTextAppend(szInfo, nCapacity, &nLength, "%surl=%strack%u",
                                        nLength != 0 ? "," : "", szBase, pSetup->nTrack + 1U);
        if (pUnit != nullptr)
            bFits = bFits && KovaTextAppend(szInfo, nCapacity, &nLength, ";seq=%u;rtptime=%u",
                                            pUnit->nFirstSequence, pUnit->nTimestamp);
    }
    return bFits;
}

void AnswerPlay(KovaExchange *pExchange)
{
    const KovaLiveSession *pSession = pExchange->pSession;
    char szBase[kBaseSize];
    char szInfo[kInfoSize];
    KovaExchangeBegin(pExchange, 200);
    KovaExchangeSession(pExchange, pSession);
    KovaAnswerHeader(&pExchange->answer, "Range", "npt=now-");
    if (KovaRequestBase(pExchange->pConnection, *pExchange->pRequest, pSession->pStream->szPath,
                        szBase, sizeof(szBase)) &&
        WriteInfo(pSession, szBase, szInfo, sizeof(szInfo)))
        KovaAnswerHeader(&pExchange->answer, "RTP-Info", "%s", szInfo);
    KovaExchangeSend(pExchange);
}

/// Sends what was kept for the player, each track's report first.
void SendKept(KovaLiveSession *pSession)
{
    for (KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext) {
        if (pSetup->nNextReport == 0 && FirstUnit(pSession, pSetup) != nullptr)
            KovaRtcpSendReport(pSession, pSetup);
    }
    if (!pSession->bInterleaved) {
        KovaMediaUdpFlush(pSession);
        return;
    }
    // Another connection than the one that asked may carry it.
    KovaConnectionFlush(pSession->pConnection);
    KovaConnectionArm(pSession->pConnection);
}

/// Whether a URL with a track names one that the session has.
bool NamesOwnTrack(const KovaExchange *pExchange)
{
    return pExchange->url.nTrack < 0 ||
           KovaSessionSetup(pExchange->pSession, static_cast<uint32_t>(pExchange->url.nTrack)) !=
               nullptr;
}

} // namespace

void KovaRequestPlay(KovaExchange *pExchange)
{
    KovaLiveSession *pSession = pExchange->pSession;
    if (!NamesOwnTrack(pExchange))
        return KovaExchangeStatus(pExchange, 404);
    if (!RangeIsServed(*pExchange->pRequest))
        return KovaExchangeStatus(pExchange, 457);
    KovaSessionPlay(pSession);
    AnswerPlay(pExchange);
    SendKept(pSession);
}

void KovaRequestPause(KovaExchange *pExchange)
{
    if (!NamesOwnTrack(pExchange))
        return KovaExchangeStatus(pExchange, 404);
    KovaSessionPause(pExchange->pSession);
    KovaExchangeBegin(pExchange, 200);
    KovaExchangeSession(pExchange, pExchange->pSession);
    KovaExchangeSend(pExchange);
}

void KovaRequestTeardown(KovaExchange *pExchange)
{
    KovaLiveSession *pSession = pExchange->pSession;
    if (!NamesOwnTrack(pExchange))
        return KovaExchangeStatus(pExchange, 404);
    KovaExchangeStatus(pExchange, 200);
    if (pExchange->url.nTrack >= 0 && pSession->pSetups->pNext != nullptr)
        KovaSessionRemoveSetup(
            pSession, KovaSessionSetup(pSession, static_cast<uint32_t>(pExchange->url.nTrack)));
    else
        KovaSessionEnd(pSession, KOVA_LIVE_WENT_TEARDOWN);
}
