#pragma once

#include "classic/rtp/rtp_packer.h"
#include "tests/support/packer_model.h"

#include <optional>
#include <vector>

/// A packer of the library with everything that it hands out. Pushed units end
/// at a page that cannot be read, so that reading behind one ends the test.
class KovaPackerProbe {
public:
    /// @param nCodec  1: AAC, 2: H.264
    KovaPackerProbe(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc, bool bCallback = true);
    ~KovaPackerProbe();
    KovaPackerProbe(const KovaPackerProbe &) = delete;
    KovaPackerProbe &operator=(const KovaPackerProbe &) = delete;

    KovaRtpPacker *Packer()
    {
        return m_pPacker;
    }

    /// Pushes the unit; returns the result code.
    uint32_t Push(const KovaBytes &unit, uint32_t nPts);

    /// The next packet, which is freed. Without one, the result code is checked
    /// to be the one for that.
    std::optional<KovaSeenPacket> Next();

    /// All packets left; bounded.
    std::vector<KovaSeenPacket> Drain();

    /// Pushes a unit that must be taken, and gives all of its packets.
    std::vector<KovaSeenPacket> Pack(const KovaBytes &unit, uint32_t nPts = 0);

    /// The same, only what stands behind the RTP headers.
    std::vector<KovaBytes> PayloadsOf(const KovaBytes &unit);

    std::vector<KovaSeenReport> reports;

private:
    static void OnStreamInfo(const uint8_t *pData, uint32_t nLength, uint32_t nKind,
                             uint32_t nPayloadId, void *pContext);

    uint32_t m_nPayloadType;
    KovaRtpPacker *m_pPacker;
};

/// The RTP header of a packet, taken apart.
struct KovaRtpFields {
    uint8_t nFirst;
    bool bMarker;
    uint8_t nPayloadType;
    uint16_t nSequence;
    uint32_t nTimestamp;
    uint32_t nSsrc;
};
KovaRtpFields KovaRtpFieldsOf(const KovaSeenPacket &packet);

/// What stands behind the RTP header.
KovaBytes KovaPayloadOf(const KovaSeenPacket &packet);

/// One after the other.
KovaBytes KovaJoin(const std::vector<KovaBytes> &parts);

/// nSize bytes in which neighbours differ, none of them 0, 1 or 255, behind
/// nFirst.
KovaBytes KovaFilled(size_t nSize, uint8_t nFirst);
