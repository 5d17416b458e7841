#include "kova_live.h"

#include "foundation/divide.h"
#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/session.h"
#include "live/engine/stream.h"

#include "foundation/clock.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

namespace {

/// Fills in a caller's record all that we know, unless it is an older and smaller one.
/// KOVA_LIVE_OK or ERROR_ARGUMENT.
int32_t RecordFill(void *pTheirs, const void *pOurs, uint32_t nOurs)
{
    uint32_t nTheirs = 0;
    memcpy(&nTheirs, pTheirs, sizeof(nTheirs));
    if (nTheirs < nOurs)
        return KOVA_LIVE_ERROR_ARGUMENT;
    constexpr size_t kHead = sizeof(uint32_t);
    memcpy(static_cast<char *>(pTheirs) + kHead, static_cast<const char *>(pOurs) + kHead,
           nOurs - kHead);
    return KOVA_LIVE_OK;
}

void AddLoop(KovaLiveLoop *pLoop, KovaLiveServerNumbers *pNumbers)
{
    const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    for (const KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;
         pSession = pSession->pNext)
        pNumbers->players += pSession->state == kSessionPlaying ? 1 : 0;
    pNumbers->refused += pLoop->figures.nRefused;
    pNumbers->packets += pLoop->figures.sent.nPackets;
    pNumbers->bytes += pLoop->figures.sent.nBytes;
}

void AddSetups(const KovaLiveSession *pSession, KovaLivePlayer *pPlayer)
{
    for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr;
         pSetup = pSetup->pNext) {
        const uint32_t nRate =
            KovaTrackMediaClockRate(pSession->pStream->pTracks[pSetup->nTrack]->pMedia);
        const uint32_t nJitter =
            nRate != 0
                ? static_cast<uint32_t>(KovaDivide(uint64_t{pSetup->nJitter} * 1000000, nRate))
                : 0;
        // Of several tracks the worst counts.
        pPlayer->loss = pSetup->nLoss > pPlayer->loss ? pSetup->nLoss : pPlayer->loss;
        pPlayer->jitter_us = nJitter > pPlayer->jitter_us ? nJitter : pPlayer->jitter_us;
        if (pSetup->nRoundTrip != 0)
            pPlayer->round_trip_us = pSetup->nRoundTrip;
    }
}

KovaLivePlayer Describe(const KovaLiveSession *pSession, uint64_t nNow)
{
    KovaLivePlayer player = {};
    player.port = pSession->nPeerPort;
    player.interleaved = pSession->bInterleaved ? 1 : 0;
    player.player = pSession->nPlayer;
    player.stream = pSession->pStream;
    inet_ntop(AF_INET, &pSession->nPeer, player.address, sizeof(player.address));
    snprintf(player.user, sizeof(player.user), "%s", pSession->szUser);
    player.playing_us = nNow > pSession->nBegan ? nNow - pSession->nBegan : 0;
    player.packets = pSession->sent.nPackets;
    player.bytes = pSession->sent.nBytes;
    player.late_packets = pSession->sent.nLatePackets;
    player.paused = pSession->state == kSessionPaused ? 1 : 0;
    AddSetups(pSession, &player);
    return player;
}

/// Lists a loop's players behind the *pnCount that are there.
void ListLoop(KovaLiveLoop *pLoop, char *pRecords, uint32_t nStride, uint32_t nRoom,
              uint32_t *pnCount)
{
    const uint64_t nNow = KovaClockMonotonic();
    const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    for (const KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;
         pSession = pSession->pNext) {
        if (!pSession->bPlayed)
            continue;
        if (*pnCount < nRoom) {
            const KovaLivePlayer player = Describe(pSession, nNow);
            (void)RecordFill(pRecords + size_t{*pnCount} * nStride, &player, sizeof(player));
        }
        ++*pnCount;
    }
}

} // namespace

extern "C" {

int32_t KovaLiveServerFigures(KovaLive *pLive, KovaLiveServerNumbers *pNumbers)
{
    if (pLive == nullptr || pNumbers == nullptr)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLiveServerNumbers numbers = {};
    numbers.connections = pLive->nConnections;
    numbers.sessions = pLive->nSessions;
    numbers.logins_failed = KovaLoginFailed(pLive->pLogin);
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++)
        AddLoop(pLive->pLoops[nLoop], &numbers);
    return RecordFill(pNumbers, &numbers, sizeof(numbers));
}

int32_t KovaLiveStreamFigures(KovaLiveStream *pStream, KovaLiveStreamNumbers *pNumbers)
{
    if (pStream == nullptr || pNumbers == nullptr)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLiveStreamNumbers numbers = {};
    numbers.players = KovaStreamPlayers(pStream);
    numbers.ready = KovaStreamReady(pStream, KovaClockMonotonic(), nullptr) ? 1 : 0;
    numbers.tracks = pStream->nTracks;
    for (uint32_t nLoop = 0; nLoop < pStream->pLive->nLoops; nLoop++) {
        KovaLiveLoop *pLoop = pStream->pLive->pLoops[nLoop];
        const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
        numbers.packets += pStream->sent[nLoop].nPackets;
        numbers.bytes += pStream->sent[nLoop].nBytes;
        numbers.late_packets += pStream->sent[nLoop].nLatePackets;
    }
    {
        const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
        numbers.units = pStream->counts.nUnits;
        numbers.unit_bytes = pStream->counts.nUnitBytes;
        numbers.dropped_units = pStream->counts.nDroppedUnits;
    }
    return RecordFill(pNumbers, &numbers, sizeof(numbers));
}

int32_t KovaLivePlayers(KovaLive *pLive, KovaLivePlayer *pPlayers, uint32_t nRoom,
                        uint32_t *pnCount)
{
    if (pLive == nullptr || pnCount == nullptr || (pPlayers == nullptr && nRoom != 0))
        return KOVA_LIVE_ERROR_ARGUMENT;
    // The caller's version of the record may be larger than ours.
    const uint32_t nStride = nRoom != 0 ? pPlayers[0].size : 0;
    if (nRoom != 0 && nStride < sizeof(KovaLivePlayer))
        return KOVA_LIVE_ERROR_ARGUMENT;
    auto *pRecords = reinterpret_cast<char *>(pPlayers);
    for (uint32_t nRecord = 1; nRecord < nRoom; nRecord++)
        memcpy(pRecords + size_t{nRecord} * nStride, &nStride, sizeof(nStride));
    *pnCount = 0;
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++)
        ListLoop(pLive->pLoops[nLoop], pRecords, nStride, nRoom, pnCount);
    return KOVA_LIVE_OK;
}

int32_t KovaLiveDisconnect(KovaLive *pLive, uint64_t nPlayer)
{
    if (pLive == nullptr || nPlayer == 0)
        return KOVA_LIVE_ERROR_ARGUMENT;
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++) {
        KovaLiveLoop *pLoop = pLive->pLoops[nLoop];
        const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
        for (KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;
             pSession = pSession->pNext) {
            if (pSession->nPlayer != nPlayer)
                continue;
            pSession->bDisconnect = true;
            KovaLoopLook(pLoop);
            return KOVA_LIVE_OK;
        }
    }
    return KOVA_LIVE_ERROR_NOT_FOUND;
}

} // extern "C"
