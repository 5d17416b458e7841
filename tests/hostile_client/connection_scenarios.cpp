#include "tests/hostile_client/scenarios.h"

#include <array>

namespace {

constexpr char kInterleaved[] = "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
constexpr char kUdp[] = "Transport: RTP/AVP;unicast;client_port=40000-40001\r\n";
constexpr int kSteps = 6;

/// A player that goes as far as so many steps.
void Advance(KovaHostileConnection *pConnection, const KovaHostileTarget &target, int nSteps,
             const char *szTransport)
{
    std::string session;
    if (nSteps > 0)
        pConnection->Ask(KovaHostileRequest("OPTIONS", target));
    if (nSteps > 1)
        pConnection->Ask(KovaHostileRequest("DESCRIBE", target));
    if (nSteps > 2)
        session = "Session: " +
                  KovaHostileSession(pConnection->Ask(
                      KovaHostileRequest("SETUP", target, szTransport, "/trackID=97"))) +
                  "\r\n";
    if (nSteps > 3)
        pConnection->Ask(KovaHostileRequest("PLAY", target, session));
    if (nSteps > 4)
        pConnection->Receive(100);
}

bool ResetAfterEachStep(const KovaHostileTarget &target)
{
    for (const char *szTransport : {kInterleaved, kUdp}) {
        for (int nSteps = 0; nSteps < kSteps; nSteps++) {
            KovaHostileConnection connection(target);
            if (!connection.IsOpen())
                return false;
            Advance(&connection, target, nSteps, szTransport);
            connection.Reset();
        }
    }
    return true;
}

bool ResetAfterAsking(const KovaHostileTarget &target)
{
    for (const char *szMethod : {"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"}) {
        for (unsigned i = 0; i < target.nCount / 5 + 1; i++) {
            KovaHostileConnection connection(target);
            connection.Send(KovaHostileRequest(szMethod, target, kInterleaved, "/trackID=97"));
            connection.Reset();
        }
    }
    return true;
}

bool ConnectAndReset(const KovaHostileTarget &target)
{
    bool bAny = false;
    for (unsigned i = 0; i < target.nCount; i++) {
        KovaHostileConnection connection(target);
        bAny = connection.IsOpen() || bAny;
        connection.Reset();
    }
    return bAny;
}

bool ConnectAndClose(const KovaHostileTarget &target)
{
    bool bAny = false;
    for (unsigned i = 0; i < target.nCount; i++)
        bAny = KovaHostileConnection(target).IsOpen() || bAny;
    return bAny;
}

bool IdleFlood(const KovaHostileTarget &target)
{
    std::vector<KovaHostileConnection> connections;
    for (unsigned i = 0; i < target.nCount; i++)
        connections.emplace_back(target);
    KovaHostileSleep(target.nHoldMilliseconds);
    return !connections.empty() && connections.front().IsOpen();
}

bool HalfClose(const KovaHostileTarget &target)
{
    for (int nSteps = 0; nSteps < kSteps; nSteps++) {
        KovaHostileConnection connection(target);
        if (!connection.IsOpen())
            return false;
        Advance(&connection, target, nSteps, kInterleaved);
        connection.CloseSending();
        connection.Drain(50);
    }
    return true;
}

bool Vanish(const KovaHostileTarget &target)
{
    for (const char *szTransport : {kInterleaved, kUdp}) {
        for (int i = 0; i < 5; i++) {
            KovaHostileConnection connection(target);
            if (!connection.IsOpen())
                return false;
            Advance(&connection, target, kSteps, szTransport);
        }
    }
    return true;
}

} // namespace

const std::vector<KovaHostileScenario> &KovaHostileConnectionScenarios()
{
    static const std::vector<KovaHostileScenario> scenarios = {
        {"reset-after-each-step", "a reset after connecting, OPTIONS, ... and media",
         ResetAfterEachStep},
        {"reset-after-asking", "a reset right behind a request", ResetAfterAsking},
        {"connect-and-reset", "connections that are reset at once", ConnectAndReset},
        {"connect-and-close", "connections that are closed at once", ConnectAndClose},
        {"idle-flood", "many connections that say nothing", IdleFlood},
        {"half-close", "players that close their sending side at every step", HalfClose},
        {"vanish", "players that leave without TEARDOWN", Vanish},
    };
    return scenarios;
}
