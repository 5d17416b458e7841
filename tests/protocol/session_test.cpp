#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/server/session_registry.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/failing_heap.h"
#include "tests/support/fake_clock.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int32_t kNow = 1795169472;

void ExpectId(const char *szId)
{
    EXPECT_EQ(strlen(szId), 11u);
    EXPECT_EQ(strspn(szId, "0123456789"), 11u);
}

TEST(SessionId, ElevenDigitsFromTheGenerator)
{
    char szId[kSessionIdSize];
    memset(szId, '#', sizeof(szId));
    srand(1);
    std::string expected;
    for (int i = 0; i < 11; i++)
        expected += static_cast<char>('0' + rand() % 10);
    srand(1);
    GenerateSessionId(szId);
    EXPECT_EQ(std::string(szId), expected);
    EXPECT_EQ(szId[11], '\0');
    memset(szId, '#', sizeof(szId));
    srand(1);
    GetSessionId(szId);
    EXPECT_EQ(std::string(szId), expected);
    GenerateSessionId(nullptr);
    GetSessionId(nullptr);
}

TEST(Session, EmptyIdIsDrawnIntoTheBuffer)
{
    KovaFakeClock clock;
    clock.Fix(kNow * 1000000LL);
    char szId[kSessionIdSize] = "";
    KovaRtspSession *pSession = KovaRtspSessionCreate(szId, 60);
    ASSERT_NE(pSession, nullptr);
    ExpectId(szId);
    EXPECT_STREQ(pSession->szSessionId, szId);
    EXPECT_EQ(pSession->nTimeout, 60);
    EXPECT_EQ(pSession->tExpire.load(), kNow + 60);
    EXPECT_EQ(pSession->pTransportList, nullptr);
    EXPECT_EQ(pSession->nSpare, 0);
    KovaRtspSessionDestroy(pSession);
}

TEST(Session, GivenIdIsKept)
{
    char szId[kSessionIdSize] = "42";
    KovaRtspSession *pSession = KovaRtspSessionCreate(szId, 5);
    ASSERT_NE(pSession, nullptr);
    EXPECT_STREQ(szId, "42");
    EXPECT_EQ(memcmp(pSession->szSessionId, "42\0\0\0\0\0\0\0\0\0\0", 12), 0);
    KovaRtspSessionDestroy(pSession);
}

TEST(Session, NullRules)
{
    EXPECT_EQ(KovaRtspSessionCreate(nullptr, 60), nullptr);
    KovaRtspSessionDestroy(nullptr);
    KovaRtspSessionRemoveAllTransport(nullptr);
    char szId[kSessionIdSize] = "";
    KovaRtspSession *pSession = KovaRtspSessionCreate(szId, 60);
    KovaRtspTransport *pTransport = KovaRtspTransportCreate(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    KovaRtspSessionAddTransport(nullptr, pTransport);
    KovaRtspSessionAddTransport(pSession, nullptr);
    EXPECT_EQ(pSession->pTransportList, nullptr);
    KovaRtspSessionAddTransport(pSession, pTransport);
    KovaRtspSessionRemoveTransport(nullptr, pTransport);
    KovaRtspSessionRemoveTransport(pSession, nullptr);
    EXPECT_EQ(KovaListLength(pSession->pTransportList), 1u);
    KovaRtspSessionDestroy(pSession);
}

TEST(Session, WithoutMemoryThereIsNone)
{
    char szId[kSessionIdSize] = "";
    KovaRtspSession *pSession = nullptr;
    {
        const KovaFailingHeap heap;
        pSession = KovaRtspSessionCreate(szId, 60);
    }
    EXPECT_EQ(pSession, nullptr);
    ExpectId(szId); // SETUP answers with it all the same
}

class SessionTransports : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (uint32_t n = 0; n < 3; n++) {
            pTransports[n] = KovaRtspTransportCreate(n, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
            KovaRtspSessionAddTransport(pSession, pTransports[n]);
        }
    }
    void TearDown() override
    {
        KovaRtspSessionDestroy(pSession);
    }

    char szId[kSessionIdSize] = "";
    KovaRtspSession *pSession = KovaRtspSessionCreate(szId, 60);
    KovaRtspTransport *pTransports[3] = {};
};

TEST_F(SessionTransports, AreKeptInOrder)
{
    KovaList *pNode = pSession->pTransportList;
    for (KovaRtspTransport *pTransport : pTransports) {
        ASSERT_NE(pNode, nullptr);
        EXPECT_EQ(pNode->data, pTransport);
        pNode = pNode->next;
    }
    EXPECT_EQ(pNode, nullptr);
}

TEST_F(SessionTransports, RemovalUnlinksWithoutDestroying)
{
    KovaRtspSessionRemoveTransport(pSession, pTransports[1]);
    EXPECT_EQ(KovaListLength(pSession->pTransportList), 2u);
    EXPECT_EQ(pTransports[1]->nWords[0], 1u);
    KovaRtspSessionRemoveTransport(pSession, pTransports[1]); // not there any more
    EXPECT_EQ(KovaListLength(pSession->pTransportList), 2u);
    KovaRtspTransportDestroy(pTransports[1]);
}

TEST_F(SessionTransports, RemoveAllEmptiesTheList)
{
    KovaRtspSessionRemoveAllTransport(pSession);
    EXPECT_EQ(pSession->pTransportList, nullptr);
}

using NewSession = ProtocolTest;

TEST_F(NewSession, IsRegisteredUnderItsId)
{
    char szId[kSessionIdSize] = "";
    EXPECT_EQ(AddNewRtspSession(server.Server(), szId, 60), 0);
    ExpectId(szId);
    EXPECT_EQ(KovaRtspServerIsSessionExist(server.Server(), szId), 1);
    char szGiven[kSessionIdSize] = "77";
    EXPECT_EQ(AddNewRtspSession(server.Server(), szGiven, 60), 0);
    EXPECT_STREQ(szGiven, "77");
    EXPECT_EQ(KovaRtspServerIsSessionExist(server.Server(), "77"), 1);
}

TEST_F(NewSession, NullArgumentsAndShortage)
{
    char szId[kSessionIdSize] = "";
    EXPECT_EQ(AddNewRtspSession(nullptr, szId, 60), 2);
    EXPECT_EQ(AddNewRtspSession(server.Server(), nullptr, 60), 2);
    int32_t nResult = 0;
    {
        const KovaFailingHeap heap;
        nResult = AddNewRtspSession(server.Server(), szId, 60);
    }
    EXPECT_EQ(nResult, 1);
    EXPECT_EQ(server.SessionCount(), 0u);
}

TEST_F(NewSession, IdThatIsTakenIsDrawnAgain)
{
    char szFirst[kSessionIdSize] = "";
    char szSecond[kSessionIdSize] = "";
    srand(5);
    EXPECT_EQ(AddNewRtspSession(server.Server(), szFirst, 60), 0);
    srand(5);
    EXPECT_EQ(AddNewRtspSession(server.Server(), szSecond, 60), 0);
    EXPECT_STRNE(szFirst, szSecond);
    KovaRtspSession *pSecond = KovaRtspServerGetSessionBySessionId(server.Server(), szSecond);
    ASSERT_NE(pSecond, nullptr);
    EXPECT_STREQ(pSecond->szSessionId, szSecond);
    EXPECT_EQ(server.SessionCount(), 2u);
}

} // namespace
