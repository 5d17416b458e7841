#include "tests/support/synthetic_media.h"

#include "tests/support/media.h"

namespace {

constexpr uint32_t kFirstTime = 1000; // 0 would mean "no timestamp yet"
constexpr unsigned kSamplesPerFrame = 1024;

} // namespace

std::vector<std::string> KovaSyntheticSlices(const KovaSyntheticSizes &sizes, unsigned nPicture)
{
    const bool bKey = nPicture % kSyntheticFps == 0;
    const std::string head(1, bKey ? '\x65' : '\x41');
    const size_t nLarge = (bKey ? sizes.nKeyFrame : sizes.nOtherFrame) + nPicture;
    std::vector<std::string> slices = {head + KovaNoise(nLarge, nPicture * 4)};
    // Two that go together, one that goes alone.
    slices.push_back(head + KovaNoise(300 + nPicture % 7, nPicture * 4 + 1));
    slices.push_back(head + KovaNoise(500, nPicture * 4 + 2));
    if (nPicture % 3 == 0)
        slices.push_back(head + KovaNoise(1100, nPicture * 4 + 3));
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
    return KovaNoise(200 + nFrame * 37 % 700, 1000000 + nFrame);
}

std::string KovaSyntheticAdts(unsigned nFrame)
{
    return KovaAdts(KovaSyntheticSound(nFrame));
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

void KovaSyntheticFeed::Start(unsigned nMilliseconds)
{
    m_begin = KovaFeed::Clock::now();
    m_feed.Start([this, nMilliseconds] { return Push(nMilliseconds); });
}

/// What is due, and when the next unit is.
std::optional<KovaFeed::Clock::time_point> KovaSyntheticFeed::Push(unsigned nMilliseconds)
{
    for (;;) {
        const bool bPicture = KovaPictureTime(m_nPictures) <= KovaSoundTime(m_nSounds);
        const uint32_t nTime = bPicture ? KovaPictureTime(m_nPictures) : KovaSoundTime(m_nSounds);
        if (nTime - kFirstTime >= nMilliseconds)
            return std::nullopt;
        const auto due = m_begin + std::chrono::milliseconds(nTime - kFirstTime);
        if (KovaFeed::Clock::now() < due)
            return due;
        KovaPush(m_pStream, bPicture ? KOVA_PAYLOAD_ID_VIDEO : KOVA_PAYLOAD_ID_AUDIO,
                 bPicture ? KovaSyntheticPicture(m_sizes, m_nPictures)
                          : KovaSyntheticAdts(m_nSounds),
                 nTime);
        (bPicture ? m_nPictures : m_nSounds)++;
    }
}
