#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// An RTP header (RFC 3550, section 5.1) as the library writes it.
struct KovaRtpHeaderFields {
    bool bMarker = false;
    int nPayloadType = -1;
    uint16_t nSequence = 0;
    uint32_t nTimestamp = 0;
    uint32_t nSsrc = 0;
};

/// False when the packet is no RTP packet of version 2 without extras.
bool KovaReadRtpHeader(const std::string &packet, KovaRtpHeaderFields *pHeader);

/// What came out of one or more packets: a NAL unit or an AAC access unit.
struct KovaReceivedUnit {
    uint32_t nTimestamp;
    std::string bytes;
    bool operator==(const KovaReceivedUnit &other) const
    {
        return nTimestamp == other.nTimestamp && bytes == other.bytes;
    }
};

/// Puts units together again from RTP, as a strict player would: the sequence
/// numbers have to follow each other and nothing may be odd. Written from the RFCs.
class KovaDepacketizer {
public:
    virtual ~KovaDepacketizer() = default;

    /// Takes the next packet of the track.
    void Take(const std::string &packet);

    const std::vector<KovaReceivedUnit> &Units() const
    {
        return m_units;
    }
    unsigned Packets() const
    {
        return m_nPackets;
    }
    /// The header of the first packet, and what was odd first; empty: nothing.
    const KovaRtpHeaderFields &First() const
    {
        return m_first;
    }
    const std::string &Complaint() const
    {
        return m_complaint;
    }

protected:
    virtual void TakePayload(const std::string &payload, const KovaRtpHeaderFields &header) = 0;
    void Complain(const std::string &text);
    void Add(uint32_t nTimestamp, std::string bytes);

private:
    std::vector<KovaReceivedUnit> m_units;
    KovaRtpHeaderFields m_first;
    KovaRtpHeaderFields m_last;
    unsigned m_nPackets = 0;
    std::string m_complaint;
};

/// H.264 in packetization mode 1 (RFC 6184): single NAL units, STAP-A, FU-A.
class KovaH264Depacketizer : public KovaDepacketizer {
private:
    void TakePayload(const std::string &payload, const KovaRtpHeaderFields &header) override;
    void TakeAggregate(const std::string &payload, const KovaRtpHeaderFields &header);
    void TakeFragment(const std::string &payload, const KovaRtpHeaderFields &header);
    std::string m_fragments; ///< empty: no unit is open
};

/// AAC in mode AAC-hbr (RFC 3640): one access unit per packet, or fragments of one.
class KovaAacDepacketizer : public KovaDepacketizer {
private:
    void TakePayload(const std::string &payload, const KovaRtpHeaderFields &header) override;
    std::string m_fragments;
    size_t m_nExpected = 0;
};
