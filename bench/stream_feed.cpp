#include "bench/stream_feed.h"

#include "bench/access_units.h"

#include <utility>

namespace {

constexpr unsigned kFps = 25;
constexpr unsigned kTickMilliseconds = 1000 / kFps;
constexpr unsigned kKeyFactor = 4;
constexpr unsigned kQuietTicks = 5;
constexpr unsigned kQuietSize = 60;
constexpr unsigned kSampleRate = 48000;
constexpr unsigned kSamplesPerFrame = 1024;
constexpr unsigned kSoundSize = 170; // 64 kbit/s
// Above 0, as the schedule wants it, and below the 1000 ms that count as a gap.
constexpr uint64_t kFirstTime = 40;

} // namespace

KovaStreamFeed::KovaStreamFeed(Push push, bool bSound)
    : m_push(std::move(push)), m_bSound(bSound), m_key(KovaBenchPicture(true, kQuietSize)),
      m_sound(KovaBenchSound(kSoundSize))
{}

void KovaStreamFeed::Start()
{
    m_begin = KovaFeed::Clock::now();
    m_feed.Start([this] {
        if (m_nTakenRate != m_nRate)
            TakeRate(m_nRate);
        PushPicture();
        if (m_bSound)
            PushSound();
        m_nTick++;
        return m_begin + std::chrono::milliseconds(m_nTick * kTickMilliseconds);
    });
}

void KovaStreamFeed::TakeRate(unsigned nKilobits)
{
    m_nTakenRate = nKilobits;
    m_nPicture = 0;
    const size_t nOther = size_t{nKilobits} * 125 / (kFps - 1 + kKeyFactor);
    m_key = KovaBenchPicture(true, nKilobits == 0 ? kQuietSize : nOther * kKeyFactor);
    if (nKilobits != 0)
        m_other = KovaBenchPicture(false, nOther);
}

void KovaStreamFeed::PushPicture()
{
    const uint64_t nTime = kFirstTime + m_nTick * kTickMilliseconds;
    if (m_nTakenRate == 0 && m_nTick % kQuietTicks != 0)
        return;
    const bool bKey = m_nTakenRate == 0 || m_nPicture % kFps == 0;
    m_nPicture++;
    m_push(true, bKey ? m_key : m_other, nTime);
}

/// The frames that begin before the next picture.
void KovaStreamFeed::PushSound()
{
    for (;;) {
        const uint64_t nTime = m_nFrame * kSamplesPerFrame * 1000 / kSampleRate;
        if (nTime >= (m_nTick + 1) * kTickMilliseconds)
            return;
        m_push(false, m_sound, kFirstTime + nTime);
        m_nFrame++;
    }
}
