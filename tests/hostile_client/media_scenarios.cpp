#include "tests/hostile_client/scenarios.h"
#include "tests/support/rtsp_text.h"

namespace {

std::string Interleaved(const std::string &channels)
{
    return "Transport: RTP/AVP/TCP;unicast;interleaved=" + channels + "\r\n";
}

std::string SessionLine(const std::string &id)
{
    return "Session: " + id + "\r\n";
}

/// A frame on an RTSP connection that says what it likes about its size.
std::string Frame(int nChannel, size_t nClaimed, const std::string &payload)
{
    return KovaInterleaved(nChannel, std::string(nClaimed, '\0')).substr(0, 4) + payload;
}

/// Both tracks on a connection, and PLAY. Returns the session's id.
std::string PlayBoth(KovaHostileConnection *pConnection, const KovaHostileTarget &target)
{
    const std::string id = KovaHostileSession(
        pConnection->Ask(KovaHostileRequest("SETUP", target, Interleaved("0-1"), "/trackID=96")));
    pConnection->Ask(
        KovaHostileRequest("SETUP", target, SessionLine(id) + Interleaved("2-3"), "/trackID=97"));
    pConnection->Send(KovaHostileRequest("PLAY", target, SessionLine(id)));
    return id;
}

bool NeverReads(const KovaHostileTarget &target)
{
    KovaHostileConnection connection;
    if (!connection.Open(target, 2048))
        return false;
    const std::string id = PlayBoth(&connection, target);
    for (unsigned i = 0; i < 10; i++) {
        connection.Send(KovaHostileRequest("GET_PARAMETER", target, SessionLine(id)));
        KovaHostileSleep(target.nHoldMilliseconds / 10);
    }
    connection.Reset();
    return true;
}

bool GarbageFrames(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (int nRound = 0; nRound < 2; nRound++) {
        for (const size_t nClaimed : {0U, 1U, 12U, 32U, 1400U, 65535U}) {
            for (const int nChannel : {0, 1, 2, 255}) {
                connection.Send(Frame(nChannel, nClaimed, KovaReceiverReport(1)));
                KovaHostileSleep(1);
                connection.Send(Frame(nChannel, nClaimed, std::string(nClaimed % 3000, '$')));
                KovaHostileSleep(1);
            }
        }
        connection.Send("$");
        connection.Send("$\1");
        connection.Send(Frame(0, 28, "") + KovaHostileRequest("OPTIONS", target));
        PlayBoth(&connection, target);
    }
    connection.Drain(100);
    return connection.IsOpen();
}

bool ReportStorm(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (unsigned i = 0; i < target.nCount; i++)
        connection.Send(Frame(1, 32, KovaReceiverReport(1)));
    PlayBoth(&connection, target);
    for (unsigned i = 0; i < target.nCount; i++) {
        connection.Send(Frame(1, 32, KovaReceiverReport(1)));
        connection.Send(KovaReceiverReport(1));
    }
    connection.Drain(50);
    return connection.IsOpen();
}

bool ChannelGames(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    std::string id;
    for (const char *szChannels : {"0-1", "0-1", "1-0", "1-2", "255-256", "256-257", "65535-65536",
                                   "99999-1", "-1", "=-", "5", "x-y", "36-36"}) {
        for (const char *szTrack : {"/trackID=96", "/trackID=97", "/trackID=98", "/trackID=9"}) {
            const std::string lines =
                (id.empty() ? std::string() : SessionLine(id)) + Interleaved(szChannels);
            const std::string response =
                connection.Ask(KovaHostileRequest("SETUP", target, lines, szTrack));
            if (id.empty())
                id = KovaHostileSession(response);
        }
    }
    connection.Send(KovaHostileRequest("PLAY", target, SessionLine(id)));
    connection.Drain(static_cast<int>(target.nHoldMilliseconds));
    connection.Ask(KovaHostileRequest("TEARDOWN", target, SessionLine(id)));
    return connection.IsOpen();
}

bool PortGames(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (const char *szPorts : {"0-1", "1-2", "65535-65536", "65536-65537", "99999-1", "-", "5000",
                                "5000-", "x-y", "6970-6971"}) {
        const std::string lines =
            std::string("Transport: RTP/AVP;unicast;client_port=") + szPorts + "\r\n";
        for (const char *szMethod : {"SETUP", "OPTIONS", "DESCRIBE", "PLAY"})
            connection.Ask(KovaHostileRequest(szMethod, target, lines, ""));
        const std::string id = KovaHostileSession(
            connection.Ask(KovaHostileRequest("SETUP", target, lines, "/trackID=97")));
        connection.Ask(KovaHostileRequest("PLAY", target, SessionLine(id)));
        connection.Ask(KovaHostileRequest("TEARDOWN", target, SessionLine(id)));
    }
    return connection.IsOpen();
}

bool SetupFlood(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (unsigned i = 0; i < target.nCount; i++)
        connection.Ask(KovaHostileRequest("SETUP", target, Interleaved("0-1"), "/trackID=97"));
    return connection.IsOpen();
}

bool UdpSetupFlood(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (unsigned i = 0; i < target.nCount; i++)
        connection.Ask(KovaHostileRequest("SETUP", target,
                                          "Transport: RTP/AVP;unicast;client_port=40000-40001\r\n",
                                          "/trackID=97"));
    return connection.IsOpen();
}

bool PlayFlood(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (unsigned i = 0; i < target.nCount; i++)
        connection.Ask(KovaHostileRequest("PLAY", target));
    return connection.IsOpen();
}

} // namespace

const std::vector<KovaHostileScenario> &KovaHostileMediaScenarios()
{
    static const std::vector<KovaHostileScenario> scenarios = {
        {"never-reads", "plays, keeps its session alive, and reads nothing", NeverReads},
        {"garbage-frames", "interleaved frames with wrong sizes, channels and contents",
         GarbageFrames},
        {"report-storm", "receiver reports without and with a session", ReportStorm},
        {"channel-games", "shared, huge and malformed interleaved channels", ChannelGames},
        {"port-games", "impossible and malformed UDP ports, with every method", PortGames},
        {"setup-flood", "many interleaved SETUPs without PLAY", SetupFlood},
        {"udp-setup-flood", "many UDP SETUPs without PLAY", UdpSetupFlood},
        {"play-flood", "PLAY without a session, again and again", PlayFlood},
    };
    return scenarios;
}
