#include "tests/support/synthetic_media.h"

#include "tests/support/test_server.h"

namespace {

constexpr uint32_t kFirstTime = 1000; // 0 would mean "no timestamp yet"
constexpr unsigned kSamplesPerFrame = 1024;

/// Bytes without two zeros in a row, so that no start code appears in them.
std::string Noise(size_t nSize, uint32_t nSeed)
{
    std::string bytes(nSize, '\0');
    uint32_t nState = nSeed * 2654435761u + 1;
    bool bZero = true;
    for (char &byte : bytes) {
        nState = nState * 1664525u + 1013904223u;
        byte = static_cast<char>(nState >> 24);
        if (byte == '\0' && bZero)
            byte = '\x5a';
        bZero = byte == '\0';
    }
    if (!bytes.empty())
        bytes.back() = '\x80'; // as the stop bit is: a unit does not end in a zero
    return bytes;
}

const uint8_t *Bytes(const std::string &text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

} // namespace

std::vector<std::string> KovaSyntheticSlices(const KovaSyntheticSizes &sizes, unsigned nPicture)
{
    const bool bKey = nPicture % kSyntheticFps == 0;
    const std::string head(1, bKey ? '\x65' : '\x41');
    const size_t nLarge = (bKey ? sizes.nKeyFrame : sizes.nOtherFrame) + nPicture;
    std::vector<std::string> slices = {head + Noise(nLarge, nPicture * 4)};
    // Two that go together, one that goes alone.
    slices.push_back(head + Noise(300 + nPicture % 7, nPicture * 4 + 1));
    slices.push_back(head + Noise(500, nPicture * 4 + 2));
    if (nPicture % 3 == 0)
        slices.push_back(head + Noise(1100, nPicture * 4 + 3));
    return slices;
}

std::string KovaSyntheticPicture(const KovaSyntheticSizes &sizes, unsigned nPicture)
{
    const std::string shortStart("\0\0\1", 3);
    const std::string longStart("\0\0\0\1", 4);
    std::string unit = longStart + "\x09\x10";
    if (nPicture % kSyntheticFps == 0)
        unit += longStart + KovaTestSps() + longStart + KovaTestPps() + shortStart +
                "\x06\x05\x02\x11\x22\x80";
    bool bLong = true;
    for (const std::string &slice : KovaSyntheticSlices(sizes, nPicture)) {
        unit += (bLong ? longStart : shortStart) + slice;
        bLong = !bLong;
    }
    return unit;
}

std::string KovaSyntheticSound(unsigned nFrame)
{
    return Noise(200 + nFrame * 37 % 700, 1000000 + nFrame);
}

std::string KovaSyntheticAdts(unsigned nFrame)
{
    const std::string sound = KovaSyntheticSound(nFrame);
    return KovaTestAacFrame(sound.size()).substr(0, 7) + sound;
}

uint32_t KovaPictureTime(unsigned nPicture)
{
    return kFirstTime + nPicture * 1000 / kSyntheticFps;
}

uint32_t KovaSoundTime(unsigned nFrame)
{
    return kFirstTime +
           static_cast<uint32_t>(uint64_t{nFrame} * kSamplesPerFrame * 1000 / kSyntheticSampleRate);
}

KovaSyntheticFeed::KovaSyntheticFeed(KovaRtspStreamer *pStream, const KovaSyntheticSizes &sizes)
    : m_pStream(pStream), m_sizes(sizes)
{}

KovaSyntheticFeed::~KovaSyntheticFeed()
{
    Stop();
}

void KovaSyntheticFeed::Start(unsigned nMilliseconds)
{
    m_begin = std::chrono::steady_clock::now();
    m_thread = std::thread([this, nMilliseconds] { Run(nMilliseconds); });
}

void KovaSyntheticFeed::Finish()
{
    if (m_thread.joinable())
        m_thread.join();
}

void KovaSyntheticFeed::Stop()
{
    m_bStop = true;
    Finish();
}

void KovaSyntheticFeed::Run(unsigned nMilliseconds)
{
    while (!m_bStop) {
        const bool bPicture = KovaPictureTime(m_nPictures) <= KovaSoundTime(m_nSounds);
        const uint32_t nTime = bPicture ? KovaPictureTime(m_nPictures) : KovaSoundTime(m_nSounds);
        if (nTime - kFirstTime >= nMilliseconds)
            return;
        const std::string unit =
            bPicture ? KovaSyntheticPicture(m_sizes, m_nPictures) : KovaSyntheticAdts(m_nSounds);
        std::this_thread::sleep_until(m_begin + std::chrono::milliseconds(nTime - kFirstTime));
        KovaRtspServerPushData(m_pStream, bPicture ? 97 : 96, Bytes(unit),
                               static_cast<uint32_t>(unit.size()), nTime);
        (bPicture ? m_nPictures : m_nSounds)++;
    }
}
