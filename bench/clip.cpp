#include "bench/clip.h"

#include <cstdio>

namespace {

constexpr size_t kRtpHeader = 12;
constexpr uint64_t kClock = 90; // RTP ticks of pictures in a millisecond

uint32_t TimestampOf(const uint8_t *pPacket)
{
    return uint32_t{pPacket[4]} << 24 | uint32_t{pPacket[5]} << 16 | uint32_t{pPacket[6]} << 8 |
           pPacket[7];
}

bool ReadRecord(FILE *pFile, std::vector<uint8_t> *pRecord)
{
    uint8_t size[2];
    if (fread(size, 1, sizeof(size), pFile) != sizeof(size))
        return false;
    pRecord->resize(size_t{size[0]} << 8 | size[1]);
    return fread(pRecord->data(), 1, pRecord->size(), pFile) == pRecord->size();
}

} // namespace

bool KovaClip::Read(const char *szFile)
{
    std::vector<uint8_t> record;
    FILE *pFile = fopen(szFile, "rb");
    if (pFile == nullptr)
        return false;
    bool bGood = ReadRecord(pFile, &record);
    m_description.assign(record.begin(), record.end());
    while (bGood && ReadRecord(pFile, &record))
        bGood = Take(record.data(), record.size());
    fclose(pFile);
    if (!bGood || m_units.size() < 2)
        return false;
    const uint32_t nFirst = TimestampOf(m_units.front().front().data() + kClipFraming);
    const uint32_t nLast = TimestampOf(m_units.back().front().data() + kClipFraming);
    m_nStep = (nLast - nFirst) / static_cast<uint32_t>(m_units.size() - 1);
    m_nInterval = m_nStep * 1000ULL / kClock;
    return m_nInterval != 0;
}

const KovaClipUnit &KovaClip::Next()
{
    KovaClipUnit &unit = m_units[m_nNext];
    for (std::vector<uint8_t> &frame : unit) {
        uint8_t *pPacket = frame.data() + kClipFraming;
        pPacket[2] = static_cast<uint8_t>(m_nSequence >> 8);
        pPacket[3] = static_cast<uint8_t>(m_nSequence);
        for (unsigned nByte = 0; nByte < 4; nByte++)
            pPacket[4 + nByte] = static_cast<uint8_t>(m_nTimestamp >> (24 - 8 * nByte));
        m_nSequence++;
    }
    m_nNext = (m_nNext + 1) % m_units.size();
    m_nTimestamp += m_nStep;
    return unit;
}

bool KovaClip::Take(const uint8_t *pPacket, size_t nSize)
{
    if (nSize < kRtpHeader)
        return false;
    const uint32_t nTimestamp = TimestampOf(pPacket);
    if (m_units.empty() || TimestampOf(m_units.back().front().data() + kClipFraming) != nTimestamp)
        m_units.emplace_back();
    std::vector<uint8_t> frame = {'$', 0, static_cast<uint8_t>(nSize >> 8),
                                  static_cast<uint8_t>(nSize)};
    frame.insert(frame.end(), pPacket, pPacket + nSize);
    m_units.back().push_back(std::move(frame));
    return true;
}
