#include "classic/streamer/packer_thread.h"
#include "classic/streamer/registries.h"
#include "classic/streamer/streamer.h"
#include "foundation/owner.h"
#include "kova_rtsp_server.h"

#include <cstdio>
#include <cstdlib>

namespace {

bool RegisterMediaInfo(KovaRtspStreamer *pStreamer, uint32_t nMediaType, uint32_t nPayloadId,
                       const void *pDescription)
{
    KovaOwner<KovaRtspMediaInfo, KovaRtspMediaInfoDestroy> mediaInfo(
        KovaRtspMediaInfoCreate(nMediaType, nPayloadId, pDescription));
    if (!mediaInfo || KovaRtspStreamerAddRtspMediaInfo(pStreamer, mediaInfo.Get()) != KOVA_OK)
        return false;
    mediaInfo.Release();
    return true;
}

bool RegisterPacker(KovaRtspStreamer *pStreamer, uint32_t nMediaType, uint32_t nPayloadId,
                    uint32_t nSsrc)
{
    KovaRtpPacker *pPacker = nMediaType == KOVA_MEDIA_VIDEO
                                 ? KovaRtpVideoPackerCreate(nMediaType, nPayloadId, nSsrc,
                                                            pVideoStreamInfoCallback, pStreamer)
                                 : KovaRtpAudioPackerCreate(nMediaType, nPayloadId, nSsrc,
                                                            pAudioStreamInfoCallback, pStreamer);
    KovaOwner<KovaRtpPacker, KovaRtpPackerDestroy> packer(pPacker);
    if (!packer || KovaRtspStreamerAddRtpPacker(pStreamer, pPacker) != KOVA_OK)
        return false;
    packer.Release();
    return true;
}

KovaRtpSender *RegisterSender(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    KovaOwner<KovaRtpSender, KovaRtpSenderDestory> sender(
        KovaRtpSenderCreate(pStreamer, nPayloadId));
    return sender && KovaRtspStreamerAddRtpSender(pStreamer, sender.Get()) == KOVA_OK
               ? sender.Release()
               : nullptr;
}

} // namespace

int32_t KovaRtspStreamerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                       uint32_t *pPayloadId, const void *pDescription)
{
    if (pStreamer == nullptr || pPayloadId == nullptr || pDescription == nullptr)
        return KOVA_ERROR_NULL;
    uint32_t nSsrc = 0;
    GetNewPayloadId(pStreamer, pPayloadId);
    GetNewSSRC(&nSsrc);
    const uint32_t nPayloadId = *pPayloadId;
    if (!RegisterMediaInfo(pStreamer, nMediaType, nPayloadId, pDescription))
        return KOVA_ERROR_FAILED;
    // A track that no description names would be pushed to and never be seen.
    if (KovaRtspSdpGeneratorAddMedia(pStreamer->pSdpGenerator, nMediaType, nPayloadId,
                                     pDescription) != KOVA_OK) {
        KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(pStreamer, nPayloadId);
        return KOVA_ERROR_FAILED;
    }
    // What stands before a later failure stays until the payload id is removed.
    if (!RegisterPacker(pStreamer, nMediaType, nPayloadId, nSsrc))
        return KOVA_ERROR_FAILED;
    KovaRtpSender *pSender = RegisterSender(pStreamer, nPayloadId);
    return pSender != nullptr ? KovaRtpSenderStart(pSender) : KOVA_ERROR_FAILED;
}

int32_t KovaRtspStreamerRemovePayloadType(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pStreamer->pSdpGenerator, nPayloadId);
    KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(pStreamer, nPayloadId);
    // The packer leaves the registry first and is freed last: sending threads
    // and packer threads may still be using it.
    KovaRtpPacker *pPacker = KovaStreamerTakePacker(pStreamer, nPayloadId);
    KovaRtspStreamerRemoveRtpSenderByPayloadId(pStreamer, nPayloadId);
    KovaStreamerAwaitPackerThreads(pStreamer);
    KovaRtpPackerDestroy(pPacker);
    return KOVA_OK;
}

void GetNewPayloadId(KovaRtspStreamer *pStreamer, uint32_t *pPayloadId)
{
    if (pStreamer == nullptr || pPayloadId == nullptr)
        return;
    pStreamer->nLastPayloadId = pStreamer->nLastPayloadId == 0 ? uint32_t{KOVA_PAYLOAD_ID_AUDIO}
                                                               : pStreamer->nLastPayloadId + 1;
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
