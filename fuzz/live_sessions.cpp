#include "fuzz/support/input.h"
#include "fuzz/support/live_player.h"
#include "fuzz/support/require.h"
#include "tests/support/media.h"

#include <array>

// One loop of the live engine over time, its rounds made by the fuzzer itself: two players on
// connections of theirs ask in any order, stop reading, vanish and come back, send reports of any
// kind, while media is pushed, time passes, streams are removed and players let go. What comes out
// is made of whole answers and frames; no packet is missing that was not counted as late; at the
// end everything is given back.
//
// Input: a byte of switches (1 picture groups are kept, 2 a delay, 4 small queues), then
// operations; see Step().

namespace {

constexpr unsigned kMostSteps = 150;
constexpr uint64_t kMillisecond = 1000;

class Sequence {
public:
    Sequence(const uint8_t *pData, size_t nSize)
        : m_server(pData[0]), m_players{{{&m_server, 0}, {&m_server, 1}}},
          m_input(pData + 1, nSize - 1)
    {}

    void Run()
    {
        for (unsigned nStep = 0; nStep < kMostSteps && !m_input.IsEmpty(); nStep++) {
            Step();
            for (KovaLiveFuzzPlayer &player : m_players)
                player.Read();
            CheckMissing();
        }
        Finish();
    }

private:
    void CheckMissing() const
    {
        for (const KovaLiveFuzzPlayer &player : m_players)
            KovaRequire(player.Missing() <= m_server.AllLate(), "what is missing was late");
    }
    /// With room for everything, a connection that lives answers, and what it got is whole.
    void Finish()
    {
        KovaLiveUdpFull(false);
        for (KovaLiveFuzzPlayer &player : m_players)
            player.Limit(kLiveNoLimit);
        m_server.Run(10 * kMillisecond);
        for (int nRound = 0; nRound < 300; nRound++)
            ReadAll();
        for (KovaLiveFuzzPlayer &player : m_players) {
            if (!player.IsOpen())
                continue;
            KovaRequire(player.IsWhole(), "no frame or answer stays half");
        }
        CheckMissing();
    }
    void ReadAll()
    {
        m_server.Run(kMillisecond);
        for (KovaLiveFuzzPlayer &player : m_players)
            player.Read();
    }
    std::string Request()
    {
        static const char *const kMethods[] = {"OPTIONS",       "DESCRIBE", "SETUP", "SETUP",
                                               "PLAY",          "PLAY",     "PAUSE", "TEARDOWN",
                                               "GET_PARAMETER", "BOGUS"};
        KovaLiveFuzzPlayer &player = m_players[m_nPlayer];
        const unsigned nMethod = m_input.Byte() % 10;
        const unsigned nHow = m_input.Byte();
        const std::string &session =
            (nHow & 32) != 0 ? m_players[1 - m_nPlayer].session : player.session;
        const unsigned nTrack = nHow % 3;
        std::string lines;
        if (nMethod == 2 || nMethod == 3) {
            // Each track of each session gets a port of its own, so that its packets are told
            // apart.
            player.nLastPort = static_cast<uint16_t>(player.Port() + 2 * (m_nCSeq % 40));
            lines =
                KovaTransportLine((nHow & 4) != 0 ? KovaTcpTransport(static_cast<int>(nHow % 4 * 2))
                                                  : KovaUdpTransport(player.nLastPort));
        }
        const std::string url =
            "rtsp://127.0.0.1/live" + (nTrack == 0 ? "" : "/track" + std::to_string(nTrack));
        player.ForgetOrder();
        m_players[1 - m_nPlayer].ForgetOrder();
        return KovaRequestText(kMethods[nMethod], url, ++m_nCSeq, (nHow & 16) != 0 ? "" : session,
                               lines);
    }
    void Push()
    {
        if (m_server.pStream == nullptr)
            return;
        const unsigned nKind = m_input.Byte();
        const size_t nSize = m_input.Word() * 3U + 1;
        m_nPts += m_input.Byte() * 1000;
        const std::string unit = nKind % 4 == 0   ? KovaTestKeyFrame(nSize)
                                 : nKind % 4 == 1 ? KovaTestAacFrame(nSize % 2000 + 1)
                                 : nKind % 4 == 2 ? KovaTestInterFrame(nSize)
                                                  : m_input.Text(nSize % 100);
        KovaLivePush(m_server.pTracks[nKind % 4 == 1 ? 1 : 0], unit.data(), unit.size(), m_nPts);
    }
    void Report()
    {
        KovaLiveFuzzPlayer &player = m_players[m_nPlayer];
        const unsigned nHow = m_input.Byte();
        std::string bytes = KovaReceiverReport(m_input.Long());
        if ((nHow & 1) != 0)
            bytes += std::string("\x81\xCB\0\1\0\0\0\0", 8);
        if ((nHow & 2) != 0)
            bytes += m_input.Text(nHow % 32);
        if ((nHow & 4) != 0)
            player.Send(KovaInterleaved(static_cast<int>(nHow >> 3) % 8, bytes));
        else
            m_server.Report(player.Address(),
                            static_cast<uint16_t>(player.nLastPort + 1 - (nHow >> 3) % 4), bytes);
    }
    void LetGo()
    {
        std::array<KovaLivePlayer, 4> players = {};
        players[0].size = sizeof(players[0]);
        uint32_t nCount = 0;
        KovaLivePlayers(m_server.Live(), players.data(), 4, &nCount);
        if (nCount != 0)
            KovaLiveDisconnect(m_server.Live(), players[0].player);
    }
    void Step()
    {
        static const uint64_t kTicks[] = {0, 1, 20, 300, 1500, 10000, 40000, 2000};
        const uint8_t nOperation = m_input.Byte();
        m_nPlayer = nOperation >> 7;
        KovaLiveFuzzPlayer &player = m_players[m_nPlayer];
        switch (nOperation % 128 % 16) {
        case 0:
        case 1:
        case 2:
            player.Send(Request());
            break;
        case 3: {
            const std::string request = Request() + Request();
            player.Send(request.substr(0, request.size() * (nOperation >> 4 & 7) / 7));
            break;
        }
        case 4:
            player.Send(m_input.Text(m_input.Byte()));
            break;
        case 5:
            player.Close();
            return; // without a round between: the next may come at once
        case 6:
            player.Connect();
            break;
        case 7:
        case 8:
        case 9:
            Push();
            break;
        case 10:
            m_server.Run(kTicks[m_input.Byte() % 8] * kMillisecond);
            break;
        case 11:
            player.Limit(m_input.Byte() % 4 == 0 ? kLiveNoLimit : static_cast<int>(m_input.Word()));
            break;
        case 12:
            Report();
            break;
        case 13:
            if (m_input.Byte() % 4 != 0)
                m_server.Publish();
            else
                m_server.Withdraw();
            break;
        case 14:
            LetGo();
            break;
        default:
            KovaLiveUdpFull(!KovaLiveUdpIsFull());
            break;
        }
        m_server.Run(kMillisecond);
    }

    KovaLiveFuzzServer m_server;
    std::array<KovaLiveFuzzPlayer, 2> m_players;
    KovaFuzzInput m_input;
    unsigned m_nPlayer = 0;
    int m_nCSeq = 0;
    int64_t m_nPts = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    if (nSize == 0)
        return 0;
    KovaLiveNetworkBegin();
    Sequence(pData, nSize).Run();
    return 0;
}
