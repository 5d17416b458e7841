#include "tests/soak/soak_player.h"

#include "tests/support/sockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kUri[] = "live";
constexpr int kFirstTrack = 96;
constexpr int kChannelsPerSetup = 4;
constexpr int kTinyBuffer = 2304;
/// A group may wait for a player that does not read; a slow machine for itself.
constexpr std::chrono::seconds kPatience(40);
constexpr size_t kReportSize = 28;

} // namespace

KovaSoakPlayer::KovaSoakPlayer(const KovaSoakStage &stage, std::string scenario)
    : m_stage(stage), m_scenario(std::move(scenario))
{}

bool KovaSoakPlayer::Complain(const std::string &text)
{
    m_stage.pScore->Complain(m_scenario + ": " + text);
    return false;
}

bool KovaSoakPlayer::Expect(const KovaTestResponse &response, int nStatus, const char *szRequest)
{
    if (response.bComplete && response.nStatus == nStatus) {
        m_stage.pScore->nRequests++;
        return true;
    }
    return Complain(std::string(szRequest) + " was answered with \"" + response.text.substr(0, 60) +
                    "\"");
}

bool KovaSoakPlayer::Connect(int nMaxSegment)
{
    if (nMaxSegment > 0)
        m_rtsp.Adopt(KovaConnect(m_stage.nPort, {kTinyBuffer, nMaxSegment}));
    else
        m_rtsp.Connect(m_stage.nPort);
    return m_rtsp.Socket() >= 0 || Complain("no connection");
}

bool KovaSoakPlayer::SetUp(bool bUdp, unsigned nTracks, bool bDescribe)
{
    m_bUdp = bUdp;
    m_nFirstChannel += kChannelsPerSetup;
    if (bDescribe && (!Expect(m_rtsp.Options(kUri), 200, "OPTIONS") ||
                      !Expect(m_rtsp.Describe(kUri), 200, "DESCRIBE")))
        return false;
    for (unsigned nTrack = 0; nTrack < 2; nTrack++) {
        m_tracks[nTrack] = {};
        if ((nTracks >> nTrack & 1) != 0 && !SetUpTrack(nTrack, kUri))
            return false;
    }
    return true;
}

bool KovaSoakPlayer::SetUpTrack(unsigned nTrack, const char *szUri)
{
    Track &track = m_tracks[nTrack];
    const int nId = kFirstTrack + static_cast<int>(nTrack);
    track.checker = std::make_unique<KovaTrackChecker>(nId);
    KovaTestResponse response;
    if (m_bUdp) {
        track.ports = std::make_unique<KovaUdpPair>();
        response = m_rtsp.SetupUdp(szUri, nId, track.ports->RtpPort());
        track.nServerPort = response.ServerPort();
    } else {
        response = m_rtsp.SetupTcp(szUri, nId, m_nFirstChannel + 2 * static_cast<int>(nTrack));
    }
    if (!Expect(response, 200, "SETUP"))
        return false;
    if (m_session.empty()) {
        m_session = m_rtsp.Session();
        m_nSession = m_stage.pSessions->Number(m_session);
        m_stage.pScore->nSessions++;
    }
    return m_nSession != 0 || Complain("no session of its own; " + Situation());
}

bool KovaSoakPlayer::Play()
{
    if (!Expect(m_rtsp.Play(kUri), 200, "PLAY"))
        return false;
    m_stage.pScore->nPlays++;
    m_bPlaying = true;
    return true;
}

void KovaSoakPlayer::TakeRtcp(const std::string &packet)
{
    if (packet.size() != kReportSize || packet.compare(0, 2, "\x80\xc8") != 0)
        Complain("RTCP that is no sender report");
}

bool KovaSoakPlayer::TakeUdp()
{
    bool bAny = false;
    std::string packet;
    for (Track &track : m_tracks) {
        if (track.ports == nullptr)
            continue;
        while (track.ports->ReceiveRtcp(&packet, 0))
            TakeRtcp(packet);
        for (; track.ports->ReceiveRtp(&packet, 0); bAny = true)
            track.checker->Take(packet);
    }
    return bAny;
}

bool KovaSoakPlayer::TakeTcp()
{
    KovaTestFrame frame;
    if (!m_rtsp.NextFrame(&frame, 20))
        return false;
    const int nChannel = frame.nChannel - m_nFirstChannel;
    if (nChannel < 0 || nChannel >= kChannelsPerSetup ||
        m_tracks[nChannel / 2].checker == nullptr) {
        Complain("a frame on channel " + std::to_string(frame.nChannel));
        return true;
    }
    if (nChannel % 2 != 0)
        TakeRtcp(frame.payload);
    else
        m_tracks[nChannel / 2].checker->Take(frame.payload);
    return true;
}

bool KovaSoakPlayer::Enough(unsigned nUnits) const
{
    for (const Track &track : m_tracks)
        if (track.checker != nullptr && track.checker->Good() < nUnits)
            return false;
    return true;
}

bool KovaSoakPlayer::Watch(unsigned nUnits)
{
    const Clock::time_point end = Clock::now() + kPatience;
    while (!Enough(nUnits) && Clock::now() < end)
        if (!(m_bUdp ? TakeUdp() : TakeTcp()) && m_bUdp)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    bool bGood = true;
    for (unsigned nTrack = 0; nTrack < 2; nTrack++) {
        const KovaTrackChecker *pChecker = m_tracks[nTrack].checker.get();
        if (pChecker == nullptr)
            continue;
        m_stage.pScore->nUnits += pChecker->Good();
        if (!pChecker->Complaint().empty())
            bGood = Complain(pChecker->Complaint());
        else if (pChecker->Good() < nUnits)
            bGood = Complain("track " + std::to_string(kFirstTrack + nTrack) + " gave only " +
                             std::to_string(pChecker->Good()) + " units; " + Situation());
    }
    return bGood;
}

std::string KovaSoakPlayer::Situation()
{
    std::string text = "its session " + std::to_string(m_nSession) + ", the server's " +
                       m_stage.pSessions->Describe(m_session, m_stage.pStream);
    char byte = 0;
    const ssize_t nPeeked = recv(m_rtsp.Socket(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (nPeeked == 0)
        text += ", the connection has ended";
    else if (nPeeked > 0)
        text += ", bytes wait on the connection";
    return text;
}

bool KovaSoakPlayer::KeepAlive(bool bRtcp)
{
    if (!m_bUdp || !bRtcp)
        return Expect(m_rtsp.GetParameter(kUri), 200, "GET_PARAMETER");
    for (Track &track : m_tracks)
        if (track.ports != nullptr)
            track.ports->SendRtcp(static_cast<uint16_t>(track.nServerPort + 1),
                                  KovaReceiverReport(1));
    return true;
}

bool KovaSoakPlayer::Teardown()
{
    if (!Expect(m_rtsp.Teardown(kUri), 200, "TEARDOWN"))
        return false;
    KovaTestFrame frame;
    while (m_rtsp.NextFrame(&frame, 0)) // those that came before the answer
        continue;
    m_rtsp.SetSession({});
    m_session.clear();
    m_bPlaying = false;
    return true;
}

void KovaSoakPlayer::Leave(KovaSoakLeaving leaving)
{
    if (leaving == kLeaveByTeardown && HasSession())
        Teardown();
    if (leaving == kLeaveBySilence)
        return;
    // The server sends into the connection of a player that plays interleaved,
    // and so sees that it is gone. It sees nothing of any other player.
    m_bNoticed = m_bPlaying && !m_bUdp;
    if (leaving == kLeaveByHalf) {
        shutdown(m_rtsp.Socket(), SHUT_WR);
        return;
    }
    m_rtsp.Close(leaving == kLeaveByReset);
    for (Track &track : m_tracks)
        track.ports.reset();
}
