#include "classic/rtsp/server_calls.h"
#include "classic/server/handler_registry.h"
#include "classic/server/session_registry.h"
#include "classic/server/stream_registry.h"
#include "system_shims.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

struct ServerRegistry : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();
};

TEST_F(ServerRegistry, SessionsAreFoundByTheirExactId)
{
    KovaRtspSession *pFirst = host.AddSession("abc");
    host.AddSession("abc");
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, "abc"), pFirst);
    for (const char *szOther : {"ABC", "ab", "abcd", "", "123456789012345"}) {
        EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, szOther), nullptr) << szOther;
        EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, szOther), 0) << szOther;
    }
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, "abc"), 1);
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(nullptr, "abc"), nullptr);
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, nullptr), nullptr);
    EXPECT_EQ(KovaRtspServerIsSessionExist(nullptr, "abc"), 0);
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, nullptr), 0);
}

TEST_F(ServerRegistry, SessionsAreAddedAndRemoved)
{
    KovaRtspSession *pFirst = host.AddSession("first");
    host.AddSession("second");
    EXPECT_EQ(KovaRtspServerAddSession(nullptr, pFirst), 2);
    EXPECT_EQ(KovaRtspServerAddSession(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveSession(nullptr, pFirst), 2);
    EXPECT_EQ(KovaRtspServerRemoveSession(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveSession(pServer, pFirst), 0);
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, "first"), 0);
    EXPECT_STREQ(pFirst->szSessionId, "first");
    KovaRtspSessionDestroy(pFirst);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "second"), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "second"), 5);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(nullptr, "second"), 2);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, nullptr), 2);
    host.AddSession("third");
    host.AddSession("fourth");
    KovaRtspServerRemoveAllSession(pServer);
    EXPECT_EQ(pServer->pSessionList, nullptr);
    KovaRtspServerRemoveAllSession(nullptr);
}

TEST_F(ServerRegistry, SessionsThatSomebodyElseListedAreFoundAndRemoved)
{
    KovaRtspSession *pFirst = host.AddSession("first");
    char szId[kSessionIdSize] = "second";
    KovaRtspSession *pSecond = KovaRtspSessionCreate(szId, 60);
    pServer->pSessionList = KovaListAppend(pServer->pSessionList, nullptr);
    pServer->pSessionList = KovaListAppend(pServer->pSessionList, pSecond);
    KovaRtspSession *pThird = host.AddSession("third");
    host.AddSession("second");
    EXPECT_EQ(KovaListLength(pServer->pSessionList), 5U);
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, "first"), pFirst);
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, "second"), pSecond);
    EXPECT_EQ(KovaRtspServerGetSessionBySessionId(pServer, "third"), pThird);
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, "nobody"), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "first"), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "second"), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "second"), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, "second"), 5);
    EXPECT_EQ(KovaListLength(pServer->pSessionList), 2U);
}

TEST_F(ServerRegistry, UpdateMovesTheExpiry)
{
    KovaFakeClock clock;
    clock.Fix(5000LL * 1000000);
    const KovaRtspSession *pSession = host.AddSession("first", 60);
    const KovaRtspSession *pOther = host.AddSession("second", 7);
    EXPECT_EQ(pSession->tExpire.load(), 5060);
    clock.Fix(6000LL * 1000000 + 999999);
    EXPECT_EQ(KovaRtspServerUpdateSession(pServer, "first"), 0);
    EXPECT_EQ(pSession->tExpire.load(), 6090);
    EXPECT_EQ(pOther->tExpire.load(), 5007);
    EXPECT_EQ(KovaRtspServerUpdateSession(pServer, "second"), 0);
    EXPECT_EQ(pOther->tExpire.load(), 6037);
    EXPECT_EQ(KovaRtspServerUpdateSession(pServer, "third"), 5);
    EXPECT_EQ(KovaRtspServerUpdateSession(nullptr, "first"), 2);
    EXPECT_EQ(KovaRtspServerUpdateSession(pServer, nullptr), 2);
}

TEST_F(ServerRegistry, DrawnIdsAreUnique)
{
    const KovaFixedRand random({7});
    char szFirst[kSessionIdSize] = "";
    char szSecond[kSessionIdSize] = "";
    EXPECT_EQ(AddNewRtspSession(pServer, szFirst, 60), 0);
    EXPECT_EQ(AddNewRtspSession(pServer, szSecond, 60), 0);
    EXPECT_STREQ(szFirst, "77777777777");
    EXPECT_STRNE(szSecond, "77777777777");
    EXPECT_EQ(strspn(szSecond, "0123456789"), 11U) << szSecond;
    EXPECT_EQ(KovaListLength(pServer->pSessionList), 2U);
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, szSecond), 1);
}

TEST_F(ServerRegistry, AGeneratorThatRepeatsItselfStillGivesUniqueIds)
{
    const KovaFixedRand random({9});
    std::set<std::string> ids;
    for (int n = 0; n < 5; n++) {
        char szId[kSessionIdSize] = "";
        EXPECT_EQ(AddNewRtspSession(pServer, szId, 60), 0);
        EXPECT_EQ(strspn(szId, "0123456789"), 11U) << szId;
        ids.insert(szId);
    }
    EXPECT_EQ(ids.size(), 5U);
}

TEST_F(ServerRegistry, StreamsAreFoundByTheirExactUri)
{
    KovaRtspStreamer *pStreamer = host.AddStream("live/cam");
    EXPECT_EQ(KovaRtspServerGetStreamerByUri(pServer, "live/cam"), pStreamer);
    for (const char *szOther : {"Live/cam", "live", "live/cam/", ""}) {
        EXPECT_EQ(KovaRtspServerGetStreamerByUri(pServer, szOther), nullptr) << szOther;
        EXPECT_EQ(KovaRtspServerIsUriExist(pServer, szOther), 0) << szOther;
    }
    EXPECT_EQ(KovaRtspServerIsUriExist(pServer, "live/cam"), 1);
    EXPECT_EQ(KovaRtspServerIsUriExist(nullptr, "live/cam"), 0);
    EXPECT_EQ(KovaRtspServerIsUriExist(pServer, nullptr), 0);
    EXPECT_EQ(KovaRtspServerGetStreamerByUri(nullptr, "live/cam"), nullptr);
    EXPECT_EQ(KovaRtspServerGetStreamerByUri(pServer, nullptr), nullptr);
}

TEST_F(ServerRegistry, UrisArePublishedOnce)
{
    ASSERT_NE(KovaRtspServerAddUri(pServer, "live"), nullptr);
    EXPECT_EQ(KovaRtspServerAddUri(pServer, "live"), nullptr);
    EXPECT_EQ(capture.Text(), "KovaRtspStreamerCreate, The Uri is existed !!!\n");
    EXPECT_EQ(KovaListLength(pServer->pStreamerList), 1U);
    EXPECT_EQ(KovaRtspServerRemoveUri(pServer, "live"), 0);
    EXPECT_EQ(KovaRtspServerRemoveUri(pServer, "live"), 1);
    EXPECT_EQ(KovaRtspServerRemoveUri(nullptr, "live"), 2);
    EXPECT_EQ(KovaRtspServerRemoveUri(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerAddUri(nullptr, "live"), nullptr);
    EXPECT_EQ(KovaRtspServerAddUri(pServer, nullptr), nullptr);
    EXPECT_EQ(KovaRtspServerAddUri(pServer, std::string(1025, 'u').c_str()), nullptr);
}

TEST_F(ServerRegistry, StreamsAreAddedAndRemoved)
{
    KovaRtspStreamer *pFirst = host.AddStream("first");
    host.AddStream("second");
    EXPECT_EQ(KovaRtspServerAddStreamer(nullptr, pFirst), 2);
    EXPECT_EQ(KovaRtspServerAddStreamer(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveStreamer(nullptr, pFirst), 2);
    EXPECT_EQ(KovaRtspServerRemoveStreamer(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveStreamer(pServer, pFirst), 0);
    EXPECT_EQ(KovaRtspServerIsUriExist(pServer, "first"), 0);
    EXPECT_EQ(pFirst->nAudioPackerState.load(), 2U) << "unlinked, not destroyed";
    EXPECT_EQ(KovaRtspServerAddStreamer(pServer, pFirst), 0);
    EXPECT_EQ(pServer->pStreamerList->next->data, pFirst);
    KovaRtspServerRemoveAllStreamer(pServer);
    EXPECT_EQ(pServer->pStreamerList, nullptr);
    KovaRtspServerRemoveAllStreamer(nullptr);
}

TEST_F(ServerRegistry, ClientsOfAllStreamsAreCounted)
{
    EXPECT_EQ(KovaRtspServerGetCurrentClientCount(nullptr), 0);
    EXPECT_EQ(KovaRtspServerGetCurrentClientCount(pServer), 0);
    host.AddStream("first")->nClientCount = 5;
    host.AddStream("second")->nClientCount = 7;
    host.AddStream("third")->nClientCount = -1;
    EXPECT_EQ(KovaRtspServerGetCurrentClientCount(pServer), 11);
}

TEST_F(ServerRegistry, HandlersAreFoundByTheirSession)
{
    KovaRtspServerHandler *handlers[3];
    for (KovaRtspServerHandler *&pHandler : handlers) {
        pHandler = KovaRtspServerHandlerCreate(pServer, socket(AF_INET, SOCK_STREAM, 0), {});
        ASSERT_NE(pHandler, nullptr);
        ASSERT_EQ(KovaRtspServerAddServerHandler(pServer, pHandler), 0);
    }
    KovaHandlerSetSessionId(handlers[1], "12345678901");
    KovaHandlerSetSessionId(handlers[2], "12345678901");
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(pServer, "12345678901"), handlers[1]);
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(pServer, "1234567890"), nullptr);
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(nullptr, "12345678901"), nullptr);
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(pServer, nullptr), nullptr);
    EXPECT_EQ(KovaRtspServerAddServerHandler(nullptr, handlers[0]), 2);
    EXPECT_EQ(KovaRtspServerAddServerHandler(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveServerHandler(nullptr, handlers[0]), 2);
    EXPECT_EQ(KovaRtspServerRemoveServerHandler(pServer, nullptr), 2);
    EXPECT_EQ(KovaRtspServerRemoveServerHandler(pServer, handlers[1]), 0);
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(pServer, "12345678901"), handlers[2]);
    EXPECT_EQ(KovaRtspServerHandlerDestroy(handlers[1]), 0);
    KovaRtspServerRemoveAllServerHandler(pServer);
    EXPECT_EQ(pServer->pHandlerList, nullptr);
    KovaRtspServerRemoveAllServerHandler(nullptr);
}

/// The status record as bytes, with the type in front.
std::vector<uint8_t> Status(KovaRtspStreamer *pStreamer, uint32_t nType, int32_t nExpected)
{
    std::vector<uint8_t> bytes(12, 0xEE);
    memcpy(bytes.data(), &nType, 4);
    alignas(KovaRtspStatus) uint8_t record[12];
    memcpy(record, bytes.data(), 12);
    EXPECT_EQ(KovaRtspServerGetStatus(pStreamer, reinterpret_cast<KovaRtspStatus *>(record)),
              nExpected);
    return std::vector<uint8_t>(record + 4, record + 12);
}

TEST_F(ServerRegistry, StatusRecordHoldsTheFigure)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    pStreamer->nClientCount = 0x01020304;
    pStreamer->nAveThroughput = 0x1112131415161718;
    pStreamer->nServerStatus = 3;
    using Bytes = std::vector<uint8_t>;
    EXPECT_EQ(Status(pStreamer, 1, 0), (Bytes{4, 3, 2, 1, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Status(pStreamer, 2, 0), (Bytes{0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11}));
    EXPECT_EQ(Status(pStreamer, 3, 0), (Bytes{3, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}));
    const Bytes untouched(8, 0xEE);
    EXPECT_EQ(Status(pStreamer, 0, 2), untouched);
    EXPECT_EQ(Status(pStreamer, 4, 2), untouched);
    EXPECT_EQ(Status(nullptr, 1, 2), untouched);
    EXPECT_EQ(KovaRtspServerGetStatus(pStreamer, nullptr), 2);
}

TEST_F(ServerRegistry, HostCallsForPayloadTypesPassTheirArgumentsOn)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    const KovaAudioDescription audio = {64, 8000, 1};
    uint32_t nId = 0;
    EXPECT_EQ(KovaRtspServerAddPayloadType(nullptr, 1, &nId, &audio), 2);
    EXPECT_EQ(KovaRtspServerAddPayloadType(pStreamer, 1, nullptr, &audio), 2);
    EXPECT_EQ(KovaRtspServerAddPayloadType(pStreamer, 1, &nId, nullptr), 2);
    for (const uint32_t nExpected : {96U, 97U, 98U}) {
        EXPECT_EQ(KovaRtspServerAddPayloadType(pStreamer, 1, &nId, &audio), 0);
        EXPECT_EQ(nId, nExpected);
    }
    EXPECT_EQ(KovaRtspServerAddPayloadType(pStreamer, 5, &nId, &audio), 1);
    EXPECT_EQ(KovaRtspServerRemovePayloadType(nullptr, 96), 2);
    EXPECT_EQ(KovaRtspServerRemovePayloadType(pStreamer, 96), 0);
    EXPECT_EQ(KovaListLength(pStreamer->pSenderList), 2U);
}

} // namespace
