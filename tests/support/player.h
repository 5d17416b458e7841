#pragma once

#include "tests/support/depacketizer.h"
#include "tests/support/rtsp_client.h"
#include "tests/support/test_server.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

/// One RTP or RTCP packet as it came.
struct KovaArrival {
    std::chrono::steady_clock::time_point when;
    int nTrack; ///< 96 or 97
    bool bRtcp;
    std::string packet;
};

/// A player of both tracks, over UDP or interleaved. It reads when the test collects.
class KovaPlayer {
public:
    explicit KovaPlayer(bool bUdp) : m_bUdp(bUdp) {}

    /// OPTIONS, DESCRIBE, SETUP of both tracks; then PLAY. False when an answer is not 200.
    bool SetUp(KovaTestServer *pServer, const std::string &uri = "live");
    bool Play();

    KovaRtspTestClient &Rtsp()
    {
        return m_rtsp;
    }
    const KovaTestResponse &PlayAnswer() const
    {
        return m_play;
    }
    /// The player's ports of a track, and the server's RTP port for it (UDP only).
    KovaUdpPair &Ports(int nTrack)
    {
        return *m_ports[nTrack - 96];
    }
    uint16_t ServerPort(int nTrack) const
    {
        return m_nServerPorts[nTrack - 96];
    }

    /// Takes what has arrived; false when nothing had.
    bool Take();
    const std::vector<KovaArrival> &Arrivals() const
    {
        return m_arrivals;
    }
    size_t RtpCount(int nTrack) const;

private:
    bool m_bUdp;
    std::string m_uri;
    KovaRtspTestClient m_rtsp;
    KovaTestResponse m_play;
    std::unique_ptr<KovaUdpPair> m_ports[2];
    uint16_t m_nServerPorts[2] = {};
    std::vector<KovaArrival> m_arrivals;
};

/// Lets the players take what arrives for so long.
void KovaCollect(const std::vector<KovaPlayer *> &players, int nMilliseconds);

/// Puts what a player got of a track together again.
void KovaReassemble(const KovaPlayer &player, int nTrack, KovaDepacketizer *pDepacketizer);
