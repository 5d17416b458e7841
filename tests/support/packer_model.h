#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <tuple>
#include <vector>

using KovaBytes = std::vector<uint8_t>;

/// One RTP packet as a player gets it, and what sending needs to know of it.
struct KovaSeenPacket {
    KovaBytes bytes;
    uint32_t nFrameType;
    uint32_t nPts;

    bool operator==(const KovaSeenPacket &other) const
    {
        return std::tie(bytes, nFrameType, nPts) ==
               std::tie(other.bytes, other.nFrameType, other.nPts);
    }
};

/// One call of the stream-info callback.
struct KovaSeenReport {
    KovaBytes bytes;
    uint32_t nKind;

    bool operator==(const KovaSeenReport &other) const
    {
        return std::tie(bytes, nKind) == std::tie(other.bytes, other.nKind);
    }
};

/// The packers once more, in a few lines and without care for speed, to compare
/// the library's with. Made from their description, not from their code.
class KovaPackerModel {
public:
    KovaPackerModel(uint8_t nPayloadType, uint32_t nSsrc);
    virtual ~KovaPackerModel() = default;

    /// Takes an access unit; returns the result code.
    virtual uint32_t Push(const KovaBytes &unit, uint32_t nPts) = 0;

    /// The next packet, if there is one.
    virtual std::optional<KovaSeenPacket> Next() = 0;

    /// What was reported to the stream-info callback so far.
    std::vector<KovaSeenReport> reports;
    uint32_t nSequence = 0;
    uint32_t nTimestamp = 0;
    uint32_t nPts = 0;

protected:
    /// A packet with this payload; takes a sequence number.
    KovaSeenPacket Packet(const KovaBytes &payload, bool bMarker, uint32_t nFrameType);

private:
    uint8_t m_nPayloadType;
    uint32_t m_nSsrc;
};

/// H.264: single NAL unit packets, STAP-A, FU-A (RFC 6184).
class KovaH264Model : public KovaPackerModel {
public:
    using KovaPackerModel::KovaPackerModel;
    uint32_t Push(const KovaBytes &unit, uint32_t nPts) override;
    std::optional<KovaSeenPacket> Next() override;

private:
    KovaSeenPacket NextFragment();

    std::deque<KovaBytes> m_units;
    KovaBytes m_fragmented; ///< empty: no unit is being fragmented
    size_t m_nSent = 0;     ///< of m_fragmented
};

/// AAC: one access unit per packet, large ones in pieces (RFC 3640).
class KovaAacModel : public KovaPackerModel {
public:
    using KovaPackerModel::KovaPackerModel;
    uint32_t Push(const KovaBytes &unit, uint32_t nPts) override;
    std::optional<KovaSeenPacket> Next() override;

private:
    bool Split(const KovaBytes &unit);

    std::deque<KovaBytes> m_payloads;
    KovaBytes m_fragmented; ///< empty: no unit is being fragmented
    int64_t m_nSize = 0;    ///< of the unit being fragmented
    int64_t m_nSent = 0;    ///< of all the units fragmented since the push
    uint32_t m_nSampleRate = 0;
};
