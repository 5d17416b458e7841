#include "classic/rtp/rtp_packer.h"

#include "classic/rtp/aac_packer.h"
#include "classic/rtp/h264_packer.h"
#include "foundation/heap.h"
#include "foundation/result.h"
#include "rtp/rtcp.h"
#include "rtp/rtp_header.h"

namespace {

using PacketStep = uint32_t (*)(KovaRtpPacker *, KovaRtpPacket *);

/// The two steps by which a codec makes a packet: decide its size and marker,
/// then write its payload.
struct CodecSteps {
    PacketStep pfnPrepare;
    PacketStep pfnFill;
};

const CodecSteps *StepsOf(uint32_t nCodec)
{
    static constexpr CodecSteps kAac = {KovaRtpAacPackerPrepareRtpPacket,
                                        KovaRtpAacPackerGetRtpPacket};
    static constexpr CodecSteps kH264 = {KovaRtpH264PackerPrepareRtpPacket,
                                         KovaRtpH264PackerGetRtpPacket};
    if (nCodec == KOVA_MEDIA_TYPE_AUDIO)
        return &kAac;
    return nCodec == KOVA_MEDIA_TYPE_VIDEO ? &kH264 : nullptr;
}

KovaRtpPacker *FillHead(KovaRtpPacker *pPacker, uint32_t nCodec, uint32_t nPayloadType,
                        uint32_t nSsrc, KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    if (pPacker == nullptr)
        return nullptr;
    pPacker->nPayloadType = nPayloadType;
    pPacker->nCodec = nCodec;
    pPacker->nSsrc = nSsrc;
    pPacker->pfnStreamInfo = pfnStreamInfo;
    pPacker->pStreamInfoContext = pContext;
    return pPacker;
}

uint32_t BuildPacket(KovaRtpPacker *pPacker, const CodecSteps *pSteps, KovaRtpPacket *pPacket)
{
    const uint32_t nPrepared = pSteps->pfnPrepare(pPacker, pPacket);
    if (nPrepared != kPackerOk)
        return nPrepared;
    pPacket->pData = static_cast<uint8_t *>(KovaHeapAlloc(pPacket->nSize));
    if (pPacket->pData == nullptr)
        return kPackerNoMemory;
    KovaRtpHeaderWrite(pPacket->pData, pPacker);
    const uint32_t nFilled = pSteps->pfnFill(pPacker, pPacket);
    if (nFilled == kPackerOk)
        pPacker->nSequence++;
    return nFilled;
}

} // namespace

KovaRtpPacker *KovaRtpVideoPackerCreate(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                                        KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    if (nCodec != KOVA_MEDIA_TYPE_VIDEO)
        return nullptr;
    return FillHead(KovaRtpH264PackerCreate(), nCodec, nPayloadType, nSsrc, pfnStreamInfo,
                    pContext);
}

KovaRtpPacker *KovaRtpAudioPackerCreate(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                                        KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    if (nCodec != KOVA_MEDIA_TYPE_AUDIO)
        return nullptr;
    return FillHead(KovaRtpAacPackerCreate(), nCodec, nPayloadType, nSsrc, pfnStreamInfo, pContext);
}

void KovaRtpPackerDestroy(KovaRtpPacker *pPacker)
{
    if (pPacker == nullptr)
        return;
    if (pPacker->nCodec == KOVA_MEDIA_TYPE_AUDIO)
        KovaRtpAacPackerDestroy(pPacker);
    else if (pPacker->nCodec == KOVA_MEDIA_TYPE_VIDEO)
        KovaRtpH264PackerDestroy(pPacker);
}

uint32_t KovaRtpPackerPushData(KovaRtpPacker *pPacker, const uint8_t *pData, uint32_t nLength,
                               uint32_t nPts)
{
    if (pPacker == nullptr)
        return kPackerInvalid;
    if (pPacker->nCodec == KOVA_MEDIA_TYPE_AUDIO)
        return KovaRtpAacPackerPushData(pPacker, pData, nLength, nPts);
    if (pPacker->nCodec == KOVA_MEDIA_TYPE_VIDEO)
        return KovaRtpH264PackerPushData(pPacker, pData, nLength, nPts);
    return kPackerInvalid;
}

uint32_t KovaRtpPackerGetRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket **ppPacket)
{
    const CodecSteps *pSteps = pPacker != nullptr ? StepsOf(pPacker->nCodec) : nullptr;
    if (pSteps == nullptr || ppPacket == nullptr)
        return kPackerInvalid;
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc();
    if (pPacket == nullptr)
        return kPackerNoMemory;
    pPacket->nPts = pPacker->nPts;
    const uint32_t nResult = BuildPacket(pPacker, pSteps, pPacket);
    if (nResult == kPackerOk)
        *ppPacket = pPacket;
    else
        KovaRtpFreePacket(pPacket);
    return nResult;
}

void KovaRtpPackerDiscard(KovaRtpPacker *pPacker)
{
    if (pPacker->nCodec == KOVA_MEDIA_TYPE_AUDIO)
        KovaRtpAacPackerDiscard(pPacker);
    else if (pPacker->nCodec == KOVA_MEDIA_TYPE_VIDEO)
        KovaRtpH264PackerDiscard(pPacker);
}

uint32_t KovaRtpPackerGetRtcpSRData(KovaRtpPacker *pPacker, uint8_t *pBuffer, uint32_t nBufferSize,
                                    uint32_t nNtpSeconds, uint32_t nNtpFraction,
                                    uint32_t nPacketCount, uint32_t nOctetCount,
                                    uint32_t nRtpTimestamp)
{
    if (pPacker == nullptr)
        return kPackerInvalid;
    if (nBufferSize < kRtcpSenderReportSize || pBuffer == nullptr)
        return kPackerBufferSmall;
    const KovaRtcpSenderReport report = {pPacker->nSsrc, nNtpSeconds,  nNtpFraction,
                                         nRtpTimestamp,  nPacketCount, nOctetCount};
    KovaRtcpSenderReportWrite(pBuffer, report);
    return kRtcpSenderReportSize;
}
