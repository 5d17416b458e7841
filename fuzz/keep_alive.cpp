#include "classic/rtsp/keep_alive.h"
#include "classic/rtsp/server_calls.h"
#include "classic/server/server.h"
#include "classic/server/session_registry.h"
#include "fuzz/support/input.h"
#include "fuzz/support/player.h"
#include "fuzz/support/require.h"
#include "fuzz/support/world.h"

#include <cstring>
#include <memory>

// What is taken for a keep-alive, and what it does to the session.
//
// Input: a byte for what the connection knows (0 no session, 1 a living one, 2 one that is gone),
// then the chunk.

namespace {

constexpr int32_t kRequest = 0;
constexpr int32_t kTaken = 13;
constexpr int32_t kRefreshed = 14;
constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";

void Run(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler, unsigned nKnows,
         const std::vector<uint8_t> &bytes)
{
    char szSessionId[kSessionIdSize] = {};
    KovaRequire(AddNewRtspSession(pServer, szSessionId, kSessionTimeout) == 0, "a session is made");
    const KovaRtspSession *pSession = KovaRtspServerGetSessionBySessionId(pServer, szSessionId);
    if (nKnows != 0)
        KovaHandlerSetSessionId(pHandler, nKnows == 1 ? szSessionId : "no session");
    const int32_t tExpire = pSession->tExpire;
    KovaWorldStepClock(7);

    const std::unique_ptr<uint8_t[]> pBytes(new uint8_t[bytes.size()]);
    if (!bytes.empty())
        memcpy(pBytes.get(), bytes.data(), bytes.size());
    const int32_t nResult =
        HandleRtspTcpKeepAlive(pHandler, pBytes.get(), static_cast<int32_t>(bytes.size()));

    const std::string chunk(bytes.begin(), bytes.end());
    const bool bSilent = KovaIsSilent(chunk, nKnows != 0);
    const bool bReport = bSilent && !KovaIsSilent(chunk, false);
    const int32_t nExpected = !bSilent ? kRequest : bReport && nKnows == 1 ? kRefreshed : kTaken;
    KovaRequire(nResult == nExpected, "RTCP is told from requests");
    KovaRequire(pSession->tExpire == (nExpected == kRefreshed ? tExpire + 7 + 30 : tExpire),
                "only a report refreshes the session");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    const unsigned nKnows = input.Byte() % 3;
    const std::vector<uint8_t> bytes = input.Rest();
    KovaWorldBegin();
    KovaRtspServer *pServer = KovaRtspServerCreate(kLoopback, 554, 1);
    {
        KovaFuzzPlayer player;
        KovaRtspServerHandler *pHandler =
            KovaRtspServerHandlerCreate(pServer, player.Connect(), {});
        Run(pServer, pHandler, nKnows, bytes);
        KovaRtspServerHandlerDestroy(pHandler);
    }
    KovaRtspServerDestroy(pServer);
    KovaWorldEnd();
    return 0;
}
