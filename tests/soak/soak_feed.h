#pragma once

#include "tests/support/feed.h"

#include <atomic>

/// Pushes the soak's media into a stream (audio 96, video 97) in real time, like
/// a host, on a thread of its own that lives as long as this object.
class KovaSoakFeed {
public:
    explicit KovaSoakFeed(KovaRtspStreamer *pStream);

    /// While it pauses nothing is pushed; what was due then is left out.
    void Pause(bool bPause)
    {
        m_bPause = bPause;
    }

private:
    void Push(uint32_t nNumber);

    KovaRtspStreamer *m_pStream;
    const KovaFeed::Clock::time_point m_begin;
    std::atomic<bool> m_bPause{false};
    uint32_t m_nNumber = 0; ///< the feed's own
    KovaFeed m_feed;        ///< ends before what it uses
};
