#include "live/media/packet_writer.h"

#include "foundation/byte_order.h"
#include "foundation/clock.h"
#include "live/media/track_media_record.h"
#include "rtp/interleaved_batch.h"

#include <cstring>

namespace {

constexpr uint8_t kMarker = 0x80;

} // namespace

KovaUnit *KovaPacketWriterBegin(KovaPacketWriter *pWriter, KovaTrackMedia *pMedia, int64_t nPts,
                                uint32_t nTimestamp)
{
    KovaUnit *pUnit =
        KovaUnitPoolTake(pMedia->pPool, pWriter->nPackets,
                         pWriter->nBytes + pWriter->nPackets * kInterleavedHeaderSize);
    if (pUnit == nullptr)
        return nullptr;
    pUnit->nPts = nPts;
    pUnit->nArrived = KovaClockMonotonic();
    pUnit->nTimestamp = nTimestamp;
    pUnit->nFirstSequence = pMedia->nSequence;
    pUnit->nTrack = pMedia->nTrack;
    pUnit->nChannel = static_cast<uint8_t>(pMedia->nTrack * 2); // what most players ask for
    pWriter->nChannel = pUnit->nChannel;
    pUnit->nBytes = pWriter->nBytes;
    pUnit->nPackets = pWriter->nPackets;
    pMedia->nSequence = static_cast<uint16_t>(pMedia->nSequence + pWriter->nPackets);

    // Only here, before anybody else sees the unit, are its packets written.
    pWriter->pBytes = const_cast<uint8_t *>(pUnit->pBytes);
    pWriter->pPackets = const_cast<KovaUnitPacket *>(pUnit->pPackets);
    pWriter->nPackets = 0;
    pWriter->nBytes = 0;
    pWriter->nSequence = pUnit->nFirstSequence;
    KovaRtpHeaderWrite(pWriter->header,
                       {pMedia->nPayloadType, false, 0, nTimestamp, pMedia->nSsrc});
    return pUnit;
}

void KovaPacketWriterSetTimestamp(KovaPacketWriter *pWriter, uint32_t nTimestamp)
{
    RtspWriteMB(pWriter->header + 4, nTimestamp, 32);
}

uint8_t *KovaPacketWriterAdd(KovaPacketWriter *pWriter, uint32_t nPayload)
{
    const uint32_t nIndex = pWriter->nPackets++;
    const uint32_t nOffset = pWriter->nBytes + pWriter->nPackets * kInterleavedHeaderSize;
    pWriter->nBytes += kRtpHeaderSize + nPayload;
    if (pWriter->pBytes == nullptr)
        return nullptr;
    pWriter->pPackets[nIndex] = {nOffset, kRtpHeaderSize + nPayload};
    uint8_t *pPacket = pWriter->pBytes + nOffset;
    KovaInterleavedHeaderWrite(pPacket - kInterleavedHeaderSize, pWriter->nChannel,
                               kRtpHeaderSize + nPayload);
    memcpy(pPacket, pWriter->header, kRtpHeaderSize);
    pPacket[2] = static_cast<uint8_t>(pWriter->nSequence >> 8);
    pPacket[3] = static_cast<uint8_t>(pWriter->nSequence);
    pWriter->nSequence++;
    return pPacket + kRtpHeaderSize;
}

void KovaPacketWriterMark(KovaPacketWriter *pWriter)
{
    if (pWriter->pBytes != nullptr)
        pWriter->pBytes[pWriter->pPackets[pWriter->nPackets - 1].nOffset + 1] |= kMarker;
}
