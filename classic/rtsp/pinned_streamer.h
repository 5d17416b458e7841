#pragma once

#include "classic/rtsp/server_calls.h"
#include "classic/streamer/streamer.h"

/// A stream looked up by URI and pinned for the life of a scope: it is not
/// destroyed before.
class KovaPinnedStreamer {
public:
    KovaPinnedStreamer() = default;
    KovaPinnedStreamer(KovaRtspServer *pServer, const char *szUri)
    {
        Pin(pServer, szUri);
    }
    ~KovaPinnedStreamer()
    {
        KovaStreamerUnpin(m_pStreamer);
    }
    KovaPinnedStreamer(const KovaPinnedStreamer &) = delete;
    KovaPinnedStreamer &operator=(const KovaPinnedStreamer &) = delete;

    /// Once; null arguments and unknown URIs pin nothing.
    void Pin(KovaRtspServer *pServer, const char *szUri)
    {
        m_pStreamer = KovaServerPinStreamer(pServer, szUri);
    }

    /// Null when nothing is pinned.
    KovaRtspStreamer *Get() const
    {
        return m_pStreamer;
    }
    explicit operator bool() const
    {
        return m_pStreamer != nullptr;
    }

private:
    KovaRtspStreamer *m_pStreamer = nullptr;
};
