#include "rtp/rtp_header.h"

#include "foundation/byte_order.h"

namespace {

constexpr uint8_t kVersion2 = 0x80;
constexpr uint8_t kMarker = 0x80;

} // namespace

void KovaRtpHeaderWrite(uint8_t *pBytes, const KovaRtpHeader &header)
{
    pBytes[0] = kVersion2;
    pBytes[1] = static_cast<uint8_t>(header.nPayloadType);
    if (header.bMarker)
        pBytes[1] |= kMarker;
    RtspWriteMB(pBytes + 2, header.nSequence, 16);
    RtspWriteMB(pBytes + 4, header.nTimestamp, 32);
    RtspWriteMB(pBytes + 8, header.nSsrc, 32);
}

uint16_t KovaRtpHeaderSequence(const uint8_t *pHeader)
{
    uint32_t nSequence = 0;
    RtspReadMB(pHeader + 2, &nSequence, 16);
    return static_cast<uint16_t>(nSequence);
}

uint32_t KovaRtpHeaderTimestamp(const uint8_t *pHeader)
{
    uint32_t nTimestamp = 0;
    RtspReadMB(pHeader + 4, &nTimestamp, 32);
    return nTimestamp;
}
