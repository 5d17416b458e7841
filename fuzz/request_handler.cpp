#include "classic/rtsp/request_handler.h"
#include "fuzz/support/input.h"
#include "fuzz/support/network.h"
#include "fuzz/support/require.h"
#include "fuzz/support/server_world.h"
#include "fuzz/support/world.h"

#include <cstring>
#include <memory>

// One chunk, whatever it holds, to the whole request handling of a live server: there is one
// response of a known form or, for RTCP, none; and everything that it opened is given back.
//
// Input: one byte of switches, then the chunk. The byte 1 stands for the id of a session.

namespace {

enum Switch : uint8_t {
    kMonitor = 1,
    kHasSession = 2, ///< a session with two tracks, one over UDP
    kPlays = 4,
    kKnowsSession = 8, ///< the connection has named the session
    kPortsTaken = 16,
    kServerFull = 32,
    kFullConnection = 64,
};

constexpr char kSetup[] = "SETUP rtsp://127.0.0.1/live/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                          "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n\r\n";
constexpr char kSecondSetup[] =
    "SETUP rtsp://127.0.0.1/live/trackID=96 RTSP/1.0\r\nCSeq: 2\r\nSession: \1\r\n"
    "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n";
constexpr char kPlay[] = "PLAY rtsp://127.0.0.1/live RTSP/1.0\r\nCSeq: 3\r\nSession: \1\r\n\r\n";
constexpr char kAlive[] =
    "GET_PARAMETER rtsp://127.0.0.1/live RTSP/1.0\r\nCSeq: 4\r\nSession: \1\r\n\r\n";

/// A handler without a thread and its player.
class Connection {
public:
    explicit Connection(KovaRtspServer *pServer)
    {
        m_nSocket = player.Connect();
        m_pHandler = KovaRtspServerHandlerCreate(pServer, m_nSocket, {});
        KovaRequire(m_pHandler != nullptr, "a handler can be made");
    }
    ~Connection()
    {
        KovaRtspServerHandlerDestroy(m_pHandler);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void Handle(const std::string &chunk)
    {
        // A copy of its own, so that reading behind it is seen.
        const std::unique_ptr<uint8_t[]> pBytes(new uint8_t[chunk.size()]);
        memcpy(pBytes.get(), chunk.data(), chunk.size());
        KovaRequire(
            HandleRtspRequest(m_pHandler, pBytes.get(), static_cast<int32_t>(chunk.size())) == 0,
            "a request of a working connection is handled");
        player.Read();
    }
    void HandleKnown(const char *szRequest)
    {
        const std::string session = player.sessions.empty() ? "" : player.sessions.front();
        Handle(KovaWithSession(szRequest, session));
        const std::vector<std::string> responses = player.TakeResponses();
        KovaRequire(responses.size() == 1 && responses[0].rfind("RTSP/1.0 200 OK\r\n", 0) == 0,
                    "a good request is answered with 200");
    }
    bool KnowsSession() const
    {
        return m_pHandler->szSessionId[0] != '\0';
    }
    int Socket() const
    {
        return m_nSocket;
    }

    KovaFuzzPlayer player;

private:
    int m_nSocket;
    KovaRtspServerHandler *m_pHandler;
};

/// Whether the request names a session, the way sessions are looked for, that is not this one.
bool NamesOther(const std::string &chunk, const std::string &session)
{
    const std::string text = chunk.substr(0, chunk.find('\0'));
    const size_t nName = text.find("Session");
    if (nName == std::string::npos)
        return false;
    size_t nEnd = text.find('\r', nName);
    if (nEnd == std::string::npos)
        nEnd = text.find('\n', nName);
    if (nEnd == std::string::npos)
        return false;
    const size_t nBlank = text.find(' ', nName + 1);
    return nBlank > nEnd || session.empty() ||
           text.substr(nBlank + 1, nEnd - nBlank - 1) != session;
}

void CheckResponses(const std::vector<std::string> &responses, bool bSilent, bool bOther)
{
    KovaRequire(responses.size() == (bSilent ? 0 : 1), "one chunk, one response");
    if (bOther && !bSilent)
        KovaRequire(responses[0].rfind("RTSP/1.0 4", 0) == 0,
                    "a request with another session is refused");
}

void Run(KovaServerWorld *pWorld, uint8_t nSwitches, const std::string &bytes)
{
    Connection owner(pWorld->Server());
    Connection connection(pWorld->Server());
    if ((nSwitches & kHasSession) != 0) {
        owner.HandleKnown(kSetup);
        connection.player.sessions = owner.player.sessions;
        owner.HandleKnown(kSecondSetup);
        KovaRequire(pWorld->Clients() == 2, "two tracks are two clients");
        if ((nSwitches & kPlays) != 0)
            owner.HandleKnown(kPlay);
        if ((nSwitches & kKnowsSession) != 0)
            connection.HandleKnown(kAlive);
    }
    if ((nSwitches & kServerFull) != 0)
        pWorld->Server()->nMaxClient = pWorld->Stream()->nClientCount;
    if ((nSwitches & kFullConnection) != 0)
        KovaNetworkLimit(connection.Socket(), 100);
    const std::string session = owner.player.sessions.empty() ? "" : owner.player.sessions.front();
    std::string chunk = KovaWithSession(bytes, session);
    chunk.resize(chunk.size() < kRequestSize ? chunk.size() : kRequestSize);

    const bool bSilent = KovaIsSilent(chunk, connection.KnowsSession());
    const unsigned nSessions = pWorld->Sessions();
    connection.Handle(chunk);
    if ((nSwitches & kFullConnection) == 0) {
        CheckResponses(connection.player.TakeResponses(), bSilent, NamesOther(chunk, session));
        connection.player.RequireWhole();
    }
    KovaRequire(pWorld->Sessions() <= nSessions + 1, "a request makes one session at most");
    KovaRequire(KovaNetworkUdpSockets() <= 2 * pWorld->Clients(),
                "sockets that no client took are closed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    const uint8_t nSwitches = input.Byte();
    const std::vector<uint8_t> bytes = input.Rest();
    KovaServerWorld world((nSwitches & kMonitor) != 0, 64);
    if ((nSwitches & kPortsTaken) != 0)
        KovaNetworkTakePorts(3);
    Run(&world, nSwitches, std::string(bytes.begin(), bytes.end()));
    return 0;
}
