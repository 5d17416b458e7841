#include "tests/support/player.h"

#include <thread>

bool KovaPlayer::SetUp(KovaTestServer *pServer, const std::string &uri)
{
    m_uri = uri;
    if (!pServer->Connect(&m_rtsp) || m_rtsp.Options(uri).nStatus != 200 ||
        m_rtsp.Describe(uri).nStatus != 200)
        return false;
    for (int nTrack = 96; nTrack <= 97; nTrack++) {
        KovaTestResponse response;
        if (m_bUdp) {
            m_ports[nTrack - 96] = std::make_unique<KovaUdpPair>();
            response = m_rtsp.SetupUdp(uri, nTrack, Ports(nTrack).RtpPort());
            m_nServerPorts[nTrack - 96] = response.ServerPort();
        } else {
            response = m_rtsp.SetupTcp(uri, nTrack, (nTrack - 96) * 2);
        }
        if (response.nStatus != 200)
            return false;
    }
    return true;
}

bool KovaPlayer::Play()
{
    m_play = m_rtsp.Play(m_uri);
    return m_play.nStatus == 200;
}

bool KovaPlayer::Take()
{
    const size_t nBefore = m_arrivals.size();
    const auto now = [] { return std::chrono::steady_clock::now(); };
    if (!m_bUdp) {
        KovaTestFrame frame;
        while (m_rtsp.NextFrame(&frame, 2))
            m_arrivals.push_back(
                {now(), 96 + frame.nChannel / 2, frame.nChannel % 2 != 0, frame.payload});
        return m_arrivals.size() > nBefore;
    }
    for (int nTrack = 96; nTrack <= 97; nTrack++) {
        std::string packet;
        while (Ports(nTrack).ReceiveRtcp(&packet, 0))
            m_arrivals.push_back({now(), nTrack, true, packet});
        while (Ports(nTrack).ReceiveRtp(&packet, 0))
            m_arrivals.push_back({now(), nTrack, false, packet});
    }
    return m_arrivals.size() > nBefore;
}

size_t KovaPlayer::RtpCount(int nTrack) const
{
    size_t nCount = 0;
    for (const KovaArrival &arrival : m_arrivals)
        nCount += arrival.nTrack == nTrack && !arrival.bRtcp;
    return nCount;
}

void KovaCollect(const std::vector<KovaPlayer *> &players, int nMilliseconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(nMilliseconds);
    while (std::chrono::steady_clock::now() < end) {
        bool bAny = false;
        for (KovaPlayer *pPlayer : players)
            bAny |= pPlayer->Take();
        if (!bAny)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void KovaReassemble(const KovaPlayer &player, int nTrack, KovaDepacketizer *pDepacketizer)
{
    for (const KovaArrival &arrival : player.Arrivals())
        if (arrival.nTrack == nTrack && !arrival.bRtcp)
            pDepacketizer->Take(arrival.packet);
}
