#pragma once

#include "tests/support/feed.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

/// Makes pictures (and sound), in real time, as an encoder does: 25 pictures a second, each second
/// a key frame with its parameter sets that is four times as large as the others. The bit rate can
/// be changed while it runs.
class KovaStreamFeed {
public:
    /// Takes an access unit of pictures, or a frame of sound, and its time.
    using Push =
        std::function<void(bool bPicture, const std::string &unit, uint64_t nMilliseconds)>;

    /// The calls come from a thread of the feed.
    KovaStreamFeed(Push push, bool bSound);

    /// Begins to push, without a rate.
    void Start();
    /// From the next picture on, which is a key frame. 0: only a small key frame five times a
    /// second, so that players who come meanwhile have seen one and cost next to nothing.
    void SetRate(unsigned nKilobits)
    {
        m_nRate = nKilobits;
    }
    void Stop()
    {
        m_feed.Stop();
    }

private:
    void TakeRate(unsigned nKilobits);
    void PushPicture();
    void PushSound();

    Push m_push;
    bool m_bSound;
    std::atomic<unsigned> m_nRate{0};
    // The thread's own:
    std::string m_key;
    std::string m_other;
    std::string m_sound;
    unsigned m_nTakenRate = 0;
    uint64_t m_nTick = 0;    ///< fortieths of a second since the start
    uint64_t m_nPicture = 0; ///< pictures since the rate was taken
    uint64_t m_nFrame = 0;   ///< of sound
    KovaFeed::Clock::time_point m_begin;

    KovaFeed m_feed; ///< ends before what it uses
};
