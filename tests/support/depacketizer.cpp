#include "tests/support/depacketizer.h"

#include <utility>

namespace {

uint8_t Byte(const std::string &text, size_t nAt)
{
    return static_cast<uint8_t>(text[nAt]);
}

uint32_t Number(const std::string &text, size_t nAt, size_t nBytes)
{
    uint32_t nValue = 0;
    for (size_t i = 0; i < nBytes; i++)
        nValue = nValue << 8 | Byte(text, nAt + i);
    return nValue;
}

constexpr size_t kHeaderSize = 12;
constexpr int kStapA = 24;
constexpr int kFuA = 28;

} // namespace

bool KovaReadRtpHeader(const std::string &packet, KovaRtpHeaderFields *pHeader)
{
    if (packet.size() <= kHeaderSize || Byte(packet, 0) != 0x80)
        return false;
    pHeader->bMarker = (Byte(packet, 1) & 0x80) != 0;
    pHeader->nPayloadType = Byte(packet, 1) & 0x7f;
    pHeader->nSequence = static_cast<uint16_t>(Number(packet, 2, 2));
    pHeader->nTimestamp = Number(packet, 4, 4);
    pHeader->nSsrc = Number(packet, 8, 4);
    return true;
}

void KovaDepacketizer::Take(const std::string &packet)
{
    KovaRtpHeaderFields header;
    if (!KovaReadRtpHeader(packet, &header)) {
        Complain("not an RTP packet");
        return;
    }
    if (m_nPackets == 0)
        m_first = header;
    else if (header.nSequence != static_cast<uint16_t>(m_last.nSequence + 1))
        Complain("packet " + std::to_string(header.nSequence) + " follows " +
                 std::to_string(m_last.nSequence));
    if (header.nSsrc != m_first.nSsrc || header.nPayloadType != m_first.nPayloadType)
        Complain("another source or payload type");
    m_last = header;
    m_nPackets++;
    TakePayload(packet.substr(kHeaderSize), header);
}

void KovaDepacketizer::Complain(const std::string &text)
{
    if (m_complaint.empty())
        m_complaint = text;
}

void KovaDepacketizer::Add(uint32_t nTimestamp, std::string bytes)
{
    m_units.push_back({nTimestamp, std::move(bytes)});
}

void KovaH264Depacketizer::TakePayload(const std::string &payload,
                                       const KovaRtpHeaderFields &header)
{
    const int nType = Byte(payload, 0) & 0x1f;
    if (nType != kFuA && !m_fragments.empty())
        Complain("a unit without its last fragment");
    if (nType == kStapA)
        TakeAggregate(payload, header);
    else if (nType == kFuA)
        TakeFragment(payload, header);
    else if (nType >= 1 && nType <= 23)
        Add(header.nTimestamp, payload);
    else
        Complain("payload type " + std::to_string(nType));
}

void KovaH264Depacketizer::TakeAggregate(const std::string &payload,
                                         const KovaRtpHeaderFields &header)
{
    size_t nAt = 1;
    while (nAt + 2 < payload.size()) {
        const size_t nSize = Number(payload, nAt, 2);
        nAt += 2;
        if (nSize == 0 || nSize > payload.size() - nAt) {
            Complain("an aggregated unit does not fit");
            return;
        }
        Add(header.nTimestamp, payload.substr(nAt, nSize));
        nAt += nSize;
    }
    if (nAt != payload.size())
        Complain("bytes behind the last aggregated unit");
}

void KovaH264Depacketizer::TakeFragment(const std::string &payload,
                                        const KovaRtpHeaderFields &header)
{
    if (payload.size() < 3) {
        Complain("an empty fragment");
        return;
    }
    const bool bStart = (Byte(payload, 1) & 0x80) != 0;
    const bool bEnd = (Byte(payload, 1) & 0x40) != 0;
    if (bStart != m_fragments.empty())
        Complain(bStart ? "a start within a unit" : "a fragment without a start");
    if (bStart)
        m_fragments = static_cast<char>((Byte(payload, 0) & 0xe0) | (Byte(payload, 1) & 0x1f));
    m_fragments += payload.substr(2);
    if (!bEnd)
        return;
    Add(header.nTimestamp, std::exchange(m_fragments, {}));
}

void KovaAacDepacketizer::TakePayload(const std::string &payload, const KovaRtpHeaderFields &header)
{
    if (m_nExpected == 0) {
        if (payload.size() < 5 || Number(payload, 0, 2) != 16 || (Byte(payload, 3) & 7) != 0) {
            Complain("not one access unit header");
            return;
        }
        m_nExpected = Number(payload, 2, 2) >> 3;
        m_fragments = payload.substr(4);
    } else {
        m_fragments += payload;
    }
    if ((m_fragments.size() >= m_nExpected) != header.bMarker || m_fragments.size() > m_nExpected)
        Complain("the access unit's size is not the announced one");
    if (!header.bMarker)
        return;
    Add(header.nTimestamp, std::exchange(m_fragments, {}));
    m_nExpected = 0;
}
