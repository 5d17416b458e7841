#pragma once

#include "live/media/track_media.h"

#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

/// Bytes of a text, 0 included.
std::string KovaMediaBytes(std::initializer_list<int> bytes);

/// A NAL unit of a size, with that header byte, whose bytes differ with the seed. No zero is
/// among them, so that it can stand in Annex B form as it is.
std::string KovaMediaNal(int nHeader, size_t nSize, unsigned nSeed = 0);

/// Access units in both forms.
std::string KovaMediaAnnexB(const std::vector<std::string> &nals, unsigned nCodeSize = 4);
std::string KovaMediaLengths(const std::vector<std::string> &nals, unsigned nLengthSize = 4);

/// A frame behind an ADTS header: AAC LC unless told.
struct KovaAdtsKind {
    unsigned nRateIndex = 4;
    unsigned nChannels = 2;
    unsigned nProfile = 1;
    unsigned nBlocks = 0;
    bool bCrc = false;
};
std::string KovaMediaAdts(const std::string &frame, const KovaAdtsKind &kind = {});

/// One RTP packet, taken apart by RFC 3550.
struct KovaMediaPacket {
    bool bMarker;
    unsigned nPayloadType;
    uint16_t nSequence;
    uint32_t nTimestamp;
    uint32_t nSsrc;
    std::string payload;
};

/// What came of a push.
struct KovaMediaUnit {
    int32_t nResult = 0;
    bool bUnit = false; ///< there was a unit; all of the rest is its
    bool bEntry = false;
    bool bKey = false;
    bool bReference = false;
    int64_t nPts = 0;
    uint32_t nTimestamp = 0;
    uint16_t nFirstSequence = 0;
    uint32_t nTrack = 0;
    uint64_t nArrived = 0;
    std::vector<KovaMediaPacket> packets;
};

/// A track with what it cuts. What every unit keeps to is checked at each push: packets one behind
/// the other and within the limit, sequence numbers that go on, one source, the marker last.
class KovaMediaTrack {
public:
    static constexpr unsigned kPayloadType = 97;

    explicit KovaMediaTrack(const KovaLiveTrackConfig &config, uint32_t nMaxPacket = 1400,
                            uint32_t nTrack = 0);
    ~KovaMediaTrack();
    KovaMediaTrack(const KovaMediaTrack &) = delete;
    KovaMediaTrack &operator=(const KovaMediaTrack &) = delete;

    /// The code of its creation; nothing else may be called unless it is 0.
    int32_t Created() const
    {
        return m_nCreated;
    }
    KovaTrackMedia *Media() const
    {
        return m_pMedia;
    }
    KovaMediaUnit Push(const std::string &data, int64_t nPts = 0);

    /// The section of the description; "" when there is none.
    std::string Description() const;

private:
    void Check(const KovaUnit &unit, KovaMediaUnit *pSeen);

    uint32_t m_nMaxPacket;
    KovaTrackMedia *m_pMedia = nullptr;
    int32_t m_nCreated; ///< behind m_pMedia, which the creation writes
    bool m_bStarted = false;
    uint16_t m_nNextSequence = 0;
};

/// Records of the host.
KovaLiveTrackConfig KovaMediaConfig(uint32_t nCodec, uint32_t nForm = KOVA_LIVE_FORM_DEFAULT);

/// Puts NAL units together again (RFC 6184, packetization mode 1), strictly; whatever is odd fails
/// the test.
std::vector<std::string> KovaMediaNals(const KovaMediaUnit &unit, uint32_t nMaxPacket = 1400);

/// The same for AAC (RFC 3640, AAC-hbr): frames with the timestamps that a receiver gives them,
/// when each lasts nFrameTicks.
struct KovaMediaFrame {
    uint32_t nTimestamp;
    std::string bytes;
};
std::vector<KovaMediaFrame> KovaMediaFrames(const KovaMediaUnit &unit, uint32_t nFrameTicks);
