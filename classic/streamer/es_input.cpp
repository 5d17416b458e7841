#include "classic/streamer/es_input.h"

#include "foundation/byte_order.h"
#include "foundation/log.h"
#include "kova_rtsp_server.h"

namespace {

constexpr char kPushing[] = "KovaRtspStreamerPushData";

/// One input ring with its reader and its name in the log.
struct Input {
    KovaRingbuffer *pRing;
    KovaEvent *pWork;
    const char *szName;
};

int32_t ReportOverflow(const char *szName, const char *szWhat)
{
    TimeLog(kLogOverflow, "%s, %s%s Overflow !!!\n", kPushing, szName, szWhat);
    return KOVA_ERROR_OVERFLOW;
}

int32_t Store(const Input &input, const uint8_t *pHeader, const uint8_t *pData, uint32_t nLength)
{
    // In 64 bits: a length near 2^32 must not wrap around to a small one.
    if (static_cast<int64_t>(nLength) + kEsHeaderSize > KovaRingbufferFree(input.pRing))
        return ReportOverflow(input.szName, "");
    if (StreamerRingbufferWrite(input.pRing, pHeader, kEsHeaderSize) < 0)
        return ReportOverflow(input.szName, " ES Header");
    if (StreamerRingbufferWrite(input.pRing, pData, static_cast<int32_t>(nLength)) < 0)
        return ReportOverflow(input.szName, " ES Data");
    KovaEventSignal(input.pWork);
    return KOVA_OK;
}

} // namespace

void KovaEsHeaderWrite(uint8_t *pBytes, const KovaEsHeader &header)
{
    pBytes[0] = kEsStartCode;
    RtspWriteMB(pBytes + 1, header.nPayloadId, 16);
    RtspWriteMB(pBytes + 3, header.nTimestamp, 32);
    RtspWriteMB(pBytes + 7, header.nLength, 40);
}

KovaEsHeader KovaEsHeaderRead(const uint8_t *pBytes)
{
    KovaEsHeader header = {};
    RtspReadMB(pBytes + 1, &header.nPayloadId, 16);
    RtspReadMB(pBytes + 3, &header.nTimestamp, 32);
    RtspReadMB(pBytes + 7, &header.nLength, 40);
    return header;
}

int32_t KovaRtspStreamerPushData(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                                 const uint8_t *pData, uint32_t nLength, uint32_t nTimestamp)
{
    if (pStreamer == nullptr || pData == nullptr)
        return KOVA_ERROR_NULL;
    uint8_t header[kEsHeaderSize];
    KovaEsHeaderWrite(header, {nPayloadId, nTimestamp, nLength});
    // By number, not by media type: the ring sizes fit audio added first and
    // video second.
    if (nPayloadId == KOVA_PAYLOAD_ID_AUDIO)
        return Store({&pStreamer->audioRing, &pStreamer->audioWork, "Audio"}, header, pData,
                     nLength);
    if (nPayloadId == KOVA_PAYLOAD_ID_VIDEO)
        return Store({&pStreamer->videoRing, &pStreamer->videoWork, "Video"}, header, pData,
                     nLength);
    return KOVA_OK;
}

int32_t StreamerRingbufferWrite(KovaRingbuffer *pRing, const uint8_t *pBytes, int32_t nLength)
{
    if (nLength == 0 || pRing == nullptr || pRing->pBuffer == nullptr)
        return 0;
    if (nLength < 0 || KovaRingbufferFree(pRing) < nLength)
        return kRingFull;
    return KovaRingbufferWrite(pRing, pBytes, nLength);
}

int32_t StreamerRingbufferRead(KovaRingbuffer *pRing, uint8_t *pBytes, int32_t nLength)
{
    if (pRing == nullptr || pRing->pBuffer == nullptr || nLength <= 0 ||
        KovaRingbufferAvail(pRing) < nLength)
        return 0;
    return KovaRingbufferRead(pRing, pBytes, nLength);
}
