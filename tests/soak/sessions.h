#pragma once

#include "classic/server/server.h"

#include <atomic>
#include <string>

/// The server's sessions, known by numbers of our own: ids are used again at
/// once, connections of one second draw the same ones. All calls may come from
/// any thread.
class KovaSoakSessions {
public:
    explicit KovaSoakSessions(KovaRtspServer *pServer) : m_pServer(pServer) {}

    /// Numbers the session that has this id now; 0 when there is none, or when
    /// it is somebody else's.
    int Number(const std::string &id);
    bool Exists(int nNumber);
    /// Lets a session's time be over.
    void Expire(int nNumber);
    void ExpireAll();
    /// What the server knows of the id: its session, that one's number and
    /// expiry, and the clients of a stream.
    std::string Describe(const std::string &id, KovaRtspStreamer *pStream);

private:
    KovaRtspServer *m_pServer;
    std::atomic<int> m_nLast{0};
};
