#include "tests/soak/scenarios.h"

#include <chrono>
#include <string>
#include <thread>

namespace {

using Player = KovaSoakPlayer;
using Score = KovaSoakScore;
using Random = KovaSoakRandom;

unsigned Draw(Random *pRandom, unsigned nCount)
{
    return std::uniform_int_distribution<unsigned>(0, nCount - 1)(*pRandom);
}

KovaSoakLeaving AnyLeaving(Random *pRandom)
{
    return static_cast<KovaSoakLeaving>(Draw(pRandom, kSoakLeavings));
}

/// Closes what holds no session.
void Hang(Player *pPlayer, Random *pRandom)
{
    pPlayer->Leave(Draw(pRandom, 2) == 0 ? kLeaveByEnd : kLeaveByReset);
}

std::string Noise(Random *pRandom, size_t nSize)
{
    std::string bytes;
    while (bytes.size() < nSize)
        bytes += static_cast<char>(Draw(pRandom, 256));
    return bytes;
}

// ---- Players that do everything right ----------------------------------------------------------

void WatchAndLeave(Player *pPlayer, Random *pRandom, bool bUdp)
{
    const unsigned nTracks = 1 + Draw(pRandom, 3);
    if (!pPlayer->Connect() || !pPlayer->SetUp(bUdp, nTracks) || !pPlayer->Play() ||
        !pPlayer->Watch(3))
        return;
    if (Draw(pRandom, 2) == 0 && !pPlayer->KeepAlive(Draw(pRandom, 2) == 0))
        return;
    if (pPlayer->Watch(5 + Draw(pRandom, 5)))
        pPlayer->Leave(AnyLeaving(pRandom));
}

void WatchUdp(Player *pPlayer, Score *, Random *pRandom)
{
    WatchAndLeave(pPlayer, pRandom, true);
}

void WatchTcp(Player *pPlayer, Score *, Random *pRandom)
{
    WatchAndLeave(pPlayer, pRandom, false);
}

/// Changes the transport in the middle, on the same connection.
void Switch(Player *pPlayer, Score *, Random *pRandom)
{
    bool bUdp = Draw(pRandom, 2) == 0;
    if (!pPlayer->Connect())
        return;
    for (int i = 0; i < 2; i++, bUdp = !bUdp) {
        if (!pPlayer->SetUp(bUdp, kSoakBoth, i == 0) || !pPlayer->Play() || !pPlayer->Watch(4))
            return;
        if (i == 0 && !pPlayer->Teardown())
            return;
    }
    pPlayer->Leave(AnyLeaving(pRandom));
}

// ---- Players that are broken -------------------------------------------------------------------

void ConnectOnly(Player *pPlayer, Score *, Random *pRandom)
{
    if (pPlayer->Connect())
        Hang(pPlayer, pRandom);
}

void HalfRequest(Player *pPlayer, Score *, Random *pRandom)
{
    if (!pPlayer->Connect())
        return;
    const std::string request =
        pPlayer->Rtsp().Format("SETUP", "live/trackID=96", "Transport: RTP/AVP;client_port=");
    pPlayer->Rtsp().Send(request.substr(0, 1 + Draw(pRandom, 70)));
    Hang(pPlayer, pRandom);
}

void Garbage(Player *pPlayer, Score *, Random *pRandom)
{
    if (!pPlayer->Connect())
        return;
    for (unsigned i = Draw(pRandom, 4); i > 0; i--)
        pPlayer->Rtsp().Send(Noise(pRandom, 1 + Draw(pRandom, 9000)));
    Hang(pPlayer, pRandom);
}

void Flood(Player *pPlayer, Score *, Random *pRandom)
{
    if (!pPlayer->Connect())
        return;
    std::string requests;
    for (int i = 0; i < 30; i++)
        requests += pPlayer->Rtsp().Format("OPTIONS", "live",
                                           "X: " + std::string(Draw(pRandom, 800), 'x') + "\r\n");
    pPlayer->Rtsp().Send(requests);
    Hang(pPlayer, pRandom);
}

void SetUpOnly(Player *pPlayer, Score *, Random *pRandom)
{
    if (pPlayer->Connect() && pPlayer->SetUp(Draw(pRandom, 2) == 0, 1 + Draw(pRandom, 3), false))
        pPlayer->Leave(AnyLeaving(pRandom));
}

/// The second SETUP of a track makes a second client.
void SetUpTwice(Player *pPlayer, Score *, Random *pRandom)
{
    const bool bUdp = Draw(pRandom, 2) == 0;
    if (pPlayer->Connect() && pPlayer->SetUp(bUdp, kSoakBoth, false) &&
        pPlayer->SetUp(bUdp, kSoakBoth, false) && pPlayer->Play())
        pPlayer->Leave(AnyLeaving(pRandom));
}

/// Its group waits for it until it is reset.
void NeverReads(Player *pPlayer, Score *pScore, Random *pRandom)
{
    if (!pPlayer->Connect(536) || !pPlayer->SetUp(false, kSoakVideo, false) || !pPlayer->Play())
        return;
    pScore->nUnread++;
    std::this_thread::sleep_for(std::chrono::milliseconds(800 + Draw(pRandom, 600)));
    pPlayer->Leave(kLeaveByReset);
}

void PlaysNothing(Player *pPlayer, Score *, Random *pRandom)
{
    if (pPlayer->Connect() && pPlayer->Play())
        Hang(pPlayer, pRandom);
}

void AsksForWhatIsNot(Player *pPlayer, Score *, Random *pRandom)
{
    if (!pPlayer->Connect())
        return;
    KovaRtspTestClient &rtsp = pPlayer->Rtsp();
    const std::string transport = "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n";
    pPlayer->Expect(rtsp.Describe("nothing"), 404, "DESCRIBE");
    pPlayer->Expect(rtsp.Setup("nothing", 96, "RTP/AVP;unicast;client_port=5000-5001"), 404,
                    "SETUP");
    pPlayer->Expect(rtsp.Exchange(rtsp.Format("RECORD", "live", {})), 400, "RECORD");
    pPlayer->Expect(rtsp.Exchange(rtsp.Format("SETUP", "live/trackID=96", {})), 400, "SETUP");
    rtsp.SetSession("00000000000");
    pPlayer->Expect(rtsp.Exchange(rtsp.Format("PLAY", "live", transport)), 454, "PLAY");
    pPlayer->Expect(rtsp.Teardown("live"), 454, "TEARDOWN");
    Hang(pPlayer, pRandom);
}

/// Pieces of frames and reports between its requests, then a reset.
void HalfFrames(Player *pPlayer, Score *, Random *pRandom)
{
    if (!pPlayer->Connect() || !pPlayer->SetUp(false, kSoakBoth, false) || !pPlayer->Play() ||
        !pPlayer->Watch(2))
        return;
    const std::string frame = KovaInterleaved(1, KovaReceiverReport(1));
    for (int i = 0; i < 5; i++)
        pPlayer->Rtsp().Send(frame.substr(0, 1 + Draw(pRandom, 36)));
    pPlayer->Leave(kLeaveByReset);
}

} // namespace

const std::vector<KovaSoakScenario> &KovaSoakScenarios()
{
    static const std::vector<KovaSoakScenario> scenarios = {
        {"watch udp", 24, WatchUdp},
        {"watch tcp", 24, WatchTcp},
        {"switch", 12, Switch},
        {"connect only", 8, ConnectOnly},
        {"half request", 8, HalfRequest},
        {"garbage", 6, Garbage},
        {"flood", 3, Flood},
        // Each costs the senders a millisecond per packet until it expires.
        {"set up only", 3, SetUpOnly},
        {"set up twice", 3, SetUpTwice},
        {"plays nothing", 2, PlaysNothing},
        {"asks for what is not", 4, AsksForWhatIsNot},
        {"half frames", 4, HalfFrames},
        // Everybody else waits meanwhile.
        {"never reads", 1, NeverReads},
    };
    return scenarios;
}

const KovaSoakScenario &KovaPickScenario(KovaSoakRandom *pRandom)
{
    unsigned nTotal = 0;
    for (const KovaSoakScenario &scenario : KovaSoakScenarios())
        nTotal += scenario.nWeight;
    unsigned nDrawn = Draw(pRandom, nTotal);
    for (const KovaSoakScenario &scenario : KovaSoakScenarios()) {
        if (nDrawn < scenario.nWeight)
            return scenario;
        nDrawn -= scenario.nWeight;
    }
    return KovaSoakScenarios().front();
}
