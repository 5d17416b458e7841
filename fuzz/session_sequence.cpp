#include "foundation/log.h"
#include "fuzz/support/input.h"
#include "fuzz/support/network.h"
#include "fuzz/support/require.h"
#include "fuzz/support/server_world.h"
#include "fuzz/support/world.h"
#include "tests/support/media.h"
#include "tests/support/rtsp_text.h"

#include <array>

// A whole server over time: two players that ask in any order, send halves, stop reading, vanish
// and come back, while media is pushed, the clock is set and the stream withdrawn. What comes out
// is made of whole responses and frames, nobody harms the other, and at the end everything is
// given back.
//
// Input: a byte of switches (1 the monitor runs, 2 few clients allowed, 4 all log lines), then
// operations; see Step().

namespace {

constexpr unsigned kMostSteps = 200;
constexpr int64_t kHour = 3600;
constexpr int64_t kYear = 365 * 24 * kHour;
constexpr int64_t kMillisecond = 1000;

/// Longer than anything is held back.
constexpr int64_t kSettle = 6000 * kMillisecond;

class Sequence {
public:
    Sequence(KovaServerWorld *pWorld, const uint8_t *pData, size_t nSize)
        : m_world(*pWorld), m_input(pData, nSize)
    {
        for (KovaFuzzPlayer &player : m_players)
            m_world.Connect(&player);
    }

    void Run()
    {
        for (unsigned n = 0; n < kMostSteps && !m_input.IsEmpty(); n++) {
            Step();
            for (KovaFuzzPlayer &player : m_players)
                player.Read();
        }
    }

    /// Lets everything end by itself.
    void Finish(bool bMonitor)
    {
        for (KovaFuzzPlayer &player : m_players)
            player.LimitServer(-1);
        KovaWorldRun(kSettle);
        for (KovaFuzzPlayer &player : m_players) {
            player.Read();
            RequireAnswer(&player);
            player.Close();
        }
        KovaWorldRun(1000 * kMillisecond);
        KovaRequire(m_world.Handlers() == 0, "a connection that was left is gone");
        if (!bMonitor)
            return;
        KovaWorldSetClock(60 * kYear);
        KovaWorldRun(kSettle);
        KovaRequire(m_world.Sessions() == 0, "sessions expire");
        KovaRequire(m_world.Clients() == 0, "no client outlives its session");
        KovaRequire(KovaNetworkUdpSockets() == 0, "no socket outlives its client");
    }

private:
    /// A connection that lives answers. The answer also shows that a frame was finished before it:
    /// what is left of one that nobody needs any more waits for that.
    static void RequireAnswer(KovaFuzzPlayer *pPlayer)
    {
        if (!pPlayer->IsOpen())
            return;
        pPlayer->TakeResponses();
        pPlayer->Send(KovaRequestText("OPTIONS", "rtsp://127.0.0.1/none", 1));
        KovaWorldRun(kSettle);
        pPlayer->Read();
        if (pPlayer->HasEnded() || pPlayer->IsCut())
            return;
        KovaRequire(pPlayer->TakeResponses().size() == 1, "a connection that lives answers");
        pPlayer->RequireWhole();
    }

    KovaFuzzPlayer &Player()
    {
        return m_players[m_nPlayer];
    }

    /// The ids that this player or the other one was given.
    std::string Session(unsigned nKind)
    {
        const KovaFuzzPlayer &player = m_players[nKind % 2 == 1 ? m_nPlayer : 1 - m_nPlayer];
        if (nKind == 0 || player.sessions.empty())
            return {};
        return nKind <= 2 ? player.sessions.back() : player.sessions.front();
    }

    std::string Request()
    {
        static const char *const kMethods[] = {"OPTIONS", "DESCRIBE",      "SETUP",
                                               "PLAY",    "GET_PARAMETER", "TEARDOWN"};
        static const char *const kTransports[] = {
            "RTP/AVP;unicast;client_port=5000-5001", "RTP/AVP/TCP;unicast;interleaved=0-1",
            "RTP/AVP/TCP;unicast;interleaved=254-255", "RTP/AVP;unicast;client_port", ""};
        const unsigned nMethod = m_input.Byte() % 6;
        const std::string session = Session(m_input.Byte() % 5);
        const unsigned nTransport = m_input.Byte() % 5;
        const unsigned nTrack = m_input.Byte() % 4;
        const std::string url = "rtsp://127.0.0.1/live";
        if (nMethod != 2)
            return KovaRequestText(kMethods[nMethod], url, ++m_nCSeq, session);
        static const char *const kTracks[] = {"/trackID=97", "/trackID=96", "", "/trackID=98"};
        return KovaRequestText("SETUP", url + kTracks[nTrack], ++m_nCSeq, session,
                               KovaTransportLine(kTransports[nTransport]));
    }

    void SendInHalves()
    {
        const std::string request = Request();
        const size_t nCut = request.size() / 2;
        Player().Send(request.substr(0, nCut));
        KovaWorldRun(5 * kMillisecond);
        Player().Send(request.substr(nCut));
    }

    void SetClock()
    {
        static const int64_t kSteps[] = {-kHour, kHour, 50 * kYear, -50 * kYear, 61, 91, 2147};
        const int64_t nStep = kSteps[m_input.Byte() % 7];
        // Not before this library was written, and not beyond what the end of the run sets.
        if (m_nClock + nStep < -kHour || m_nClock + nStep > 51 * kYear)
            return;
        m_nClock += nStep;
        KovaWorldStepClock(nStep);
    }

    void Push()
    {
        const unsigned nKind = m_input.Byte() % 4;
        const size_t nSize = m_input.Word() % 6000;
        m_nPts += m_input.Byte();
        if (nKind == 3)
            m_world.Push(96 + nSize % 2, m_input.Text(nSize % 64), m_nPts);
        else if (nKind == 2)
            m_world.Push(97, KovaTestInterFrame(nSize), m_nPts);
        else
            m_world.Push(nKind == 0 ? 97 : 96,
                         nKind == 0 ? KovaTestKeyFrame(nSize) : KovaTestAacFrame(nSize), m_nPts);
    }

    void SendReport()
    {
        const std::string report = KovaReceiverReport(0);
        switch (m_input.Byte() % 3) {
        case 0:
            Player().Send(KovaInterleaved(1, report));
            break;
        case 1:
            Player().Send(report);
            break;
        default:
            KovaNetworkSendReports();
            break;
        }
    }

    void Reconnect()
    {
        m_world.Connect(&Player());
    }

    void Tick()
    {
        static const int64_t kTicks[] = {0, 1, 20, 300, 1500, 10000, 40000, 2000};
        KovaWorldRun(kTicks[m_input.Byte() % 8] * kMillisecond);
    }

    /// The operation's top bit says which player.
    void Step()
    {
        const uint8_t nOperation = m_input.Byte();
        m_nPlayer = nOperation >> 7;
        switch (nOperation % 128 % 14) {
        case 0:
            Player().Send(Request());
            KovaWorldRun(2 * kMillisecond);
            break;
        case 1: {
            const std::string bytes = m_input.Text(m_input.Byte());
            Player().Send(KovaWithSession(bytes, Session(1)));
            break;
        }
        case 2:
            SendInHalves();
            break;
        case 3:
        case 4:
            Player().Close();
            break;
        case 5:
            Reconnect();
            break;
        case 6:
            SetClock();
            break;
        case 7:
            Push();
            break;
        case 8:
        case 9:
            Tick();
            break;
        case 10:
            Player().LimitServer(Limit());
            break;
        case 11:
            SendReport();
            break;
        case 12:
            if (m_input.Byte() % 2 == 0)
                m_world.Withdraw();
            else
                m_world.Publish();
            break;
        default: {
            const std::string first = Request();
            Player().Send(first + Request());
            break;
        }
        }
    }

    int64_t Limit()
    {
        const uint32_t nBytes = m_input.Word();
        return nBytes == 0xFFFF ? -1 : nBytes % 4096;
    }

    KovaServerWorld &m_world;
    KovaFuzzInput m_input;
    std::array<KovaFuzzPlayer, 2> m_players;
    unsigned m_nPlayer = 0;
    int m_nCSeq = 0;
    uint32_t m_nPts = 1000;
    int64_t m_nClock = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    if (nSize == 0)
        return 0;
    const bool bMonitor = (pData[0] & 1) != 0;
    KovaServerWorld world(bMonitor, (pData[0] & 2) != 0 ? 1 : 64);
    RTSP_SetLogLevel((pData[0] & 4) != 0 ? kLogFigures : kLogOverflow);
    Sequence sequence(&world, pData + 1, nSize - 1);
    sequence.Run();
    sequence.Finish(bMonitor);
    return 0;
}
