#include "classic/rtp/session_tally.h"
#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/stream_clients.h"
#include "classic/server/session_end.h"
#include "classic/streamer/registries.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/delivery.h"
#include "tests/support/socket_faults.h"

#include <cerrno>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <thread>

/// What becomes of the stream's count when a session ends in the middle of a
/// request, and when its tracks are withdrawn.
namespace {

/// Holds a mutex in a thread of its own, so that the test itself never has two.
class HeldMutex {
public:
    explicit HeldMutex(pthread_mutex_t *pMutex)
        : m_thread([this, pMutex] {
              pthread_mutex_lock(pMutex);
              m_held.set_value();
              m_letGo.get_future().wait();
              pthread_mutex_unlock(pMutex);
          })
    {
        m_held.get_future().wait();
    }
    ~HeldMutex()
    {
        m_letGo.set_value();
        m_thread.join();
    }
    HeldMutex(const HeldMutex &) = delete;
    HeldMutex &operator=(const HeldMutex &) = delete;

private:
    std::promise<void> m_held;
    std::promise<void> m_letGo;
    std::thread m_thread;
};

class PlayerCount : public ProtocolTest {
protected:
    KovaRtpSender *Sender(uint32_t nPayloadId)
    {
        return KovaRtspStreamerGetRtpSenderByPayloadId(server.Stream(), nPayloadId);
    }

    void Send(uint16_t nSequence)
    {
        KovaRtpPacket *pPacket = KovaMakePacket({nSequence});
        KovaRtpPacketAddRef(pPacket);
        KovaRtpSenderAddRtpPacket(Sender(97), pPacket);
        KovaRtpPacketReleaseRef(pPacket);
    }

    bool Drained()
    {
        auto *pGroup = static_cast<KovaRtpSendGroup *>(Sender(97)->pSendGroupList->data);
        pthread_mutex_lock(&pGroup->packetMutex);
        const bool bEmpty = pGroup->pPacketList == nullptr;
        pthread_mutex_unlock(&pGroup->packetMutex);
        return bEmpty;
    }

    /// Sends a request that comes to a halt at the stream's senders.
    void HoldAtSenders(const std::string &request)
    {
        server.Settle(client);
        pHeldSenders = std::make_unique<HeldMutex>(&server.Stream()->senderMutex);
        ASSERT_TRUE(client.Send(request));
        ASSERT_TRUE(KovaWaitUntil([this] { return server.Stream()->nPins != 0; }));
    }

    void LetGo()
    {
        pHeldSenders.reset();
    }

    bool SessionsAreBusy()
    {
        const bool bBusy = pthread_mutex_trylock(&server.Server()->mtxSession) == EBUSY;
        if (!bBusy)
            pthread_mutex_unlock(&server.Server()->mtxSession);
        return bBusy;
    }

    void Remove(uint32_t nPayloadId)
    {
        EXPECT_EQ(KovaRtspServerRemovePayloadType(server.Stream(), nPayloadId), 0);
    }

    void EndTheSession()
    {
        EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(server.Server(), client.Session().c_str()),
                  0);
    }

    size_t AllClients()
    {
        return server.Clients(96).size() + server.Clients(97).size();
    }

    KovaSocketFaults faults;
    std::unique_ptr<HeldMutex> pHeldSenders;
};

TEST_F(PlayerCount, ConnectionThatBreaksDuringItsPlayLowersItOnce)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    const std::string session = client.Session();
    faults.Script(server.Handler(client)->nSocket, std::deque<KovaScriptedSend>(100, {ECONNRESET}));
    HoldAtSenders(client.Format("PLAY", "live", ""));
    ASSERT_TRUE(KovaWaitUntil([this] { return ClientCount() == 1; }));
    // PLAY marks the client and comes to its next halt, before it looks whether
    // the session still lives.
    auto pHeldStreams = std::make_unique<HeldMutex>(&server.Server()->mtxStreamer);
    LetGo();
    EXPECT_TRUE(KovaWaitUntil([this] {
        const auto clients = server.Clients(97);
        return !clients.empty() && clients[0].nState == 1;
    }));
    // The first packet meets the reset, the second one takes the client away.
    Send(1);
    Send(2);
    EXPECT_TRUE(KovaWaitUntil([this] { return server.Clients(97).empty(); }));
    EXPECT_TRUE(KovaWaitUntil([this] { return SessionsAreBusy(); }));
    pHeldStreams.reset();
    EXPECT_TRUE(server.WaitHandlers(0, 10000));
    EXPECT_TRUE(KovaWaitUntil([this] { return Drained(); }));
    EXPECT_FALSE(KovaSessionTallyExists(session.c_str()));
    EXPECT_EQ(server.SessionCount(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, PlayOfASessionThatExpiresMeanwhileCountsNobody)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    HoldAtSenders(client.Format("PLAY", "live", ""));
    EndTheSession();
    LetGo();
    EXPECT_EQ(client.Receive().nStatus, 200);
    server.Settle(client);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, SetupOfASessionThatEndsMeanwhileLeavesNothing)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    HoldAtSenders(client.Format("SETUP", "live/trackID=96",
                                "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n"));
    EndTheSession();
    LetGo();
    EXPECT_EQ(client.Receive().nStatus, 200);
    server.Settle(client);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, SetupOfAPlayingSessionThatEndsMeanwhileCountsItOut)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    HoldAtSenders(client.Format("SETUP", "live/trackID=96",
                                "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n"));
    EndTheSession();
    LetGo();
    EXPECT_EQ(client.Receive().nStatus, 200);
    server.Settle(client);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, FallsWithTheLastTrackOfASessionThatIsWithdrawn)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    Remove(97);
    EXPECT_EQ(ClientCount(), 1);
    Remove(96);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(client.Teardown("live").nStatus, 200); // without a client it counts nothing
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, FallsOnceWhenTheRestOfAWithdrawnSessionIsTornDown)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    Remove(96);
    EXPECT_EQ(client.Teardown("live").nStatus, 200);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, StaysWhenATrackThatNobodyPlaysIsWithdrawn)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    Remove(97);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, FallsWithTheLastTrackOfAPlayingSessionThoughThatOneDoesNotPlay)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200); // and no PLAY
    Remove(96);
    EXPECT_EQ(ClientCount(), 1);
    Remove(97);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, FallsWithAGroupThatGoes)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    KovaRtpSenderRemoveAllRtpSendGroup(Sender(97));
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, LostConnectionOfATrackThatDoesNotPlayCountsItsPlayingSessionOut)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200);
    Remove(96);
    KovaServerEndSession(server.Server(), client.Session().c_str(), true);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, PlayTwiceIsLoweredOnceByALostConnection)
{
    ASSERT_EQ(client.SetupUdp("live", 97, 5000).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    KovaServerEndSession(server.Server(), client.Session().c_str(), true);
    EXPECT_EQ(ClientCount(), 1);
}

} // namespace
