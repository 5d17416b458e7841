#include "tests/hostile_client/scenarios.h"

#include <array>

namespace {

constexpr std::array<const char *, 6> kMethods = {"OPTIONS", "DESCRIBE",      "SETUP",
                                                  "PLAY",    "GET_PARAMETER", "TEARDOWN"};
constexpr char kInterleaved[] = "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";

bool HalfRequest(const KovaHostileTarget &target)
{
    const std::string request = KovaHostileRequest("DESCRIBE", target);
    for (size_t nSize = 1; nSize < request.size(); nSize += 7) {
        KovaHostileConnection connection(target);
        if (!connection.IsOpen())
            return false;
        connection.Send(request.substr(0, nSize));
        KovaHostileSleep(3);
        if (nSize % 2 == 0)
            connection.Ask(request.substr(nSize));
    }
    return true;
}

bool Pipelined(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    std::string requests;
    for (const char *szMethod : kMethods)
        requests += KovaHostileRequest(szMethod, target, kInterleaved);
    for (unsigned i = 0; i < target.nCount; i++)
        connection.Send(requests);
    connection.Drain(100);
    return connection.IsOpen();
}

bool HugeHeaders(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (const size_t nSize : {7900U, 8100U, 8191U, 8192U, 8193U, 20000U, 65536U}) {
        for (const char *szName : {"User-Agent: ", "Session: ", "Transport: ", "CSeq: "}) {
            const std::string line = szName + std::string(nSize, 'x') + "\r\n";
            connection.Send(KovaHostileRequest("SETUP", target, line, "/trackID=97"));
            connection.Receive(20);
        }
        connection.Send(KovaHostileRequest("OPTIONS", target, {}, std::string(nSize, '/')));
        connection.Receive(20);
    }
    connection.Drain(50);
    return connection.IsOpen();
}

bool EndlessLine(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    const std::string part(65536, 'A');
    for (int i = 0; i < 16 && connection.IsOpen(); i++)
        connection.Send(part);
    connection.Drain(50);
    return connection.IsOpen();
}

bool Binary(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    uint32_t nState = 12345;
    for (unsigned i = 0; i < target.nCount; i++) {
        std::string bytes = i % 3 == 0 ? KovaHostileRequest("SETUP", target) : std::string();
        for (unsigned n = 0; n < 1 + i * 37 % 900; n++) {
            nState = nState * 1103515245 + 12345;
            bytes += static_cast<char>(nState >> 16);
        }
        connection.Send(bytes);
        connection.Receive(2);
    }
    return connection.IsOpen();
}

bool FormatSigns(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    const std::string signs = "%n%s%s%n%x%1000000d%hhn%%";
    for (const char *szMethod : kMethods) {
        connection.Ask(KovaHostileRequest(szMethod, target, "Session: " + signs + "\r\n"));
        connection.Ask(KovaHostileRequest(szMethod, target, {}, signs));
        connection.Ask(signs + " rtsp://" + signs + "/" + signs +
                       " RTSP/1.0\r\nCSeq: %n%n\r\n\r\n");
    }
    return connection.IsOpen();
}

bool SlowLoris(const KovaHostileTarget &target)
{
    KovaHostileConnection connection(target);
    for (const char nByte : KovaHostileRequest("OPTIONS", target)) {
        connection.Send(std::string_view(&nByte, 1));
        KovaHostileSleep(3);
    }
    connection.Drain(20);
    return connection.IsOpen();
}

bool ForeignSession(const KovaHostileTarget &target)
{
    KovaHostileConnection owner(target);
    const std::string id = KovaHostileSession(
        owner.Ask(KovaHostileRequest("SETUP", target, kInterleaved, "/trackID=96")));
    KovaHostileConnection other(target);
    for (const std::string &line :
         {"Session: " + id + "\r\n", std::string("Session: 00000000000\r\n"),
          std::string("Session: \r\n"), std::string("Session:\r\n")}) {
        const std::string lines = line + "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n";
        other.Ask(KovaHostileRequest("SETUP", target, lines, "/trackID=97"));
        other.Ask(KovaHostileRequest("PLAY", target, lines));
        other.Ask(KovaHostileRequest("GET_PARAMETER", target, lines));
    }
    owner.Drain(50);
    other.Drain(50);
    other.Ask(KovaHostileRequest("TEARDOWN", target, "Session: " + id + "\r\n"));
    owner.Ask(KovaHostileRequest("PLAY", target, "Session: " + id + "\r\n"));
    return owner.IsOpen() && other.IsOpen();
}

} // namespace

const std::vector<KovaHostileScenario> &KovaHostileRequestScenarios()
{
    static const std::vector<KovaHostileScenario> scenarios = {
        {"half-request", "requests that stop anywhere, with the rest later or never", HalfRequest},
        {"pipelined", "many requests in one piece", Pipelined},
        {"huge-headers", "headers and paths of 8 to 64 KB", HugeHeaders},
        {"endless-line", "a megabyte without a line end", EndlessLine},
        {"binary", "random bytes, alone and behind requests", Binary},
        {"format-signs", "what printf would act on, in every place", FormatSigns},
        {"slow-loris", "a request byte by byte", SlowLoris},
        {"foreign-session", "requests for another connection's session and invented ones",
         ForeignSession},
    };
    return scenarios;
}
