#include "classic/streamer/es_input.h"
#include "classic/streamer/streamer.h"
#include "foundation/clock.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"

#include <atomic>

namespace {

constexpr char kPushing[] = "KovaRtspServerPushData";
constexpr int32_t kSummaryCalls = 500;
/// For figures of the log that order nothing.
constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

constexpr uint32_t kGapMilliseconds = 100;
constexpr uint32_t kDriftMilliseconds = 500;

/// Push calls since the last summary, over all streams.
std::atomic<int32_t> g_nCount{0};

/// What is kept per track to see jumps and pauses.
struct Track {
    const char *szName;
    std::atomic<uint32_t> *pLastTimestamp;
    uint64_t *pLastPushTime;
    uint64_t *pMaxInterval;
    KovaMutex *pMutex; // guards *pMaxInterval
};

/// Whether this call is the one that writes the summary.
bool CountCall()
{
    int32_t nCount = g_nCount.load(std::memory_order_relaxed);
    int32_t nNext;
    do {
        nNext = nCount + 1 > kSummaryCalls ? 0 : nCount + 1;
    } while (!g_nCount.compare_exchange_weak(nCount, nNext, std::memory_order_relaxed));
    return nNext == 0;
}

void LogSummary(KovaRtspStreamer *pStreamer)
{
    TimeLog(kLogThread, "%s, Last Audio Pts: %u, Last Video Pts: %u\n", kPushing,
            pStreamer->nLastAudioTimestamp.load(kRelaxed),
            pStreamer->nLastVideoTimestamp.load(kRelaxed));
    const KovaMutexLock lock(&pStreamer->figuresMutex, kRankLeaf);
    TimeLog(kLogThread, "%s, Last Video Time Gap: %llu, Last Audio Time Gap: %llu\n", kPushing,
            static_cast<unsigned long long>(pStreamer->nMaxVideoPushInterval),
            static_cast<unsigned long long>(pStreamer->nMaxAudioPushInterval));
}

void CheckTimestamp(const Track &track, uint32_t nTimestamp)
{
    const uint32_t nLast = track.pLastTimestamp->load(kRelaxed);
    if (nLast < nTimestamp && nTimestamp - nLast > kGapMilliseconds)
        TimeLog(kLogThread, "%s, GAP, Now %s Pts: %u, Last %s Pts: %u, Diff: %u\n", kPushing,
                track.szName, nTimestamp, track.szName, nLast, nTimestamp - nLast);
    else if (nTimestamp < nLast)
        TimeLog(kLogThread, "%s, BACK, Now %s Pts: %u, Last %s Pts: %u\n", kPushing, track.szName,
                nTimestamp, track.szName, nLast);
    track.pLastTimestamp->store(nTimestamp, kRelaxed);
}

void CheckInterval(const Track &track, uint64_t nNow, uint32_t nTimestamp)
{
    const uint64_t nLast = *track.pLastPushTime;
    *track.pLastPushTime = nNow;
    if (nLast == 0)
        return;
    const uint64_t nGap = nNow - nLast;
    KovaMutexLock lock(track.pMutex, kRankLeaf);
    if (nGap <= *track.pMaxInterval)
        return;
    *track.pMaxInterval = nGap;
    lock.Unlock();
    TimeLog(kLogThread, "%s, Find Larger %s Time Gap: %llu, Now PTS: %u\n", kPushing, track.szName,
            static_cast<unsigned long long>(nGap), nTimestamp);
}

void CheckTrack(const Track &track, uint64_t nNow, uint32_t nTimestamp)
{
    CheckTimestamp(track, nTimestamp);
    CheckInterval(track, nNow, nTimestamp);
}

void CheckDrift(const KovaRtspStreamer *pStreamer)
{
    const uint32_t nAudio = pStreamer->nLastAudioTimestamp.load(kRelaxed);
    const uint32_t nVideo = pStreamer->nLastVideoTimestamp.load(kRelaxed);
    const bool bVideoLate = nVideo < nAudio && nAudio - nVideo > kDriftMilliseconds && nVideo != 0;
    const bool bAudioLate = nAudio < nVideo && nVideo - nAudio > kDriftMilliseconds && nAudio != 0;
    if (bVideoLate || bAudioLate)
        TimeLog(kLogThread, "%s, Audio Pts: %u, Video Pts: %u\n", kPushing, nAudio, nVideo);
}

} // namespace

int32_t KovaRtspServerPushData(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                               const uint8_t *pData, uint32_t nLength, uint32_t nTimestamp)
{
    if (pStreamer == nullptr || pData == nullptr)
        return KOVA_ERROR_PUSH;
    if (CountCall())
        LogSummary(pStreamer);
    uint64_t nNow = 0;
    RtspGetTime(&nNow);
    KovaRtspStreamerPushData(pStreamer, nPayloadId, pData, nLength, nTimestamp);
    if (nPayloadId == KOVA_PAYLOAD_ID_AUDIO)
        CheckTrack({"Audio", &pStreamer->nLastAudioTimestamp, &pStreamer->nLastAudioPushTime,
                    &pStreamer->nMaxAudioPushInterval, &pStreamer->figuresMutex},
                   nNow, nTimestamp);
    else if (nPayloadId == KOVA_PAYLOAD_ID_VIDEO)
        CheckTrack({"Video", &pStreamer->nLastVideoTimestamp, &pStreamer->nLastVideoPushTime,
                    &pStreamer->nMaxVideoPushInterval, &pStreamer->figuresMutex},
                   nNow, nTimestamp);
    CheckDrift(pStreamer);
    return KOVA_OK;
}
