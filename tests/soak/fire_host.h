#pragma once

#include "kova_rtsp_server.h"
#include "tests/soak/score.h"
#include "tests/support/feed.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

constexpr unsigned kFireStreams = 2;
extern const char *const kFireUris[kFireStreams];

/// A host that takes its server apart while players use it. One thread calls
/// the operations; another one pushes media all the time and reads the status.
class KovaFireHost {
public:
    /// nPort: of the server, for every round. bPaced: timestamps as of a real
    /// stream, so that packets wait in the queues for a second; otherwise each
    /// one is a jump, and goes out at once.
    KovaFireHost(KovaSoakScore *pScore, uint16_t nPort, unsigned nSeed, bool bPaced);

    uint16_t Port() const
    {
        return m_nPort;
    }

    /// Makes and starts a server with its streams.
    bool Create();
    /// Destroys it, whoever is connected.
    void Destroy();

    void ReplaceStream(unsigned nStream);
    void ReplacePayloadType(unsigned nStream);
    void StopAndStart();
    void ExpireAll();
    /// Any of these but the stop.
    void DoAnything();

private:
    bool AddStream(unsigned nStream);
    void PushAll();
    unsigned Draw(unsigned nCount);

    KovaSoakScore *m_pScore;
    const uint16_t m_nPort;
    const bool m_bPaced;
    std::mt19937 m_random;
    KovaRtspServer *m_pServer = nullptr;
    std::mutex m_mutex; ///< held while a stream is pushed to, or goes
    KovaRtspStreamer *m_streams[kFireStreams] = {};
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    uint32_t m_nUnits = 0;
    KovaFeed m_feed; ///< ends before what it uses
};
