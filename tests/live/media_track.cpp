#include "tests/live/media_track.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

constexpr size_t kHeader = 12;

unsigned Number(const std::string &bytes, size_t nAt, size_t nCount)
{
    unsigned nValue = 0;
    for (size_t n = 0; n < nCount; n++)
        nValue = nValue << 8 | static_cast<uint8_t>(bytes.at(nAt + n));
    return nValue;
}

KovaMediaPacket TakeApart(const std::string &bytes)
{
    EXPECT_GT(bytes.size(), kHeader);
    EXPECT_EQ(Number(bytes, 0, 1), 0x80U);
    const unsigned nSecond = Number(bytes, 1, 1);
    return {nSecond >= 0x80,     nSecond & 0x7F,      static_cast<uint16_t>(Number(bytes, 2, 2)),
            Number(bytes, 4, 4), Number(bytes, 8, 4), bytes.substr(kHeader)};
}

} // namespace

std::string KovaMediaBytes(std::initializer_list<int> bytes)
{
    std::string text;
    for (const int nByte : bytes)
        text += static_cast<char>(nByte);
    return text;
}

std::string KovaMediaNal(int nHeader, size_t nSize, unsigned nSeed)
{
    std::string nal(nSize, '\0');
    for (size_t n = 0; n < nSize; n++)
        nal[n] = static_cast<char>(1 + (n * 7 + n / 251 + nSeed) % 255);
    nal.at(0) = static_cast<char>(nHeader);
    return nal;
}

std::string KovaMediaAnnexB(const std::vector<std::string> &nals, unsigned nCodeSize)
{
    std::string unit;
    for (const std::string &nal : nals)
        unit += std::string(nCodeSize - 1, '\0') + '\1' + nal;
    return unit;
}

std::string KovaMediaLengths(const std::vector<std::string> &nals, unsigned nLengthSize)
{
    std::string unit;
    for (const std::string &nal : nals) {
        for (unsigned n = nLengthSize; n > 0; n--)
            unit += static_cast<char>(nal.size() >> 8 * (n - 1));
        unit += nal;
    }
    return unit;
}

std::string KovaMediaAdts(const std::string &frame, const KovaAdtsKind &kind)
{
    const size_t nLength = frame.size() + 7 + (kind.bCrc ? 2 : 0);
    std::string adts = KovaMediaBytes({
        0xFF,
        kind.bCrc ? 0xF0 : 0xF1,
        static_cast<int>(kind.nProfile << 6 | kind.nRateIndex << 2 | kind.nChannels >> 2),
        static_cast<int>((kind.nChannels & 3) << 6 | nLength >> 11),
        static_cast<int>(nLength >> 3 & 255),
        static_cast<int>((nLength & 7) << 5 | 0x1F),
        static_cast<int>(0xFC | kind.nBlocks),
    });
    if (kind.bCrc)
        adts += "\x12\x34";
    return adts + frame;
}

KovaLiveTrackConfig KovaMediaConfig(uint32_t nCodec, uint32_t nForm)
{
    KovaLiveTrackConfig config = {};
    config.size = sizeof(config);
    config.codec = nCodec;
    config.form = nForm;
    return config;
}

KovaMediaTrack::KovaMediaTrack(const KovaLiveTrackConfig &config, uint32_t nMaxPacket,
                               uint32_t nTrack)
    : m_nMaxPacket(nMaxPacket),
      m_nCreated(KovaTrackMediaCreate(config, kPayloadType, nTrack, nMaxPacket, &m_pMedia))
{
    EXPECT_EQ(m_nCreated == KOVA_LIVE_OK, m_pMedia != nullptr);
}

KovaMediaTrack::~KovaMediaTrack()
{
    KovaTrackMediaDestroy(m_pMedia);
}

KovaMediaUnit KovaMediaTrack::Push(const std::string &data, int64_t nPts)
{
    // A block of just that size: a sanitizer sees every byte that is read behind it.
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[data.size()]);
    if (!data.empty())
        memcpy(copy.get(), data.data(), data.size());
    KovaUnit *pUnit = nullptr;
    KovaMediaUnit seen;
    seen.nResult = KovaTrackMediaCut(m_pMedia, copy.get(), data.size(), nPts, &pUnit);
    seen.bUnit = pUnit != nullptr;
    if (pUnit != nullptr) {
        EXPECT_EQ(seen.nResult, KOVA_LIVE_OK);
        Check(*pUnit, &seen);
    }
    KovaUnitRelease(pUnit);
    return seen;
}

void KovaMediaTrack::Check(const KovaUnit &unit, KovaMediaUnit *pSeen)
{
    pSeen->bEntry = unit.bEntry;
    pSeen->bKey = unit.bKey;
    pSeen->bReference = unit.bReference;
    pSeen->nPts = unit.nPts;
    pSeen->nTimestamp = unit.nTimestamp;
    pSeen->nFirstSequence = unit.nFirstSequence;
    pSeen->nTrack = unit.nTrack;
    pSeen->nArrived = unit.nArrived;
    EXPECT_EQ(unit.nReferences.load(), 1U);
    EXPECT_GT(unit.nPackets, 0U);
    uint32_t nOffset = 0;
    for (uint32_t n = 0; n < unit.nPackets; n++) {
        const KovaUnitPacket &packet = unit.pPackets[n];
        nOffset += 4;
        EXPECT_EQ(packet.nOffset, nOffset);
        EXPECT_LE(packet.nSize, m_nMaxPacket);
        // A frame of an RTSP connection (RFC 2326, 10.12).
        const uint8_t *pFrame = unit.pBytes + packet.nOffset - 4;
        EXPECT_EQ(pFrame[0], '$');
        EXPECT_EQ(pFrame[1], unit.nChannel);
        EXPECT_EQ(pFrame[2] << 8 | pFrame[3], static_cast<int>(packet.nSize));
        nOffset += packet.nSize;
        const char *pBytes = reinterpret_cast<const char *>(unit.pBytes) + packet.nOffset;
        pSeen->packets.push_back(TakeApart(std::string(pBytes, packet.nSize)));
        const KovaMediaPacket &seen = pSeen->packets.back();
        EXPECT_EQ(seen.nSequence, static_cast<uint16_t>(unit.nFirstSequence + n));
        EXPECT_EQ(seen.nPayloadType, kPayloadType);
        EXPECT_EQ(seen.nSsrc, KovaTrackMediaSsrc(m_pMedia));
    }
    EXPECT_EQ(unit.nBytes, nOffset - 4 * unit.nPackets);
    EXPECT_EQ(unit.nChannel, 2 * unit.nTrack);
    EXPECT_EQ(pSeen->packets.at(0).nTimestamp, unit.nTimestamp);
    EXPECT_TRUE(pSeen->packets.back().bMarker);
    if (m_bStarted) {
        EXPECT_EQ(unit.nFirstSequence, m_nNextSequence);
    }
    m_bStarted = true;
    m_nNextSequence = static_cast<uint16_t>(unit.nFirstSequence + unit.nPackets);
}

std::string KovaMediaTrack::Description() const
{
    std::vector<char> text(65536, 'x');
    size_t nLength = 0;
    if (!KovaTrackMediaDescribe(m_pMedia, text.data(), text.size(), &nLength))
        return "";
    EXPECT_EQ(strlen(text.data()), nLength);
    return std::string(text.data(), nLength);
}

std::vector<std::string> KovaMediaNals(const KovaMediaUnit &unit, uint32_t nMaxPacket)
{
    std::vector<std::string> nals;
    std::string open;
    for (size_t n = 0; n < unit.packets.size(); n++) {
        const KovaMediaPacket &packet = unit.packets[n];
        EXPECT_EQ(packet.nTimestamp, unit.nTimestamp);
        EXPECT_EQ(packet.bMarker, n + 1 == unit.packets.size()) << n;
        const unsigned nFirst = Number(packet.payload, 0, 1);
        const unsigned nType = nFirst & 31;
        if (nType != 28) {
            EXPECT_TRUE(open.empty()) << "a NAL unit between fragments";
        }
        if (nType == 24) {
            size_t nAt = 1;
            unsigned nForbidden = 0;
            unsigned nReference = 0;
            const size_t nBefore = nals.size();
            while (nAt < packet.payload.size()) {
                const size_t nSize = Number(packet.payload, nAt, 2);
                EXPECT_GT(nSize, 0U);
                nals.push_back(packet.payload.substr(nAt + 2, nSize));
                EXPECT_EQ(nals.back().size(), nSize);
                nForbidden |= Number(nals.back(), 0, 1) & 0x80;
                nReference = std::max(nReference, Number(nals.back(), 0, 1) & 0x60);
                nAt += 2 + nSize;
            }
            EXPECT_EQ(nAt, packet.payload.size());
            EXPECT_GE(nals.size() - nBefore, 2U) << "an aggregate of one";
            EXPECT_EQ(nFirst, nForbidden | nReference | 24);
        } else if (nType == 28) {
            const unsigned nFu = Number(packet.payload, 1, 1);
            EXPECT_GT(packet.payload.size(), 2U);
            EXPECT_EQ((nFu & 0x80) != 0, open.empty());
            EXPECT_NE(nFu & 0xC0, 0xC0U) << "a single fragment";
            EXPECT_EQ(nFu & 0x20, 0U);
            if (open.empty())
                open = static_cast<char>((nFirst & 0xE0) | (nFu & 31));
            EXPECT_EQ(open[0], static_cast<char>((nFirst & 0xE0) | (nFu & 31)));
            open += packet.payload.substr(2);
            if ((nFu & 0x40) != 0)
                nals.push_back(std::exchange(open, {}));
            else
                EXPECT_EQ(packet.payload.size(), nMaxPacket - kHeader) << "a short fragment";
        } else {
            EXPECT_TRUE(nType >= 1 && nType <= 23);
            nals.push_back(packet.payload);
        }
    }
    EXPECT_TRUE(open.empty());
    return nals;
}

std::vector<KovaMediaFrame> KovaMediaFrames(const KovaMediaUnit &unit, uint32_t nFrameTicks)
{
    std::vector<KovaMediaFrame> frames;
    std::string open;
    for (const KovaMediaPacket &packet : unit.packets) {
        const unsigned nBits = Number(packet.payload, 0, 2);
        EXPECT_EQ(nBits % 16, 0U);
        const size_t nHeaders = nBits / 16;
        EXPECT_GT(nHeaders, 0U);
        size_t nAt = 2 + 2 * nHeaders;
        uint32_t nTimestamp = packet.nTimestamp;
        for (size_t n = 0; n < nHeaders; n++) {
            const unsigned nHeader = Number(packet.payload, 2 + 2 * n, 2);
            EXPECT_EQ(nHeader & 7, 0U);
            const size_t nSize = nHeader >> 3;
            EXPECT_GT(nSize, 0U);
            const size_t nHere = std::min(nSize, packet.payload.size() - nAt);
            if (nHere == nSize) {
                EXPECT_TRUE(open.empty());
                EXPECT_TRUE(packet.bMarker);
                frames.push_back({nTimestamp, packet.payload.substr(nAt, nSize)});
            } else {
                EXPECT_EQ(nHeaders, 1U) << "fragments stand alone";
                open += packet.payload.substr(nAt, nHere);
                EXPECT_LE(open.size(), nSize);
                EXPECT_EQ(packet.bMarker, open.size() == nSize);
                if (packet.bMarker)
                    frames.push_back({nTimestamp, std::exchange(open, {})});
            }
            nAt += nHere;
            nTimestamp += nFrameTicks;
        }
        EXPECT_EQ(nAt, packet.payload.size());
    }
    EXPECT_TRUE(open.empty());
    return frames;
}
