#pragma once

#include "tests/support/packer_model.h"
#include "tests/support/test_server.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// How much media a script holds.
struct KovaScriptPlan {
    int nSeconds = 10;
    int nVideoPerSecond = 25;
    size_t nVideoSize = 6000; ///< of one frame
    int nAudioPerSecond = 40;
    size_t nAudioSize = 200;
};

/// One track: what is pushed and what has to arrive for it, packet by packet.
/// The index of a packet is its sequence number.
struct KovaScriptTrack {
    uint32_t nPayloadId = 0;
    uint32_t nSsrc = 0;
    std::vector<std::string> units;
    std::vector<uint32_t> times; ///< time stamps of the units, in milliseconds
    std::vector<std::string> packets;
    std::vector<uint32_t> packetTimes;
};

/// Media for a stream, made before it is pushed, so that a player can judge each
/// packet at once and nobody allocates meanwhile. Pushed in real time by a
/// thread of its own, once. Every unit differs from every other.
class KovaMediaScript {
public:
    using Clock = std::chrono::steady_clock;

    /// For a stream into which nothing has been pushed.
    KovaMediaScript(KovaRtspStreamer *pStream, const KovaScriptPlan &plan);

    const KovaScriptTrack &Audio() const
    {
        return m_audio;
    }
    const KovaScriptTrack &Video() const
    {
        return m_video;
    }

    void Start();
    /// Ends the pushing; what was pushed so far is on its way.
    void Stop()
    {
        m_feed.Stop();
    }
    /// Whether everything has been pushed.
    bool IsOver() const
    {
        return m_bOver;
    }
    /// Number of packets of the track that have been pushed.
    size_t Pushed(const KovaScriptTrack &track) const;
    /// Milliseconds since the packet was pushed (not counting the pusher's own
    /// lateness).
    int64_t Age(const KovaScriptTrack &track, uint16_t nSequence) const;

private:
    void MakeAudio(const KovaScriptPlan &plan);
    void MakeVideo(const KovaScriptPlan &plan);
    std::optional<Clock::time_point> Push();
    bool PushNext(const KovaScriptTrack &track, std::atomic<size_t> *pNext);

    KovaRtspStreamer *m_pStream;
    KovaScriptTrack m_audio;
    KovaScriptTrack m_video;
    std::atomic<size_t> m_nNextAudio{0};
    std::atomic<size_t> m_nNextVideo{0};
    std::atomic<bool> m_bOver{false};
    std::atomic<Clock::time_point> m_start{};
    KovaFeed m_feed; ///< ends before what it pushes
};
