#include "tests/robustness/expected_answers.h"

#include <gtest/gtest.h>

namespace {

/// Two connections and the session of the first. Whoever knows an id may use it.
class ForeignSessions : public ExpectedAnswers {
protected:
    void SetUp() override
    {
        ExpectedAnswers::SetUp();
        ASSERT_TRUE(server->Connect(&owner));
        ASSERT_TRUE(server->Connect(&other));
        ASSERT_EQ(owner.SetupTcp("live", 96, 0).nStatus, 200);
        id = owner.Session();
        other.SetSession(id);
    }

    void Push(uint32_t nPayloadId, const std::string &unit, uint32_t nTime)
    {
        KovaPush(server->Stream(), nPayloadId, unit, nTime);
    }

    std::string id;
    KovaRtspTestClient owner;
    KovaRtspTestClient other;
};

TEST_F(ForeignSessions, AreKeptAlive)
{
    const int32_t tExpire = server->Expiry(id);
    EXPECT_EQ(other.GetParameter("live").text, Answer("GET_PARAMETER", "1", id));
    EXPECT_GE(server->Expiry(id), tExpire + 30);
}

TEST_F(ForeignSessions, TakeTracksOfOtherConnectionsAndPlayAll)
{
    EXPECT_EQ(other.SetupTcp("live", 97, 4).text, Answer("SETUP", "1", id));
    EXPECT_EQ(other.Play("live").nStatus, 200);
    EXPECT_EQ(server->Stream()->nClientCount.load(), 1);
    for (const uint32_t nTrack : {96U, 97U}) {
        ASSERT_EQ(server->Clients(nTrack).size(), 1U);
        EXPECT_EQ(server->Clients(nTrack)[0].session, id);
        EXPECT_EQ(server->Clients(nTrack)[0].nState, 1);
    }
    Push(96, KovaTestAacFrame(20), 5000);
    Push(97, KovaTestKeyFrame(50), 5000);
    // Each track's media (behind its sender report) goes where the track was set up.
    for (const int nChannel : {1, 0}) {
        KovaTestFrame frame;
        ASSERT_TRUE(owner.NextFrame(&frame, 10000));
        EXPECT_EQ(frame.nChannel, nChannel);
        ASSERT_TRUE(other.NextFrame(&frame, 10000));
        EXPECT_EQ(frame.nChannel, nChannel + 4);
    }
    EXPECT_EQ(other.Teardown("live").nStatus, 200);
    EXPECT_EQ(server->Stream()->nClientCount.load(), 0);
    EXPECT_EQ(server->SessionCount(), 0U);
    EXPECT_EQ(owner.Play("live").text, kSessionNotFound);
    Push(96, KovaTestAacFrame(20), 9000);
    EXPECT_TRUE(owner.IsSilent(200));
    owner.Close();
    other.Close();
    ExpectNothingLeft();
}

TEST_F(ForeignSessions, EndWithTheConnectionOfAnyTrack)
{
    ASSERT_EQ(other.SetupTcp("live", 97, 4).nStatus, 200);
    ASSERT_EQ(owner.Play("live").nStatus, 200);
    other.Close(true);
    ASSERT_TRUE(server->WaitHandlers(1, 5000));
    // The broken track is noticed when there is something to send, and leaves then.
    for (uint32_t nTime = 5000; nTime < 50000 && server->SessionCount() != 0; nTime += 2000) {
        Push(97, KovaTestKeyFrame(50), nTime);
        KovaWaitUntil(200, [this] { return server->SessionCount() == 0; });
    }
    EXPECT_EQ(server->SessionCount(), 0U);
    EXPECT_TRUE(KovaWaitUntil(5000, [this] {
        return server->Stream()->nClientCount.load() == 0 && server->Clients(97).empty();
    }));
    EXPECT_EQ(owner.GetParameter("live").text, kSessionNotFound);
    owner.Close();
    ExpectNothingLeft();
}

TEST_F(ForeignSessions, InventedOnesHaveNoEffect)
{
    ASSERT_EQ(owner.Play("live").nStatus, 200);
    other.SetSession("00000000000");
    EXPECT_EQ(other.SetupTcp("live", 97, 4).text, kSessionNotFound);
    EXPECT_EQ(other.Play("live").text, kSessionNotFound);
    EXPECT_EQ(other.GetParameter("live").text, kSessionNotFound);
    EXPECT_EQ(other.Teardown("live").text, kSessionNotFound);
    EXPECT_EQ(server->SessionCount(), 1U);
    EXPECT_EQ(server->Clients(97).size(), 0U);
    EXPECT_EQ(server->Clients(96).size(), 1U);
    EXPECT_EQ(server->Stream()->nClientCount.load(), 1);
}

} // namespace
