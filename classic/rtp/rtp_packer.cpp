#include "classic/rtp/rtp_packer.h"

#include "classic/rtp/aac_packer.h"
#include "classic/rtp/h264_packer.h"
#include "foundation/heap.h"
#include "foundation/owner.h"
#include "kova_rtsp_server.h"
#include "rtp/rtcp.h"
#include "rtp/rtp_header.h"

namespace {

/// What a codec's packer does. A packet is made in two steps: deciding its size
/// and marker, then writing its payload. Where else a codec is named:
/// CONTRIBUTING.md, "How to add".
struct Codec {
    KovaRtpPacker *(*pfnCreate)();
    void (*pfnDestroy)(KovaRtpPacker *);
    uint32_t (*pfnPush)(KovaRtpPacker *, const uint8_t *, uint8_t *, uint32_t, uint32_t);
    uint32_t (*pfnPrepare)(KovaRtpPacker *, KovaRtpPacket *);
    uint32_t (*pfnFill)(KovaRtpPacker *, KovaRtpPacket *);
    void (*pfnDiscard)(KovaRtpPacker *);
};

constexpr Codec kAac = {KovaRtpAacPackerCreate,       KovaRtpAacPackerDestroy,
                        KovaRtpAacPackerTake,         KovaRtpAacPackerPrepareRtpPacket,
                        KovaRtpAacPackerGetRtpPacket, KovaRtpAacPackerDiscard};
constexpr Codec kH264 = {KovaRtpH264PackerCreate,       KovaRtpH264PackerDestroy,
                         KovaRtpH264PackerTake,         KovaRtpH264PackerPrepareRtpPacket,
                         KovaRtpH264PackerGetRtpPacket, KovaRtpH264PackerDiscard};

/// Null for a null packer and an unknown codec.
const Codec *CodecOf(const KovaRtpPacker *pPacker)
{
    if (pPacker == nullptr)
        return nullptr;
    switch (pPacker->nCodec) {
    case KOVA_MEDIA_AUDIO:
        return &kAac;
    case KOVA_MEDIA_VIDEO:
        return &kH264;
    default:
        return nullptr;
    }
}

KovaRtpPacker *Make(const Codec &codec, uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                    KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    KovaRtpPacker *pPacker = codec.pfnCreate();
    if (pPacker == nullptr)
        return nullptr;
    pPacker->nPayloadType = nPayloadType;
    pPacker->nCodec = nCodec;
    pPacker->nSsrc = nSsrc;
    pPacker->pfnStreamInfo = pfnStreamInfo;
    pPacker->pStreamInfoContext = pContext;
    return pPacker;
}

/// A packet of nSize bytes with the payload that was prepared.
uint32_t BuildPacket(KovaRtpPacker *pPacker, const Codec &codec, uint32_t nSize,
                     KovaRtpPacket **ppPacket)
{
    KovaOwner<KovaRtpPacket, KovaRtpFreePacket> packet(KovaRtpPacketAlloc(nSize));
    if (!packet)
        return kPackerNoMemory;
    packet->nPts = pPacker->nPts;
    KovaRtpHeaderWrite(packet->pData, {pPacker->nPayloadType, pPacker->bMarker != 0,
                                       pPacker->nSequence, pPacker->nTimestamp, pPacker->nSsrc});
    const uint32_t nFilled = codec.pfnFill(pPacker, packet.Get());
    if (nFilled != kPackerOk)
        return nFilled;
    pPacker->nSequence++;
    *ppPacket = packet.Release();
    return kPackerOk;
}

/// Frozen: that there is no memory for a packet has always been told before that there
/// is none to build.
uint32_t UnlessMemoryIsShort(uint32_t nResult)
{
    const KovaOwner<KovaRtpPacket, KovaRtpFreePacket> packet(KovaRtpPacketAlloc());
    return packet ? nResult : kPackerNoMemory;
}

} // namespace

KovaRtpPacker *KovaRtpVideoPackerCreate(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                                        KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    return nCodec == KOVA_MEDIA_VIDEO
               ? Make(kH264, nCodec, nPayloadType, nSsrc, pfnStreamInfo, pContext)
               : nullptr;
}

KovaRtpPacker *KovaRtpAudioPackerCreate(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                                        KovaRtspStreamInfoCallback pfnStreamInfo, void *pContext)
{
    return nCodec == KOVA_MEDIA_AUDIO
               ? Make(kAac, nCodec, nPayloadType, nSsrc, pfnStreamInfo, pContext)
               : nullptr;
}

void KovaRtpPackerDestroy(KovaRtpPacker *pPacker)
{
    if (const Codec *pCodec = CodecOf(pPacker))
        pCodec->pfnDestroy(pPacker);
}

uint32_t KovaRtpPackerPushData(KovaRtpPacker *pPacker, const uint8_t *pData, uint32_t nLength,
                               uint32_t nPts)
{
    return KovaRtpPackerTake(pPacker, pData, nullptr, nLength, nPts);
}

uint32_t KovaRtpPackerTake(KovaRtpPacker *pPacker, const uint8_t *pData, uint8_t *pLent,
                           uint32_t nLength, uint32_t nPts)
{
    const Codec *pCodec = CodecOf(pPacker);
    return pCodec != nullptr ? pCodec->pfnPush(pPacker, pData, pLent, nLength, nPts)
                             : kPackerInvalid;
}

uint32_t KovaRtpPackerGetRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket **ppPacket)
{
    const uint32_t nResult = KovaRtpPackerNext(pPacker, ppPacket);
    return nResult == kPackerNothing ? UnlessMemoryIsShort(nResult) : nResult;
}

uint32_t KovaRtpPackerNext(KovaRtpPacker *pPacker, KovaRtpPacket **ppPacket)
{
    const Codec *pCodec = CodecOf(pPacker);
    if (pCodec == nullptr || ppPacket == nullptr)
        return kPackerInvalid;
    // Prepared before there is a packet: with its size it takes one block.
    KovaRtpPacket draft = {};
    const uint32_t nPrepared = pCodec->pfnPrepare(pPacker, &draft);
    return nPrepared == kPackerOk ? BuildPacket(pPacker, *pCodec, draft.nSize, ppPacket)
                                  : nPrepared;
}

void KovaRtpPackerDiscard(KovaRtpPacker *pPacker)
{
    if (const Codec *pCodec = CodecOf(pPacker))
        pCodec->pfnDiscard(pPacker);
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
