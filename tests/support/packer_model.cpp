#include "tests/support/packer_model.h"

#include <algorithm>
#include <string>

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kNotDrained = 0x80100002;
constexpr uint32_t kNoFrame = 0x80100003;
constexpr uint32_t kNoStartCode = 0x80100004;

constexpr size_t kH264Budget = 1400;
constexpr size_t kFuCapacity = 1398;
constexpr int64_t kAacCapacity = 1388;

void AppendBigEndian(KovaBytes *pBytes, uint64_t nValue, int nBytes)
{
    for (int n = nBytes - 1; n >= 0; n--)
        pBytes->push_back(static_cast<uint8_t>(nValue >> (8 * n)));
}

void Append(KovaBytes *pBytes, const KovaBytes &more)
{
    pBytes->insert(pBytes->end(), more.begin(), more.end());
}

KovaBytes Slice(const KovaBytes &bytes, size_t nBegin, size_t nEnd)
{
    return KovaBytes(bytes.begin() + static_cast<ptrdiff_t>(nBegin),
                     bytes.begin() + static_cast<ptrdiff_t>(nEnd));
}

int NalType(const KovaBytes &unit)
{
    return unit.front() % 32;
}

/// Length of the start code at p, 0 if there is none. One that begins in the
/// last three bytes does not count.
size_t StartCodeAt(const KovaBytes &bytes, size_t p)
{
    if (p + 3 >= bytes.size() || bytes[p] != 0 || bytes[p + 1] != 0)
        return 0;
    if (bytes[p + 2] == 1)
        return 3;
    return bytes[p + 2] == 0 && bytes[p + 3] == 1 ? 4 : 0;
}

} // namespace

KovaPackerModel::KovaPackerModel(uint8_t nPayloadType, uint32_t nSsrc)
    : m_nPayloadType(nPayloadType), m_nSsrc(nSsrc)
{}

KovaSeenPacket KovaPackerModel::Packet(const KovaBytes &payload, bool bMarker, uint32_t nFrameType)
{
    KovaBytes bytes = {0x80, m_nPayloadType};
    if (bMarker)
        bytes[1] |= 0x80;
    AppendBigEndian(&bytes, nSequence++, 2);
    AppendBigEndian(&bytes, nTimestamp, 4);
    AppendBigEndian(&bytes, m_nSsrc, 4);
    Append(&bytes, payload);
    return {bytes, nFrameType, nPts};
}

uint32_t KovaH264Model::Push(const KovaBytes &unit, uint32_t nNewPts)
{
    if (!m_units.empty())
        return kNotDrained;
    nPts = nNewPts;
    nTimestamp = static_cast<uint32_t>(uint64_t{nNewPts} * 90);

    // Where each NAL unit begins, and where the start code behind it does.
    std::vector<std::pair<size_t, size_t>> spans;
    for (size_t p = 0; p < unit.size();) {
        const size_t nCode = StartCodeAt(unit, p);
        if (nCode == 0) {
            p++;
            continue;
        }
        if (!spans.empty())
            spans.back().second = p;
        p += nCode;
        spans.emplace_back(p, unit.size());
    }
    if (spans.empty())
        return kNoStartCode;

    for (size_t n = 0; n < spans.size(); n++) {
        const KovaBytes nal = Slice(unit, spans[n].first, spans[n].second);
        if (nal.empty() || NalType(nal) == 6 || NalType(nal) == 9)
            continue;
        const bool bParameterSet = NalType(nal) == 7 || NalType(nal) == 8;
        if (bParameterSet && n + 1 < spans.size())
            reports.push_back({nal, NalType(nal) == 7 ? 2U : 3U});
        else
            m_units.push_back(nal);
    }
    return kOk;
}

KovaSeenPacket KovaH264Model::NextFragment()
{
    const bool bFirst = m_nSent == 1;
    const size_t nLeft = m_fragmented.size() - m_nSent;
    const size_t nNow = std::min(nLeft, kFuCapacity);
    const uint8_t nHeader = m_fragmented.front();
    // The first fragment's marker is decided apart: set for one odd header byte only.
    const bool bMarker = bFirst ? nHeader == 7 : nLeft <= kFuCapacity;
    const uint32_t nFrameType = bFirst && NalType(m_fragmented) == 5 ? 2 : 0;

    uint8_t nFuHeader = nHeader & 0x1F;
    if (bFirst)
        nFuHeader |= 0x80;
    if (nNow == nLeft)
        nFuHeader |= 0x40;
    KovaBytes payload = {static_cast<uint8_t>((nHeader & 0xE0) | 28), nFuHeader};
    Append(&payload, Slice(m_fragmented, m_nSent, m_nSent + nNow));
    m_nSent += nNow;
    if (nNow == nLeft)
        m_fragmented.clear();
    return Packet(payload, bMarker, nFrameType);
}

std::optional<KovaSeenPacket> KovaH264Model::Next()
{
    if (!m_fragmented.empty())
        return NextFragment();
    if (m_units.empty())
        return std::nullopt;
    if (m_units.front().size() + 2 > kH264Budget) {
        m_fragmented = m_units.front();
        m_units.pop_front();
        m_nSent = 1;
        return NextFragment();
    }

    std::vector<KovaBytes> together;
    size_t nUsed = 0;
    while (!m_units.empty() && nUsed + m_units.front().size() + 2 <= kH264Budget) {
        nUsed += m_units.front().size() + 2;
        together.push_back(m_units.front());
        m_units.pop_front();
    }
    const bool bKey = std::any_of(together.begin(), together.end(),
                                  [](const KovaBytes &unit) { return NalType(unit) == 5; });
    if (together.size() == 1)
        return Packet(together.front(), true, bKey ? 2 : 0);
    KovaBytes payload = {24};
    for (const KovaBytes &unit : together) {
        payload[0] |= unit.front() & 0xE0;
        AppendBigEndian(&payload, unit.size(), 2);
        Append(&payload, unit);
    }
    return Packet(payload, true, bKey ? 2 : 0);
}

uint32_t KovaAacModel::Push(const KovaBytes &unit, uint32_t nNewPts)
{
    if (!m_payloads.empty())
        return kNotDrained;
    m_nSize = 0;
    m_nSent = 0;
    if (!Split(unit)) {
        m_payloads.clear();
        return kNoFrame;
    }
    uint64_t nDelta = 1024;
    if (nNewPts >= nPts) {
        const uint64_t nProduct = (uint64_t{nNewPts - nPts} * m_nSampleRate) % (uint64_t{1} << 32);
        nDelta = (nProduct + 500) / 1000;
    }
    nPts = nNewPts;
    nTimestamp += static_cast<uint32_t>(nDelta);
    return kOk;
}

bool KovaAacModel::Split(const KovaBytes &unit)
{
    static const uint32_t kRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                        16000, 12000, 11025, 8000,  7350,  0,     0,     0};
    size_t p = 0;
    do {
        while (p + 7 < unit.size() && (unit[p] != 0xFF || unit[p + 1] / 16 != 0xF))
            p++;
        if (p + 7 >= unit.size())
            return false;
        const uint8_t *pHeader = unit.data() + p;
        const int nIndex = (pHeader[2] >> 2) & 15;
        m_nSampleRate = kRates[nIndex];

        const std::string rate = std::to_string(m_nSampleRate);
        KovaBytes text(rate.begin(), rate.end());
        text.resize(6);
        reports.push_back({text, 4});
        // Object type 2, index, channels: the channels' top bit stands one place
        // too low, on the bit below it.
        const int nConfig = 2 << 11 | nIndex << 7 | (pHeader[2] & 1) << 4 | (pHeader[3] >> 6) << 3;
        KovaBytes config;
        AppendBigEndian(&config, static_cast<uint64_t>(nConfig), 2);
        reports.push_back({config, 1});

        // Lengths whose middle byte has its top bit set read as negative.
        const size_t nLength = (pHeader[3] & 3U) << 11 | pHeader[4] << 3 | pHeader[5] >> 5;
        if (pHeader[4] >= 0x80 || nLength < 8 || nLength > unit.size() - p)
            return true;
        KovaBytes payload = {0, 16};
        AppendBigEndian(&payload, (nLength - 7) * 8, 2);
        Append(&payload, Slice(unit, p + 7, p + nLength));
        m_payloads.push_back(payload);
        p += nLength;
    } while (p != unit.size());
    return true;
}

std::optional<KovaSeenPacket> KovaAacModel::Next()
{
    constexpr uint32_t kAudio = 1;
    int64_t nRoom = 0;
    bool bMarker = false;
    if (!m_fragmented.empty()) {
        nRoom = std::min(m_nSize - m_nSent, kAacCapacity);
        bMarker = m_nSize - m_nSent <= kAacCapacity;
    } else {
        if (m_payloads.empty())
            return std::nullopt;
        const KovaBytes payload = m_payloads.front();
        m_payloads.pop_front();
        if (payload.size() <= static_cast<size_t>(kAacCapacity))
            return Packet(payload, true, kAudio);
        m_fragmented = payload;
        m_nSize = static_cast<int64_t>(payload.size());
        nRoom = kAacCapacity;
    }
    // Where the previous large unit of the push ended, this one begins; nothing
    // is left of one that is shorter, and the packet is full of zeros.
    const int64_t nLeft = std::max<int64_t>(m_nSize - m_nSent, 0);
    const int64_t nNow = std::min(nRoom, nLeft);
    KovaBytes bytes;
    if (nNow > 0)
        bytes =
            Slice(m_fragmented, static_cast<size_t>(m_nSent), static_cast<size_t>(m_nSent + nNow));
    bytes.resize(static_cast<size_t>(nRoom));
    m_nSent += nNow;
    if (nNow == nLeft)
        m_fragmented.clear();
    return Packet(bytes, bMarker, kAudio);
}
