#include "classic/rtsp/server_ports.h"

#include "system_shims.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>

#include <cerrno>

namespace {

constexpr int kPairs = (65533 - 6970) / 2 + 1;
constexpr uint16_t kUnset = 4711;

decltype(&__real_bind) g_pfnJudge; // whether a bind() fails

int BindAnywhere(int nSocket, const sockaddr *, socklen_t)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    return g_pfnJudge(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
}

/// No port is taken while it lives: other programs of this machine have the same ones.
class EveryPortFree {
public:
    EveryPortFree()
    {
        g_pfnJudge = KovaStandIn<__real_bind>;
        KovaReplaceCall<__real_bind>(BindAnywhere);
    }
    ~EveryPortFree()
    {
        KovaReplaceCall<__real_bind>(nullptr);
    }
    EveryPortFree(const EveryPortFree &) = delete;
    EveryPortFree &operator=(const EveryPortFree &) = delete;
};

/// A search that finds nothing because calls fail.
struct FruitlessSearch {
    uint16_t nRtpPort = kUnset;
    uint16_t nRtcpPort = kUnset;
    int32_t nRtpSocket = -77;
    int32_t nRtcpSocket = -77;
    int nFailed = 0;

    FruitlessSearch(KovaShimmedCall call, int nError, int nGood = 0)
    {
        const KovaFailingCall failing(call, nError, nGood);
        const EveryPortFree free;
        GetServerPort(5000, 5001, &nRtpPort, &nRtcpPort, &nRtpSocket, &nRtcpSocket);
        nFailed = failing.Failed();
        EXPECT_EQ(nRtpPort, kUnset) << nError;
        EXPECT_EQ(nRtcpPort, kUnset) << nError;
    }
};

/// The number of a socket that was opened, and has been closed again.
bool IsClosedNumber(int32_t nSocket)
{
    return nSocket > 0 && fcntl(nSocket, F_GETFD) == -1;
}

constexpr int kShortages[] = {EMFILE, ENFILE, ENOBUFS, ENOMEM};

TEST(ServerPortsShortage, EndsTheSearchAtTheFirstSocket)
{
    for (const int nError : kShortages) {
        const FruitlessSearch search(kShimSocket, nError);
        EXPECT_EQ(search.nFailed, 1) << nError;
        EXPECT_EQ(search.nRtpSocket, -1) << nError;
        EXPECT_EQ(search.nRtcpSocket, -77) << nError;
    }
}

TEST(ServerPortsShortage, EndsTheSearchAtTheSecondSocket)
{
    for (const int nError : kShortages) {
        const FruitlessSearch search(kShimSocket, nError, 1);
        EXPECT_EQ(search.nFailed, 1) << nError;
        EXPECT_TRUE(IsClosedNumber(search.nRtpSocket)) << nError;
        EXPECT_EQ(search.nRtcpSocket, -1) << nError;
    }
}

TEST(ServerPortsShortage, EndsTheSearchAtABind)
{
    for (const int nError : kShortages) {
        const FruitlessSearch first(kShimBind, nError);
        EXPECT_EQ(first.nFailed, 1) << nError;
        EXPECT_TRUE(IsClosedNumber(first.nRtpSocket)) << nError;
        EXPECT_EQ(first.nRtcpSocket, -77) << nError;
        const FruitlessSearch second(kShimBind, nError, 1);
        EXPECT_EQ(second.nFailed, 1) << nError;
        EXPECT_TRUE(IsClosedNumber(second.nRtpSocket)) << nError;
        EXPECT_TRUE(IsClosedNumber(second.nRtcpSocket)) << nError;
    }
}

TEST(ServerPortsShortage, OtherErrorsLeadToTheNextPair)
{
    for (const int nError : {EADDRINUSE, EACCES}) {
        const FruitlessSearch search(kShimBind, nError);
        EXPECT_EQ(search.nFailed, kPairs) << nError;
        EXPECT_TRUE(IsClosedNumber(search.nRtpSocket)) << nError;
    }
    EXPECT_EQ(FruitlessSearch(kShimSocket, EACCES).nFailed, kPairs);
}

} // namespace
