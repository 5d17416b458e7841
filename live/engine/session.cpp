#include "live/engine/session.h"

#include "foundation/heap.h"
#include "foundation/hex.h"
#include "foundation/random.h"
#include "foundation/text.h"
#include "live/engine/connection.h"
#include "live/engine/media_out.h"
#include "live/engine/notices.h"
#include "live/engine/player_queue.h"
#include "live/engine/rtcp_out.h"
#include "rtp/rtp_header.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr uint64_t kJoinKeyInterval = 300000;

KovaLiveLoop *LoopHeld(const KovaLiveSession *pSession) KOVA_ASSERT_HELD(pSession->pLoop->mutex)
{
    KovaMutexAssertHeld(&pSession->pLoop->mutex);
    return pSession->pLoop;
}

/// Interleaved players live with their connection; others end by time.
void HandleTime(KovaTimer *pTimer, uint64_t nNow)
{
    auto *pSession = reinterpret_cast<KovaLiveSession *>(reinterpret_cast<char *>(pTimer) -
                                                         offsetof(KovaLiveSession, timer));
    KovaLiveLoop *pLoop = LoopHeld(pSession);
    const uint64_t nDue = pSession->nHeard + pLoop->pLive->settings.nSessionTime;
    if (pSession->bDisconnect)
        KovaSessionEnd(pSession, KOVA_LIVE_WENT_DISCONNECTED);
    else if (nNow < nDue)
        KovaTimersSet(&pLoop->timers, pTimer, nDue);
    else if (pSession->bInterleaved && pSession->state == kSessionPlaying)
        KovaTimersSet(&pLoop->timers, pTimer, nNow + pLoop->pLive->settings.nSessionTime);
    else
        KovaSessionEnd(pSession, KOVA_LIVE_WENT_SILENCE);
}

bool DrawId(const KovaLiveLoop *pLoop, KovaLiveSession *pSession)
{
    uint8_t random[8];
    if (!KovaRandomFill(random, sizeof(random)))
        return false;
    if (pLoop->pLive->nLoops > 1)
        random[7] = static_cast<uint8_t>((random[7] & 0xF0) | pLoop->nIndex);
    KovaHexWrite(pSession->szId, random, sizeof(random));
    return true;
}

bool CountIn(KovaLive *pLive)
{
    if (pLive->nSessions++ < pLive->settings.nMaxSessions)
        return true;
    pLive->nSessions--;
    return false;
}

void LinkPlayer(KovaLiveSession *pSession)
{
    KovaLiveSession **ppFirst = &pSession->pStream->pPlayers[pSession->pLoop->nIndex];
    pSession->pNextPlayer = *ppFirst;
    pSession->ppPlayerLink = ppFirst;
    if (*ppFirst != nullptr)
        (*ppFirst)->ppPlayerLink = &pSession->pNextPlayer;
    *ppFirst = pSession;
}

void UnlinkPlayer(KovaLiveSession *pSession)
{
    *pSession->ppPlayerLink = pSession->pNextPlayer;
    if (pSession->pNextPlayer != nullptr)
        pSession->pNextPlayer->ppPlayerLink = pSession->ppPlayerLink;
    KovaStreamLeave(pSession->pStream, pSession->pLoop->nIndex);
}

void LeaveConnection(KovaLiveSession *pSession)
{
    KovaLiveConnection *pConnection = pSession->pConnection;
    if (pConnection == nullptr)
        return;
    KovaLiveSession **ppLink = &pConnection->pSessions;
    while (*ppLink != pSession)
        ppLink = &(*ppLink)->pNextOwn;
    *ppLink = pSession->pNextOwn;
    pSession->pConnection = nullptr;
    pConnection->nActive = pConnection->pLoop->nNow;
    KovaConnectionArm(pConnection);
}

void SendByes(KovaLiveSession *pSession)
{
    for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext)
        KovaRtcpSendBye(pSession, pSetup);
}

void Free(KovaLiveSession *pSession)
{
    KovaQueueClear(pSession, nullptr);
    while (pSession->pSetups != nullptr) {
        KovaLiveSetup *pSetup = pSession->pSetups;
        pSession->pSetups = pSetup->pNext;
        free(pSetup);
    }
    KovaStreamRelease(pSession->pStream);
    free(pSession);
}

/// The host is asked for a key frame of each picture track that the player waits for.
void AskForKeys(KovaLiveSession *pSession)
{
    for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr;
         pSetup = pSetup->pNext) {
        KovaLiveTrack *pTrack = pSession->pStream->pTracks[pSetup->nTrack];
        if (pSetup->bWantsEntry && KovaTrackMediaCodec(pTrack->pMedia) == KOVA_LIVE_H264 &&
            KovaStreamWantsKey(pSession->pStream, pSetup->nTrack, pSession->pLoop->nNow,
                               kJoinKeyInterval))
            KovaNoticeStream(pSession->pLoop, KOVA_LIVE_EVENT_KEY_FRAME, pSession->pStream, pTrack);
    }
}

uint64_t NextPlayerNumber(KovaLive *pLive)
{
    const KovaMutexLock lock(&pLive->numberMutex, kRankLeaf);
    return ++pLive->nLastPlayer;
}

void Tell(const KovaLiveSession *pSession, const char *szSays)
{
    KovaNoticePeer(pSession->pLoop, KOVA_LIVE_LOG_INFO, pSession->nPeer, pSession->nPeerPort,
                   szSays, pSession->pStream->szPath);
}

void TellCame(KovaLiveSession *pSession)
{
    pSession->bPlayed = true;
    pSession->nPlayer = NextPlayerNumber(pSession->pLoop->pLive);
    pSession->nBegan = pSession->pLoop->nNow;
    KovaNoticePlayer(pSession->pLoop, KOVA_LIVE_EVENT_PLAYER_CAME, pSession, 0);
    Tell(pSession, " plays ");
}

const char *ReasonText(uint32_t nReason)
{
    static constexpr char kTexts[][24] = {" : ",
                                          " said goodbye: ",
                                          " lost its connection: ",
                                          " is silent: ",
                                          " is too slow: ",
                                          " was disconnected: ",
                                          " lost the stream: ",
                                          " said goodbye: "};
    return nReason < sizeof(kTexts) / sizeof(kTexts[0]) ? kTexts[nReason] : kTexts[0];
}

void TellWent(const KovaLiveSession *pSession, uint32_t nReason)
{
    KovaNoticePlayer(pSession->pLoop, KOVA_LIVE_EVENT_PLAYER_WENT, pSession, nReason);
    Tell(pSession, ReasonText(nReason));
}

void AddSent(KovaSentCounts *pSent, uint32_t nPackets, uint32_t nBytes)
{
    pSent->nPackets += nPackets;
    pSent->nBytes += nBytes;
}

} // namespace

int32_t KovaSessionCreate(KovaLiveConnection *pConnection, KovaLiveStream *pStream,
                          KovaLiveSession **ppSession)
{
    KovaLiveLoop *pLoop = pConnection->pLoop;
    KovaMutexAssertHeld(&pLoop->mutex);
    if (!CountIn(pLoop->pLive))
        return KOVA_LIVE_ERROR_TOO_LARGE;
    KovaLiveSession *pSession = KovaHeapNew<KovaLiveSession>();
    if (pSession == nullptr || !DrawId(pLoop, pSession) || !KovaTimersJoin(&pLoop->timers)) {
        free(pSession);
        pLoop->pLive->nSessions--;
        return KOVA_LIVE_ERROR_MEMORY;
    }
    pSession->pLoop = pLoop;
    pSession->pStream = pStream;
    KovaStreamAddReference(pStream);
    pSession->pConnection = pConnection;
    pSession->pNextOwn = pConnection->pSessions;
    pConnection->pSessions = pSession;
    pSession->nPeer = pConnection->peer.sin_addr.s_addr;
    pSession->nPeerPort = ntohs(pConnection->peer.sin_port);
    pSession->pNext = pLoop->pSessions;
    pSession->ppLink = &pLoop->pSessions;
    if (pSession->pNext != nullptr)
        pSession->pNext->ppLink = &pSession->pNext;
    pLoop->pSessions = pSession;
    KovaTextCopy(pSession->szUser, sizeof(pSession->szUser), pConnection->login.szUser);
    pSession->timer.pfnHandle = HandleTime;
    KovaSessionHeard(pSession);
    *ppSession = pSession;
    return KOVA_LIVE_OK;
}

void KovaSessionEnd(KovaLiveSession *pSession, uint32_t nReason)
{
    KovaLiveLoop *pLoop = LoopHeld(pSession);
    KovaConnectionFinishFrame(pSession);
    if (nReason != KOVA_LIVE_WENT_CONNECTION)
        SendByes(pSession);
    if (pSession->state == kSessionPlaying)
        UnlinkPlayer(pSession);
    if (pSession->bPlayed)
        TellWent(pSession, nReason);
    KovaQueueClear(pSession, nullptr);
    LeaveConnection(pSession);
    *pSession->ppLink = pSession->pNext;
    if (pSession->pNext != nullptr)
        pSession->pNext->ppLink = pSession->ppLink;
    KovaTimersLeave(&pLoop->timers, &pSession->timer);
    pLoop->pLive->nSessions--;
    Free(pSession);
}

KovaLiveSession *KovaSessionFind(KovaLiveLoop *pLoop, const char *szId, size_t nLength,
                                 uint32_t nPeer)
{
    KovaMutexAssertHeld(&pLoop->mutex);
    if (nLength != kLiveSessionIdSize - 1)
        return nullptr;
    for (KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;
         pSession = pSession->pNext) {
        if (pSession->nPeer == nPeer && memcmp(pSession->szId, szId, nLength) == 0)
            return pSession;
    }
    return nullptr;
}

KovaLiveLoop *KovaSessionLoop(const KovaLive *pLive, const char *szId, size_t nLength)
{
    uint32_t nIndex = 0;
    if (nLength != kLiveSessionIdSize - 1 || !KovaHexNumber({szId + nLength - 1, 1}, &nIndex) ||
        nIndex >= pLive->nLoops)
        return nullptr;
    return pLive->pLoops[nIndex];
}

KovaLiveSetup *KovaSessionSetup(KovaLiveSession *pSession, uint32_t nTrack)
{
    KovaLiveSetup *pSetup = pSession->pSetups;
    while (pSetup != nullptr && pSetup->nTrack != nTrack)
        pSetup = pSetup->pNext;
    return pSetup;
}

KovaLiveSetup *KovaSessionAddSetup(KovaLiveSession *pSession, uint32_t nTrack)
{
    KovaLiveSetup *pSetup = KovaHeapNew<KovaLiveSetup>();
    if (pSetup == nullptr)
        return nullptr;
    pSetup->nTrack = static_cast<uint8_t>(nTrack);
    KovaLiveSetup **ppEnd = &pSession->pSetups;
    while (*ppEnd != nullptr)
        ppEnd = &(*ppEnd)->pNext;
    *ppEnd = pSetup;
    return pSetup;
}

void KovaSessionRemoveSetup(KovaLiveSession *pSession, KovaLiveSetup *pSetup)
{
    KovaConnectionFinishFrame(pSession);
    KovaRtcpSendBye(pSession, pSetup);
    KovaQueueClear(pSession, pSetup);
    KovaLiveSetup **ppLink = &pSession->pSetups;
    while (*ppLink != pSetup)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pSetup->pNext;
    free(pSetup);
}

void KovaSessionCountSent(KovaLiveSession *pSession, KovaLiveSetup *pSetup, uint32_t nPackets,
                          uint32_t nBytes)
{
    KovaLiveLoop *pLoop = pSession->pLoop;
    KovaMutexAssertHeld(&pLoop->mutex);
    pSetup->nPackets += nPackets;
    pSetup->nOctets += nBytes - nPackets * kRtpHeaderSize;
    AddSent(&pSession->sent, nPackets, nBytes);
    AddSent(&pLoop->figures.sent, nPackets, nBytes);
    AddSent(&pSession->pStream->sent[pLoop->nIndex], nPackets, nBytes);
}

void KovaSessionCountLate(KovaLiveSession *pSession, uint32_t nPackets)
{
    pSession->sent.nLatePackets += nPackets;
    pSession->pStream->sent[pSession->pLoop->nIndex].nLatePackets += nPackets;
}

void KovaSessionPlay(KovaLiveSession *pSession)
{
    if (pSession->state == kSessionPlaying)
        return;
    for (KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext) {
        pSetup->bWantsEntry = true;
        pSetup->bTakes = false; // of a unit whose rest is still to come
    }
    pSession->nJoined = pSession->pLoop->nNow;
    KovaUnit **ppKept = nullptr;
    uint32_t nKept = 0;
    KovaStreamJoin(pSession->pStream, pSession->pLoop->nIndex, pSession->pLoop->nNow, &ppKept,
                   &nKept, &pSession->nSerial);
    pSession->state = kSessionPlaying;
    LinkPlayer(pSession);
    if (!pSession->bPlayed)
        TellCame(pSession);
    for (uint32_t nUnit = 0; nUnit < nKept; nUnit++) {
        KovaMediaGive(pSession, ppKept[nUnit]);
        KovaUnitRelease(ppKept[nUnit]);
    }
    free(ppKept);
    AskForKeys(pSession);
}

void KovaSessionPause(KovaLiveSession *pSession)
{
    if (pSession->state != kSessionPlaying)
        return;
    UnlinkPlayer(pSession);
    pSession->state = kSessionPaused;
    KovaConnectionFinishFrame(pSession);
    KovaQueueClear(pSession, nullptr);
}

void KovaSessionHeard(KovaLiveSession *pSession)
{
    pSession->nHeard = pSession->pLoop->nNow;
    if (pSession->timer.nPlace == 0)
        KovaTimersSet(&pSession->pLoop->timers, &pSession->timer,
                      pSession->nHeard + pSession->pLoop->pLive->settings.nSessionTime);
}
