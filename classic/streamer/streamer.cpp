#include "classic/streamer/streamer.h"

#include "classic/streamer/packer_thread.h"
#include "classic/streamer/registries.h"
#include "classic/streamer/server_calls.h"
#include "foundation/clock.h"
#include "foundation/heap.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

static_assert(alignof(std::atomic<uint32_t>) == alignof(uint32_t), "plain words");
static_assert(alignof(std::atomic<int32_t>) == alignof(int32_t), "plain words");

/// Every mutex of a stream.
constexpr KovaMutex KovaRtspStreamer::*kMutexes[] = {
    &KovaRtspStreamer::ringMutex,      &KovaRtspStreamer::mediaInfoMutex,
    &KovaRtspStreamer::packerMutex,    &KovaRtspStreamer::senderMutex,
    &KovaRtspStreamer::firstSendMutex, &KovaRtspStreamer::figuresMutex,
    &KovaRtspStreamer::audioUseMutex,  &KovaRtspStreamer::videoUseMutex};

KovaRtspStreamer *MakeRecord(KovaRtspServer *pServer, const char *szUri)
{
    KovaRtspStreamer *pStreamer = KovaHeapNew<KovaRtspStreamer>();
    if (pStreamer == nullptr)
        return nullptr;
    pStreamer->pServer = pServer;
    memcpy(pStreamer->szUri, szUri, strnlen(szUri, sizeof(pStreamer->szUri)));
    pStreamer->pSdpGenerator = KovaRtspSdpGeneratorCreate(szUri);
    for (KovaMutex KovaRtspStreamer::*pMutex : kMutexes)
        KovaMutexInit(&(pStreamer->*pMutex));
    pStreamer->tCreated = static_cast<uint32_t>(KovaClockSeconds());
    pStreamer->nServerStatus = KOVA_STREAM_NOT_READY;
    return pStreamer;
}

/// Gives a ring its storage and starts the packer thread on it.
bool StartPacker(KovaRtspStreamer *pStreamer, KovaRingbuffer *pRing, int32_t nSize,
                 KovaStateWord *pState, KovaThreadBody pfnBody)
{
    // malloc, not zeroed: the pages are touched only as data arrives.
    uint8_t *pBlock = static_cast<uint8_t *>(malloc(static_cast<size_t>(nSize)));
    if (pBlock == nullptr)
        return false;
    KovaRingbufferInit(pRing, pBlock, nSize);
    return KovaThreadStartOnce(*pState, pfnBody, pStreamer);
}

void StopPacker(KovaStateWord *pState, KovaEvent *pWork)
{
    KovaThreadRequestStop(*pState);
    KovaEventSignal(pWork);
    KovaThreadWaitStopped(*pState);
}

} // namespace

KovaRtspStreamer *KovaRtspStreamerCreate(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr ||
        strnlen(szUri, KOVA_MAX_URI_LENGTH + 1) > KOVA_MAX_URI_LENGTH)
        return nullptr;
    if (KovaRtspServerIsUriExist(pServer, szUri) != 0) {
        printf("%s, The Uri is existed !!!\n", "KovaRtspStreamerCreate");
        return nullptr;
    }
    KovaRtspStreamer *pStreamer = MakeRecord(pServer, szUri);
    if (pStreamer == nullptr)
        return nullptr;
    if (StartPacker(pStreamer, &pStreamer->audioRing, kAudioRingSize, &pStreamer->nAudioPackerState,
                    pAudioPackerProc) &&
        StartPacker(pStreamer, &pStreamer->videoRing, kVideoRingSize, &pStreamer->nVideoPackerState,
                    pVideoPackerProc))
        return pStreamer;
    KovaRtspStreamerDestroy(pStreamer);
    return nullptr;
}

int32_t KovaRtspStreamerDestroy(KovaRtspStreamer *pStreamer)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    while (pStreamer->nPins != 0)
        usleep(kPollMicroseconds);
    StopPacker(&pStreamer->nAudioPackerState, &pStreamer->audioWork);
    StopPacker(&pStreamer->nVideoPackerState, &pStreamer->videoWork);
    free(pStreamer->audioRing.pBuffer);
    free(pStreamer->videoRing.pBuffer);
    KovaRtspSdpGeneratorDestroy(pStreamer->pSdpGenerator);
    KovaRtspStreamerRemoveAllRtspMediaInfo(pStreamer);
    // Senders before packers: a sending thread may still ask for its packer.
    KovaRtspStreamerRemoveAllRtpSender(pStreamer);
    KovaRtspStreamerRemoveAllRtpPacker(pStreamer);
    for (KovaMutex KovaRtspStreamer::*pMutex : kMutexes)
        KovaMutexDestroy(&(pStreamer->*pMutex));
    free(pStreamer);
    return KOVA_OK;
}

void KovaStreamerPin(KovaRtspStreamer *pStreamer)
{
    pStreamer->nPins++;
}

void KovaStreamerUnpin(KovaRtspStreamer *pStreamer)
{
    if (pStreamer != nullptr)
        pStreamer->nPins--;
}

int32_t KovaRtspStreamerUpdateSession(KovaRtspServer *pServer, const char *szSessionId)
{
    if (pServer == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    return KovaRtspServerUpdateSession(pServer, szSessionId);
}

int32_t KovaRtspStreamerGetAveThroughput(KovaRtspStreamer *pStreamer, uint64_t *pThroughput)
{
    if (pStreamer == nullptr || pThroughput == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pStreamer->figuresMutex, kRankLeaf);
    *pThroughput = pStreamer->nAveThroughput;
    return KOVA_OK;
}

void KovaStreamerSetThroughput(KovaRtspStreamer *pStreamer, uint64_t nThroughput)
{
    const KovaMutexLock lock(&pStreamer->figuresMutex, kRankLeaf);
    pStreamer->nAveThroughput = nThroughput;
}

int32_t KovaRtspStreamerGetClientCount(KovaRtspStreamer *pStreamer, int32_t *pCount)
{
    if (pStreamer == nullptr || pCount == nullptr)
        return KOVA_ERROR_NULL;
    *pCount = pStreamer->nClientCount;
    return KOVA_OK;
}

int32_t KovaRtspStreamerGetServerStatus(KovaRtspStreamer *pStreamer, uint32_t *pStatus)
{
    if (pStreamer == nullptr || pStatus == nullptr)
        return KOVA_ERROR_NULL;
    *pStatus = pStreamer->nServerStatus;
    return KOVA_OK;
}

int32_t KovaRtspStreamerSdpIsReady(KovaRtspStreamer *pStreamer)
{
    return pStreamer != nullptr ? KovaRtspSdpGeneratorIsReady(pStreamer->pSdpGenerator) : 0;
}
