#pragma once

#include "fuzz/support/live_network.h"
#include "fuzz/support/require.h"
#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/rtcp_in.h"
#include "live/engine/stream.h"
#include "live/engine/udp_ports.h"

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

/// A server with one loop that has no thread and listens to nobody.
class KovaLiveFuzzServer {
public:
    explicit KovaLiveFuzzServer(uint8_t nSwitches)
    {
        KovaLiveConfig config = {};
        config.size = sizeof(config);
        config.max_sessions = 6;
        config.session_ms = 5000;
        config.delay_ms = (nSwitches & 2) != 0 ? 300 : 0;
        config.player_max_bytes = (nSwitches & 4) != 0 ? 20000 : 0;
        config.log_level = KOVA_LIVE_LOG_DEBUG;
        config.on_event = [](void *, const KovaLiveEvent *) {};
        config.on_log = [](void *, int32_t, const char *szLine) {
            KovaRequire(strpbrk(szLine, "\r\n") == nullptr, "a line is one line");
        };
        KovaRequire(KovaLiveSettingsFrom(&config, &m_live.settings) == KOVA_LIVE_OK, "settings");
        m_bKeep = (nSwitches & 1) != 0;
        KovaMutexInit(&m_live.streamsMutex);
        KovaMutexInit(&m_live.numberMutex);
        m_live.nListener = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        KovaRequire(KovaLoopCreate(&m_live, 0, &m_live.pLoops[0]) == KOVA_LIVE_OK, "a loop");
        m_live.nLoops = 1;
        Publish();
    }
    ~KovaLiveFuzzServer()
    {
        Withdraw();
        KovaLoopEndAll(Loop());
        KovaRequire(m_live.nSessions == 0 && m_live.nConnections == 0, "nobody is left");
        KovaLoopDestroy(Loop());
        close(m_live.nListener);
        KovaMutexDestroy(&m_live.streamsMutex);
        KovaMutexDestroy(&m_live.numberMutex);
    }
    KovaLiveFuzzServer(const KovaLiveFuzzServer &) = delete;
    KovaLiveFuzzServer &operator=(const KovaLiveFuzzServer &) = delete;

    KovaLiveLoop *Loop() const
    {
        return m_live.pLoops[0];
    }
    KovaLive *Live()
    {
        return &m_live;
    }
    void Publish()
    {
        if (pStream != nullptr)
            return;
        KovaLiveStreamConfig config = {};
        config.size = sizeof(config);
        config.keep_group = m_bKeep ? 1 : 0;
        KovaLiveAddStream(&m_live, "live", &config, &pStream);
        KovaLiveTrackConfig track = {};
        track.size = sizeof(track);
        track.codec = KOVA_LIVE_H264;
        KovaLiveAddTrack(pStream, &track, &pTracks[0]);
        track.codec = KOVA_LIVE_AAC;
        KovaLiveAddTrack(pStream, &track, &pTracks[1]);
    }
    void Withdraw()
    {
        if (pStream == nullptr)
            return;
        nLateBefore += Late();
        KovaLiveRemoveStream(pStream);
        pStream = nullptr;
    }
    /// Packets that were counted as late so far.
    uint64_t Late() const
    {
        if (pStream == nullptr)
            return 0;
        KovaLiveStreamNumbers numbers = {};
        numbers.size = sizeof(numbers);
        KovaLiveStreamFigures(pStream, &numbers);
        return numbers.late_packets;
    }
    uint64_t AllLate() const
    {
        return nLateBefore + Late();
    }
    void Run(uint64_t nTime)
    {
        KovaLiveClockAdvance(nTime);
        for (int nRound = 0; nRound < 3; nRound++)
            KovaLoopRound(Loop(), 0);
    }
    /// Takes one end of a connection, from an address of its own.
    void Take(int nSocket, uint32_t nAddress)
    {
        m_live.nConnections++;
        KovaMutexLock lock(&Loop()->mutex, kRankLiveLoop);
        sockaddr_in peer = {};
        peer.sin_family = AF_INET;
        peer.sin_addr.s_addr = htonl(nAddress);
        peer.sin_port = htons(1234);
        KovaConnectionHand(KovaConnectionCreate(nSocket, peer), Loop(), true);
        peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Loop()->pConnections->local = peer;
    }
    void Report(uint32_t nAddress, uint16_t nPort, const std::string &bytes)
    {
        KovaUdpPorts *pPorts = Loop()->pUdpPorts;
        if (pPorts == nullptr)
            return;
        sockaddr_in from = {};
        from.sin_addr.s_addr = htonl(nAddress);
        from.sin_port = htons(nPort);
        KovaMutexLock lock(&Loop()->mutex, kRankLiveLoop);
        KovaRtcpFromUdp(Loop(), pPorts, from, reinterpret_cast<const uint8_t *>(bytes.data()),
                        bytes.size());
    }

    KovaLiveStream *pStream = nullptr;
    std::array<KovaLiveTrack *, 2> pTracks = {};
    uint64_t nLateBefore = 0;

private:
    KovaLive m_live = {};
    bool m_bKeep = false;
};
