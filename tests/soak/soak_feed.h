#pragma once

#include "server/kova_rtsp_server.h"

#include <atomic>
#include <thread>

/// Pushes the soak's media into a stream (audio 96, video 97) in real time, like
/// a host, on a thread of its own that lives as long as this object.
class KovaSoakFeed {
public:
    explicit KovaSoakFeed(KovaRtspStreamer *pStream);
    ~KovaSoakFeed();
    KovaSoakFeed(const KovaSoakFeed &) = delete;
    KovaSoakFeed &operator=(const KovaSoakFeed &) = delete;

    /// While it pauses nothing is pushed; what was due then is left out.
    void Pause(bool bPause)
    {
        m_bPause = bPause;
    }

private:
    void Run();
    void Push(uint32_t nNumber);

    KovaRtspStreamer *m_pStream;
    std::atomic<bool> m_bEnd{false};
    std::atomic<bool> m_bPause{false};
    std::thread m_thread;
};
