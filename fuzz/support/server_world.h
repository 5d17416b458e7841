#pragma once

#include "classic/server/server.h"
#include "fuzz/support/player.h"

#include <string>

/// A world with a server in it: a stream "live" with AAC and H.264 whose description is ready.
class KovaServerWorld {
public:
    /// @param bMonitor  the monitor runs (there is never a listener: players are handed over)
    KovaServerWorld(bool bMonitor, int32_t nMaxClient);
    /// Takes everything down and requires that nothing is left.
    ~KovaServerWorld();
    KovaServerWorld(const KovaServerWorld &) = delete;
    KovaServerWorld &operator=(const KovaServerWorld &) = delete;

    KovaRtspServer *Server()
    {
        return m_pServer;
    }
    /// Null while the stream is withdrawn.
    KovaRtspStreamer *Stream()
    {
        return m_pStream;
    }
    void Publish();
    void Withdraw();

    /// Connects a player to a handler with its own thread.
    void Connect(KovaFuzzPlayer *pPlayer);

    void Push(uint32_t nPayloadId, const std::string &unit, uint32_t nPts);

    unsigned Sessions();
    unsigned Handlers();
    /// RTP clients of the stream's tracks, of one session only if one is named.
    unsigned Clients(const std::string &session = {});

private:
    KovaRtspServer *m_pServer;
    KovaRtspStreamer *m_pStream = nullptr;
};
