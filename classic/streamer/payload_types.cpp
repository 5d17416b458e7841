#include "classic/streamer/packer_thread.h"
#include "classic/streamer/registries.h"
#include "classic/streamer/streamer.h"
#include "foundation/result.h"

#include <cstdio>
#include <cstdlib>

namespace {

bool RegisterMediaInfo(KovaRtspStreamer *pStreamer, uint32_t nMediaType, uint32_t nPayloadId,
                       const void *pDescription)
{
    KovaRtspMediaInfo *pMediaInfo = KovaRtspMediaInfoCreate(nMediaType, nPayloadId, pDescription);
    if (pMediaInfo == nullptr)
        return false;
    if (KovaRtspStreamerAddRtspMediaInfo(pStreamer, pMediaInfo) == KOVA_RESULT_OK)
        return true;
    KovaRtspMediaInfoDestroy(pMediaInfo);
    return false;
}

bool RegisterPacker(KovaRtspStreamer *pStreamer, uint32_t nMediaType, uint32_t nPayloadId,
                    uint32_t nSsrc)
{
    KovaRtpPacker *pPacker = nMediaType == KOVA_MEDIA_TYPE_VIDEO
                                 ? KovaRtpVideoPackerCreate(nMediaType, nPayloadId, nSsrc,
                                                            pVideoStreamInfoCallback, pStreamer)
                                 : KovaRtpAudioPackerCreate(nMediaType, nPayloadId, nSsrc,
                                                            pAudioStreamInfoCallback, pStreamer);
    if (pPacker == nullptr)
        return false;
    if (KovaRtspStreamerAddRtpPacker(pStreamer, pPacker) == KOVA_RESULT_OK)
        return true;
    KovaRtpPackerDestroy(pPacker);
    return false;
}

KovaRtpSender *RegisterSender(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    KovaRtpSender *pSender = KovaRtpSenderCreate(pStreamer, nPayloadId);
    if (pSender == nullptr)
        return nullptr;
    if (KovaRtspStreamerAddRtpSender(pStreamer, pSender) == KOVA_RESULT_OK)
        return pSender;
    KovaRtpSenderDestory(pSender);
    return nullptr;
}

} // namespace

int32_t KovaRtspStreamerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                       uint32_t *pPayloadId, const void *pDescription)
{
    if (pStreamer == nullptr || pPayloadId == nullptr || pDescription == nullptr)
        return KOVA_RESULT_NULL;
    uint32_t nSsrc = 0;
    GetNewPayloadId(pStreamer, pPayloadId);
    GetNewSSRC(&nSsrc);
    const uint32_t nPayloadId = *pPayloadId;
    if (!RegisterMediaInfo(pStreamer, nMediaType, nPayloadId, pDescription))
        return KOVA_RESULT_FAILED;
    // A track that no description names would be pushed to and never be seen.
    if (KovaRtspSdpGeneratorAddMedia(pStreamer->pSdpGenerator, nMediaType, nPayloadId,
                                     pDescription) != KOVA_RESULT_OK) {
        KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(pStreamer, nPayloadId);
        return KOVA_RESULT_FAILED;
    }
    // What stands before a later failure stays until the payload id is removed.
    if (!RegisterPacker(pStreamer, nMediaType, nPayloadId, nSsrc))
        return KOVA_RESULT_FAILED;
    KovaRtpSender *pSender = RegisterSender(pStreamer, nPayloadId);
    return pSender != nullptr ? KovaRtpSenderStart(pSender) : KOVA_RESULT_FAILED;
}

int32_t KovaRtspStreamerRemovePayloadType(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_RESULT_NULL;
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pStreamer->pSdpGenerator, nPayloadId);
    KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(pStreamer, nPayloadId);
    // The packer leaves the registry first and is freed last: sending threads
    // and packer threads may still be using it.
    KovaRtpPacker *pPacker = KovaStreamerTakePacker(pStreamer, nPayloadId);
    KovaRtspStreamerRemoveRtpSenderByPayloadId(pStreamer, nPayloadId);
    KovaStreamerAwaitPackerThreads(pStreamer);
    KovaRtpPackerDestroy(pPacker);
    return KOVA_RESULT_OK;
}

void GetNewPayloadId(KovaRtspStreamer *pStreamer, uint32_t *pPayloadId)
{
    if (pStreamer == nullptr || pPayloadId == nullptr)
        return;
    pStreamer->nLastPayloadId =
        pStreamer->nLastPayloadId == 0 ? kPayloadIdFirstRing : pStreamer->nLastPayloadId + 1;
    *pPayloadId = pStreamer->nLastPayloadId;
    printf("Payload Id: %d\n", static_cast<int>(*pPayloadId));
}

void GetNewSSRC(uint32_t *pSsrc)
{
    if (pSsrc == nullptr)
        return;
    uint32_t nSsrc = 0;
    for (unsigned nShift = 0; nShift < 32; nShift += 8)
        nSsrc |= (static_cast<uint32_t>(rand()) & 0xFF) << nShift;
    *pSsrc = nSsrc;
    printf("SSRC: %x\n", nSsrc);
}
