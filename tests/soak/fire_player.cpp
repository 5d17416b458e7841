#include "tests/soak/fire_player.h"

#include "tests/soak/fire_host.h"

namespace {

constexpr int kFirstTrack = 96;
constexpr int kTinyBuffer = 2304;

} // namespace

KovaFirePlayer::KovaFirePlayer(KovaSoakScore *pScore, uint16_t nPort, unsigned nSeed)
    : m_pScore(pScore), m_nPort(nPort), m_random(nSeed), m_nStream(Draw(kFireStreams)),
      m_bUdp(Draw(2) == 0), m_nSwitches(Draw(3) == 0 ? 1 : 0)
{}

unsigned KovaFirePlayer::Draw(unsigned nCount)
{
    return std::uniform_int_distribution<unsigned>(0, nCount - 1)(m_random);
}

bool KovaFirePlayer::Request(KovaTestResponse response)
{
    if (response.nStatus == 200)
        m_pScore->nRequests++;
    if (response.bComplete && response.nStatus == 0)
        m_pScore->Complain("not a response: " + response.text.substr(0, 60));
    return response.nStatus == 200;
}

void KovaFirePlayer::SetUp()
{
    for (int nTrack = 0; nTrack < 2; nTrack++) {
        if (m_bUdp) {
            m_ports[nTrack] = std::make_unique<KovaUdpPair>();
            Request(m_rtsp.SetupUdp(kFireUris[m_nStream], kFirstTrack + nTrack,
                                    m_ports[nTrack]->RtpPort()));
        } else {
            Request(m_rtsp.SetupTcp(kFireUris[m_nStream], kFirstTrack + nTrack, 2 * nTrack));
        }
    }
}

void KovaFirePlayer::Play()
{
    if (Draw(8) == 0) // not even waiting for the answer
        m_rtsp.Send(m_rtsp.Format("PLAY", kFireUris[m_nStream], {}));
    else if (Request(m_rtsp.Play(kFireUris[m_nStream])))
        m_pScore->nPlays++;
}

void KovaFirePlayer::Watch()
{
    if (Draw(8) == 0) {
        m_pScore->nUnread++;
        return;
    }
    KovaTestFrame frame;
    std::string packet;
    const int nWait = static_cast<int>(Draw(40));
    for (int i = 0; i < 20; i++) {
        const bool bGot = m_bUdp && m_ports[i % 2] != nullptr
                              ? m_ports[i % 2]->ReceiveRtp(&packet, nWait / 2)
                              : m_rtsp.Socket() >= 0 && m_rtsp.NextFrame(&frame, nWait);
        if (!bGot)
            break;
        m_pScore->nUnits++;
        if (!m_bUdp && frame.nChannel > 3)
            m_pScore->Complain("a frame on channel " + std::to_string(frame.nChannel));
    }
}

void KovaFirePlayer::Vanish()
{
    switch (Draw(4)) {
    case 0:
        Request(m_rtsp.Teardown(kFireUris[m_nStream]));
        m_rtsp.Close();
        return;
    case 1:
        m_rtsp.Close();
        return;
    case 2:
        m_rtsp.Close(true);
        return;
    default: // silence: nothing is closed until the round is over
        return;
    }
}

bool KovaFirePlayer::Step()
{
    switch (m_nStep++) {
    case 0:
        if (!m_rtsp.Connect(m_nPort, Draw(4) == 0 ? kTinyBuffer : 0))
            return false;
        m_pScore->nPlayers++;
        return true;
    case 1:
        Request(m_rtsp.Options(kFireUris[m_nStream]));
        Request(m_rtsp.Describe(kFireUris[m_nStream]));
        return true;
    case 2:
        SetUp();
        return Draw(10) != 0 || (Vanish(), false);
    case 3:
        Play();
        return true;
    case 4:
        Watch();
        if (m_nSwitches == 0)
            return true;
        m_nSwitches--;
        Request(m_rtsp.Teardown(kFireUris[m_nStream]));
        m_rtsp.SetSession({});
        m_nStream = (m_nStream + 1) % kFireStreams;
        m_bUdp = Draw(2) == 0;
        m_nStep = 2;
        return true;
    default:
        Vanish();
        return false;
    }
}
