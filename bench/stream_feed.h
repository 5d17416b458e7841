#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

/// Makes pictures (and sound), in real time, as an encoder does: 25 pictures
/// a second, each second a key frame with its parameter sets that is four times as large as the
/// others. The bit rate can be changed while it runs.
class KovaStreamFeed {
public:
    /// Takes an access unit of pictures, or a frame of sound, and its time.
    using Push = std::function<void(bool bPicture, const std::vector<uint8_t> &unit,
                                    uint64_t nMilliseconds)>;

    /// The calls come from a thread of the feed.
    KovaStreamFeed(Push push, bool bSound);
    ~KovaStreamFeed();
    KovaStreamFeed(const KovaStreamFeed &) = delete;
    KovaStreamFeed &operator=(const KovaStreamFeed &) = delete;

    /// Begins to push, without a rate.
    void Start();
    /// From the next picture on, which is a key frame. 0: only a small key frame five times a
    /// second, so that players who come meanwhile have seen one and cost next to nothing.
    void SetRate(unsigned nKilobits)
    {
        m_nRate = nKilobits;
    }
    void Stop();

private:
    void Run();
    void TakeRate(unsigned nKilobits);
    void PushPicture();
    void PushSound();

    Push m_push;
    bool m_bSound;
    std::thread m_thread;
    std::atomic<bool> m_bStop{false};
    std::atomic<unsigned> m_nRate{0};
    // The thread's own:
    std::vector<uint8_t> m_key;
    std::vector<uint8_t> m_other;
    std::vector<uint8_t> m_sound;
    unsigned m_nTakenRate = 0;
    uint64_t m_nTick = 0;    ///< fortieths of a second since the start
    uint64_t m_nPicture = 0; ///< pictures since the rate was taken
    uint64_t m_nFrame = 0;   ///< of sound
};
