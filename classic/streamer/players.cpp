#include "classic/streamer/players.h"

#include "classic/rtp/stream_calls.h"
#include "classic/streamer/client_walk.h"
#include "classic/streamer/server_calls.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"

namespace {

/// Passes of the monitor after which a stray gets no packet any more that would
/// tell it.
constexpr uint32_t kStrayPasses = 3;

/// What distinguishes the ways of ending (players.h has them in words).
struct EndRule {
    const char *szTrace; // name in the lines for each step; null: silent
    bool bOnceAnyState;  // one count goes down, on whatever stream, played or not
    bool bLeavesUnaware; // clients that play through the lost connection stay
};

constexpr EndRule kRules[] = {
    /* kEndTornDown */ {nullptr, true, false},
    /* kEndGoneWithIt */ {nullptr, false, false},
    /* kEndExpired */ {"KovaRtspServerRemoveRtpClient", true, false},
    /* kEndLost */ {nullptr, false, true},
    /* kEndOvertaken */ {nullptr, false, false},
};

/// An end on its way through a stream's clients.
struct Ending {
    const EndRule *pRule;
    bool *pCounted;
};

/// Lowers the count for a client's player, unless that did not play or was
/// counted out before.
void CountOutPlaying(KovaRtspStreamer *pStreamer, const KovaRtpClient *pClient)
{
    if (KovaSessionTallyTakePlaying(pClient->pTally, pClient->nState != kClientSetUp))
        pStreamer->nClientCount--;
}

void CountOut(const KovaClientVisit &visit, const Ending &ending)
{
    if (!ending.pRule->bOnceAnyState)
        return CountOutPlaying(visit.pStreamer, visit.pClient);
    if (!*ending.pCounted && KovaSessionTallyTake(visit.pClient->pTally))
        visit.pStreamer->nClientCount--;
    *ending.pCounted = true;
}

bool EndClient(const KovaClientVisit &visit, void *pContext)
{
    const Ending &ending = *static_cast<Ending *>(pContext);
    KovaRtpClient *pClient = visit.pClient;
    if (ending.pRule->bLeavesUnaware && pClient->bInterleaved != 0 &&
        pClient->nState != kClientSetUp) {
        pClient->nStrayPasses = 1;
        return false;
    }
    CountOut(visit, ending);
    return true;
}

bool MarkPlaying(const KovaClientVisit &visit, void *)
{
    visit.pClient->nState = kClientPlaying;
    return false;
}

} // namespace

bool KovaPlayersAdd(KovaRtspStreamer *pStreamer, uint32_t nTrackId, const KovaClientSetup &setup)
{
    if (setup.nRtpSocket < 0 || setup.nRtcpSocket < 0)
        return false;
    // Found and used under one lock: the host may remove the payload type.
    const KovaMutexLock lock(&pStreamer->senderMutex, kRankSenders);
    KovaRtpSender *pSender =
        KovaListFind(pStreamer->pSenderList, &KovaRtpSender::nPayloadId, nTrackId);
    if (pSender == nullptr)
        return false;
    KovaOwner<KovaRtpClient, KovaRtpClientDestroy> client(KovaRtpClientCreate(
        setup.szSessionId, setup.nRtpSocket, setup.nRtcpSocket, setup.nClientRtpPort,
        setup.nClientRtcpPort, setup.address, setup.nTransport, setup.pTcpSocket, setup.nRtpChannel,
        setup.nRtcpChannel, pSender->nLastSequence.load(std::memory_order_relaxed),
        pSender->nLastTimestamp.load(std::memory_order_relaxed)));
    if (!client)
        return false;
    if (KovaRtpSenderPlaceClient(pSender, client.Get()))
        client.Release();
    return true;
}

KovaPlay KovaPlayersBeginPlay(KovaRtspStreamer *pStreamer, const char *szSessionId)
{
    const KovaPlay play = {KovaSessionTallyHold(pStreamer, szSessionId), szSessionId};
    pStreamer->nClientCount++;
    // Before any client plays: from then on its sending thread may find it lost.
    KovaSessionTallyRaised(play.pTally);
    KovaStreamerWalkSession(pStreamer, szSessionId, nullptr, MarkPlaying, nullptr);
    return play;
}

void KovaPlayersTakeBackPlay(KovaRtspStreamer *pStreamer, const KovaPlay &play)
{
    bool bCounted = false;
    KovaPlayersEnd(pStreamer, play.szSessionId, kEndOvertaken, &bCounted);
    if (KovaSessionTallyTake(play.pTally))
        pStreamer->nClientCount--;
}

void KovaPlayersFinishPlay(const KovaPlay &play)
{
    KovaSessionTallyRelease(play.pTally);
}

void KovaPlayersEnd(KovaRtspStreamer *pStreamer, const char *szSessionId, KovaPlayerEnd end,
                    bool *pCounted)
{
    Ending ending = {&kRules[end], pCounted};
    KovaStreamerWalkSession(pStreamer, szSessionId, ending.pRule->szTrace, EndClient, &ending);
}

bool KovaPlayersStrayIsDue(KovaRtspStreamer *pStreamer, KovaRtpClient *pClient)
{
    if (pClient->nStrayPasses == 0 || ++pClient->nStrayPasses <= kStrayPasses)
        return false;
    CountOutPlaying(pStreamer, pClient);
    return true;
}

// What the sending side tells (classic/rtp/stream_calls.h).

void KovaStreamPlayerLost(KovaRtspStreamer *pStreamer, KovaSessionTally *pTally,
                          const char *szSessionId)
{
    const bool bCounts = KovaSessionTallyTake(pTally);
    // The tally is held until the session has ended: no other session can get the
    // id before, so what is ended is never that one.
    KovaServerEndSession(pStreamer->pServer, szSessionId, kEndLost);
    KovaSessionTallyLeave(pTally);
    if (bCounts)
        pStreamer->nClientCount--;
}

void KovaStreamClientWithdrawn(KovaRtspStreamer *pStreamer, KovaRtpClient *pClient)
{
    const bool bPlays = pClient->nState != kClientSetUp;
    const bool bCounts = KovaSessionTallyLeaveLast(pClient->pTally, bPlays);
    pClient->pTally = nullptr;
    if (bCounts && pStreamer != nullptr)
        pStreamer->nClientCount--;
}
