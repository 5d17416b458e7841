#pragma once

#include "tests/support/feed.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

/// Sizes of synthetic pictures: 30 a second, a key frame each second.
struct KovaSyntheticSizes {
    size_t nKeyFrame = 150000;
    size_t nOtherFrame = 20000;
};

constexpr unsigned kSyntheticFps = 30;
constexpr unsigned kSyntheticSampleRate = 44100;

/// The slices of a picture (NAL units): a large one and small ones. The same number gives the
/// same bytes.
std::vector<std::string> KovaSyntheticSlices(const KovaSyntheticSizes &sizes, unsigned nPicture);

/// The picture as it is pushed: delimiter, parameter sets and SEI of a key frame, slices.
std::string KovaSyntheticPicture(const KovaSyntheticSizes &sizes, unsigned nPicture);

/// An AAC access unit without and with its ADTS header.
std::string KovaSyntheticSound(unsigned nFrame);
std::string KovaSyntheticAdts(unsigned nFrame);

/// Presentation timestamps, ms.
uint32_t KovaPictureTime(unsigned nPicture);
uint32_t KovaSoundTime(unsigned nFrame);

/// Pushes synthetic media into a stream in real time, like a host, on a thread of its own.
class KovaSyntheticFeed {
public:
    KovaSyntheticFeed(KovaRtspStreamer *pStream, const KovaSyntheticSizes &sizes);

    /// Begins at once. Everything due within the first nMilliseconds is pushed.
    void Start(unsigned nMilliseconds);
    /// Waits until everything is pushed; or stops early.
    void Finish()
    {
        m_feed.Finish();
    }
    void Stop()
    {
        m_feed.Stop();
    }

    unsigned Pictures() const
    {
        return m_nPictures;
    }
    unsigned Sounds() const
    {
        return m_nSounds;
    }
    std::chrono::steady_clock::time_point Begin() const
    {
        return m_begin;
    }

private:
    std::optional<KovaFeed::Clock::time_point> Push(unsigned nMilliseconds);

    KovaRtspStreamer *m_pStream;
    KovaSyntheticSizes m_sizes;
    std::atomic<unsigned> m_nPictures{0};
    std::atomic<unsigned> m_nSounds{0};
    std::chrono::steady_clock::time_point m_begin;
    KovaFeed m_feed; ///< ends before what it pushes from
};
