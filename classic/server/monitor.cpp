#include "classic/server/monitor.h"

#include "classic/server/handler_registry.h"
#include "classic/server/server.h"
#include "classic/server/session_end.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/client_walk.h"
#include "classic/streamer/players.h"
#include "foundation/clock.h"
#include "foundation/list_view.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"

#include <unistd.h>

#include <cstdio>

namespace {

constexpr char kThreadName[] = "pMonitorProc";
constexpr unsigned kPassMicroseconds = 1000000;

/// A client's bit rate is the mean since its mark; the mark moves when it is
/// older than this, ms.
constexpr uint64_t kMeasureSpan = 10000;

/// The second test is for a clock that was set from before 2038 to after it: the
/// 32-bit seconds are negative there, and no older session would ever expire.
bool IsExpired(const KovaRtspSession *pSession)
{
    const int32_t tNow = KovaClockSeconds();
    const int32_t tExpire = pSession->tExpire;
    return tExpire < tNow || KovaClockSecondsBetween(tExpire, tNow) > 0;
}

void ExpireSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
    KOVA_REQUIRES(pServer->mtxSession)
{
    char szShown[kSessionIdSize];
    printf("%s, Session Id: %s,  Timeout !!!\n", kThreadName,
           KovaTextPrintable(szShown, sizeof(szShown), pSession->szSessionId));
    KovaRtspServerRemoveRtpClient(pServer, pSession->szSessionId);
    printf("%s, KovaRtspServerRemoveRtpClient Finish !!!\n", kThreadName);
    KovaServerUnlinkSession(pServer, pSession);
    KovaRtspSessionDestroy(pSession);
}

void ExpireSessions(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    for (KovaRtspSession *pSession : KovaListOf<KovaRtspSession>(pServer->pSessionList)) {
        if (IsExpired(pSession))
            ExpireSession(pServer, pSession);
    }
}

/// Adds a client's bit rate, kbit/s of 1024 bits, to the stream's sum; removes it
/// when its session is long gone.
bool MeasureClient(const KovaClientVisit &visit, void *pContext)
{
    KovaRtpClient *pClient = visit.pClient;
    if (KovaPlayersStrayIsDue(visit.pStreamer, pClient))
        return true;
    const uint64_t nNow = KovaClockMilliseconds();
    const uint64_t nElapsed = nNow - pClient->nMeasureStartTime;
    if (nElapsed == 0)
        return false;
    const uint32_t nScaled = (pClient->nMeasureBytes >> 7) * 1000U;
    // A clock that was set back gives a time of more than 32 bits.
    pClient->nSendBitrate = nElapsed > UINT32_MAX ? 0 : nScaled / static_cast<uint32_t>(nElapsed);
    TimeLog(kLogFigures, "%s, Total Data Sent : %u, Last Data Sent: %u\n", kThreadName,
            pClient->nOctetCount, pClient->nMeasureBytes);
    *static_cast<uint64_t *>(pContext) += pClient->nSendBitrate;
    if (nElapsed > kMeasureSpan) {
        pClient->nMeasureStartTime = nNow;
        pClient->nMeasureBytes = 0;
    }
    return false;
}

uint32_t StatusOf(KovaRtspStreamer *pStreamer, int32_t nClients, uint64_t nBitrate)
{
    if (nClients > 0 && nBitrate == 0)
        return KOVA_STREAM_STALLED;
    if (KovaRtspStreamerSdpIsReady(pStreamer) == 0)
        return KOVA_STREAM_NOT_READY;
    if (nClients == 0)
        return KOVA_STREAM_IDLE;
    if (nClients > 0)
        return KOVA_STREAM_FLOWING;
    return pStreamer->nServerStatus;
}

void MeasureStream(KovaRtspStreamer *pStreamer)
{
    uint64_t nBitrate = 0;
    KovaStreamerWalkClients(
        pStreamer, {&pStreamer->packerMutex, kRankPackers, nullptr, MeasureClient, &nBitrate});
    KovaStreamerSetThroughput(pStreamer, nBitrate);
    const int32_t nClients = pStreamer->nClientCount;
    const uint32_t nStatus = StatusOf(pStreamer, nClients, nBitrate);
    pStreamer->nServerStatus = nStatus;
    TimeLog(kLogFigures,
            "%s, Uri: %.*s, Client Count: %d, Send Bitrate: %llu kbps, Server Status: %d\n",
            kThreadName, static_cast<int>(KOVA_MAX_URI_LENGTH), pStreamer->szUri, nClients,
            static_cast<unsigned long long>(nBitrate), static_cast<int>(nStatus));
    TimeLog(kLogFigures, "%s, Audio Ring Buffer Avail: %d, Video Ring Buffer Avail: %d\n",
            kThreadName, KovaRingbufferAvail(&pStreamer->audioRing),
            KovaRingbufferAvail(&pStreamer->videoRing));
}

void MeasureStreams(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    for (KovaRtspStreamer *pStreamer : KovaListOf<KovaRtspStreamer>(pServer->pStreamerList))
        MeasureStream(pStreamer);
}

} // namespace

void *pMonitorProc(void *pArgument)
{
    TimeLog(kLogThread, "%s, Enter thread\n", kThreadName);
    KovaRtspServer *pServer = static_cast<KovaRtspServer *>(pArgument);
    if (pServer == nullptr) {
        TimeLog(kLogThread, "%s, Leave thread(pServer)\n", kThreadName);
        return nullptr;
    }
    while (KovaThreadRuns(pServer->nMonitorState)) {
        ExpireSessions(pServer);
        MeasureStreams(pServer);
        KovaServerWakeStopped(pServer);
        usleep(kPassMicroseconds);
    }
    pServer->nMonitorState = kThreadStopped;
    TimeLog(kLogThread, "%s, Leave thread\n", kThreadName);
    return nullptr;
}
