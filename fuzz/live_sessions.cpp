#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/rtcp_in.h"
#include "live/engine/stream.h"
#include "live/engine/udp_ports.h"
#include "rtp/udp_batch.h"
#include "tests/support/c_calls.h"
#include "tests/support/media.h"
#include "tests/support/rtsp_text.h"

#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>

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
constexpr int kAnyBytes = -1;

uint64_t g_nNow;             // µs, of both clocks
std::map<int, int> g_limits; // bytes that a connection takes yet
bool g_bUdpFull;             // no datagram is taken

/// Sequence numbers of one track of a player, and how many were missing.
struct Order {
    bool bBegun;
    uint16_t nNext;
    uint64_t nMissing;
};
std::map<uint16_t, Order> g_udp; // by the player's port

void CheckPacket(Order *pOrder, const uint8_t *pPacket, size_t nSize)
{
    KovaRequire(nSize > 12 && pPacket[0] == 0x80, "an RTP packet of version 2");
    const uint16_t nSequence = static_cast<uint16_t>(pPacket[2] << 8 | pPacket[3]);
    if (pOrder->bBegun) {
        const uint16_t nStep = static_cast<uint16_t>(nSequence - pOrder->nNext);
        KovaRequire(nStep < 0x8000, "packets come in order");
        pOrder->nMissing += nStep;
    }
    pOrder->bBegun = true;
    pOrder->nNext = static_cast<uint16_t>(nSequence + 1);
}

void TakeDatagram(const void *pAddress, const uint8_t *pPacket, size_t nSize)
{
    sockaddr_in address = {};
    memcpy(&address, pAddress, sizeof(address));
    const uint16_t nPort = ntohs(address.sin_port);
    if (nPort % 2 == 0)
        CheckPacket(&g_udp[nPort], pPacket, nSize);
    else
        KovaRequire(nSize >= 8 && pPacket[1] == 200, "a report begins with the sender's");
}

int ClockGetTime(clockid_t, timespec *pTime)
{
    pTime->tv_sec = static_cast<time_t>(g_nNow / 1000000);
    pTime->tv_nsec = static_cast<long>(g_nNow % 1000000 * 1000);
    return 0;
}

int GetTimeOfDay(timeval *pTime, void *)
{
    pTime->tv_sec = static_cast<time_t>(1700000000 + g_nNow / 1000000);
    pTime->tv_usec = static_cast<suseconds_t>(g_nNow % 1000000);
    return 0;
}

/// How many of so many bytes the connection takes; takes them off.
size_t Allowed(int nSocket, size_t nSize)
{
    const auto entry = g_limits.find(nSocket);
    if (entry == g_limits.end() || entry->second == kAnyBytes)
        return nSize;
    const size_t nAllowed = std::min(nSize, static_cast<size_t>(entry->second));
    entry->second -= static_cast<int>(nAllowed);
    return nAllowed;
}

ssize_t Send(int nSocket, const void *pBytes, size_t nSize, int nFlags)
{
    const size_t nAllowed = Allowed(nSocket, nSize);
    if (nAllowed != 0)
        return __real_send(nSocket, pBytes, nAllowed, nFlags);
    errno = EAGAIN;
    return -1;
}

ssize_t SendTo(int, const void *pBytes, size_t nSize, int, const sockaddr *pAddress, socklen_t)
{
    if (g_bUdpFull) {
        errno = EAGAIN;
        return -1;
    }
    TakeDatagram(pAddress, static_cast<const uint8_t *>(pBytes), nSize);
    return static_cast<ssize_t>(nSize);
}

ssize_t SendMessage(int nSocket, const msghdr *pMessage, int nFlags)
{
    std::string bytes;
    for (size_t nPart = 0; nPart < pMessage->msg_iovlen; nPart++)
        bytes.append(static_cast<const char *>(pMessage->msg_iov[nPart].iov_base),
                     pMessage->msg_iov[nPart].iov_len);
    if (pMessage->msg_name != nullptr)
        return SendTo(nSocket, bytes.data(), bytes.size(), nFlags,
                      static_cast<const sockaddr *>(pMessage->msg_name), pMessage->msg_namelen);
    return Send(nSocket, bytes.data(), bytes.size(), nFlags);
}

int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    for (unsigned nMessage = 0; nMessage < nCount; nMessage++) {
        const ssize_t nSent = SendMessage(nSocket, &pMessages[nMessage].msg_hdr, nFlags);
        if (nSent < 0)
            return nMessage != 0 ? static_cast<int>(nMessage) : -1;
        pMessages[nMessage].msg_len = static_cast<unsigned>(nSent);
    }
    return static_cast<int>(nCount);
}

/// Nothing here cuts a message into datagrams.
int GetOption(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize)
{
    if (nLevel != IPPROTO_UDP)
        return __real_getsockopt(nSocket, nLevel, nName, pValue, pSize);
    errno = ENOPROTOOPT;
    return -1;
}

void LeadCalls()
{
    KovaReplaceCall<__real_clock_gettime>(ClockGetTime);
    KovaReplaceCall<__real_gettimeofday>(GetTimeOfDay);
    KovaReplaceCall<__real_send>(Send);
    KovaReplaceCall<__real_sendto>(SendTo);
    KovaReplaceCall<__real_sendmsg>(SendMessage);
    KovaReplaceCall<__real_sendmmsg>(SendMany);
    KovaReplaceCall<__real_getsockopt>(GetOption);
    KovaUdpBatchForget();
}

/// A server with one loop that has no thread and listens to nobody.
class Server {
public:
    explicit Server(uint8_t nSwitches)
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
    ~Server()
    {
        Withdraw();
        KovaLoopEndAll(Loop());
        KovaRequire(m_live.nSessions == 0 && m_live.nConnections == 0, "nobody is left");
        KovaLoopDestroy(Loop());
        close(m_live.nListener);
        KovaMutexDestroy(&m_live.streamsMutex);
        KovaMutexDestroy(&m_live.numberMutex);
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

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
        g_nNow += nTime;
        for (int nRound = 0; nRound < 3; nRound++)
            KovaLoopRound(Loop(), 0);
    }
    /// Takes one end of a connection, from an address of its own.
    void Take(int nSocket, uint32_t nAddress)
    {
        Loop()->nLoad++;
        m_live.nConnections++;
        KovaMutexLock lock(&Loop()->mutex, kRankLiveLoop);
        KovaConnectionTake(Loop(), nSocket);
        sockaddr_in peer = {};
        peer.sin_family = AF_INET;
        peer.sin_addr.s_addr = htonl(nAddress);
        peer.sin_port = htons(1234);
        Loop()->pConnections->peer = peer;
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

/// One player: its end of the connection, and what it understood of what came.
class Player {
public:
    Player(Server *pServer, unsigned nNumber)
        : m_server(*pServer), m_nAddress(INADDR_LOOPBACK + nNumber),
          m_nPort(static_cast<uint16_t>(4000 + 100 * nNumber))
    {
        Connect();
    }
    ~Player()
    {
        Close();
    }
    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    void Connect()
    {
        Close();
        int ends[2];
        KovaRequire(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
                    "a connection");
        m_nSocket = ends[0];
        m_nServer = ends[1];
        g_limits[m_nServer] = kAnyBytes;
        m_server.Take(m_nServer, m_nAddress);
    }
    void Close()
    {
        if (m_nSocket < 0)
            return;
        close(m_nSocket);
        m_nSocket = -1;
        m_input.clear();
        m_orders.clear();
    }
    void Limit(int nBytes)
    {
        if (m_nSocket >= 0)
            g_limits[m_nServer] = nBytes;
    }
    void Send(const std::string &bytes) const
    {
        if (m_nSocket < 0)
            return;
        const ssize_t nSent =
            __real_send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        (void)nSent;
    }
    /// Takes all that is there apart.
    void Read()
    {
        char bytes[65536];
        ssize_t nGot = 0;
        while (m_nSocket >= 0 &&
               (nGot = __real_recv(m_nSocket, bytes, sizeof(bytes), MSG_DONTWAIT)) > 0)
            m_input.append(bytes, static_cast<size_t>(nGot));
        for (;;) {
            const KovaRtspPiece piece = KovaFirstPiece(m_input);
            if (piece.nSize == 0)
                break;
            if (piece.nChannel < 0)
                TakeAnswer(std::string(piece.bytes));
            else if (piece.bytes.size() > 1 && (piece.bytes[1] & 0x7F) >= 96)
                CheckPacket(&m_orders[piece.nChannel],
                            reinterpret_cast<const uint8_t *>(piece.bytes.data()),
                            piece.bytes.size());
            else
                KovaRequire(piece.bytes.size() >= 8 && static_cast<uint8_t>(piece.bytes[1]) == 200,
                            "a frame that is no packet is a report");
            m_input.erase(0, piece.nSize);
        }
        KovaRequire(m_input.empty() || m_input[0] == '$' || KovaBeginsResponse(m_input),
                    "only answers and frames come");
        if (nGot == 0)
            Close();
    }
    /// Sequence numbers may go on elsewhere behind what is asked now.
    void ForgetOrder()
    {
        for (unsigned nTrack = 0; nTrack < 40; nTrack++)
            g_udp.erase(static_cast<uint16_t>(m_nPort + 2 * nTrack));
    }
    uint64_t Missing() const
    {
        uint64_t nMissing = 0;
        for (const auto &entry : m_orders)
            nMissing = std::max(nMissing, entry.second.nMissing);
        for (unsigned nTrack = 0; nTrack < 40; nTrack++) {
            const auto entry = g_udp.find(static_cast<uint16_t>(m_nPort + 2 * nTrack));
            if (entry != g_udp.end())
                nMissing = std::max(nMissing, entry->second.nMissing);
        }
        return nMissing;
    }
    bool IsOpen() const
    {
        return m_nSocket >= 0;
    }
    bool IsWhole() const
    {
        return m_input.empty();
    }
    unsigned Answers() const
    {
        return m_nAnswers;
    }
    uint16_t Port() const
    {
        return m_nPort;
    }
    uint32_t Address() const
    {
        return m_nAddress;
    }
    std::string session;
    uint16_t nLastPort = 1; ///< that was set up

private:
    void TakeAnswer(const std::string &text)
    {
        const KovaTestResponse answer = KovaReadResponse(text);
        KovaRequire(answer.bComplete && answer.nStatus >= 200, "an answer is whole");
        m_nAnswers++;
        if (!answer.Session().empty())
            session = answer.Session();
        // A pause, or a new beginning.
        for (auto &entry : m_orders)
            entry.second.bBegun = false;
    }

    Server &m_server;
    uint32_t m_nAddress;
    uint16_t m_nPort;
    int m_nSocket = -1;
    int m_nServer = -1;
    unsigned m_nAnswers = 0;
    std::string m_input;
    std::map<int, Order> m_orders;
};

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
            for (Player &player : m_players)
                player.Read();
            CheckMissing();
        }
        Finish();
    }

private:
    void CheckMissing() const
    {
        for (const Player &player : m_players)
            KovaRequire(player.Missing() <= m_server.AllLate(), "what is missing was late");
    }
    /// With room for everything, a connection that lives answers, and what it got is whole.
    void Finish()
    {
        g_bUdpFull = false;
        for (Player &player : m_players)
            player.Limit(kAnyBytes);
        m_server.Run(10 * kMillisecond);
        for (int nRound = 0; nRound < 8; nRound++)
            ReadAll();
        for (Player &player : m_players) {
            if (!player.IsOpen())
                continue;
            KovaRequire(player.IsWhole(), "no frame or answer stays half");
        }
        CheckMissing();
    }
    void ReadAll()
    {
        m_server.Run(kMillisecond);
        for (Player &player : m_players)
            player.Read();
    }
    std::string Request()
    {
        static const char *const kMethods[] = {"OPTIONS",       "DESCRIBE", "SETUP", "SETUP",
                                               "PLAY",          "PLAY",     "PAUSE", "TEARDOWN",
                                               "GET_PARAMETER", "BOGUS"};
        Player &player = m_players[m_nPlayer];
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
        Player &player = m_players[m_nPlayer];
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
        Player &player = m_players[m_nPlayer];
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
            player.Limit(m_input.Byte() % 4 == 0 ? kAnyBytes : static_cast<int>(m_input.Word()));
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
            g_bUdpFull = !g_bUdpFull;
            break;
        }
        m_server.Run(kMillisecond);
    }

    Server m_server;
    std::array<Player, 2> m_players;
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
    LeadCalls();
    g_nNow = 1000000;
    g_limits.clear();
    g_udp.clear();
    g_bUdpFull = false;
    Sequence(pData, nSize).Run();
    return 0;
}
