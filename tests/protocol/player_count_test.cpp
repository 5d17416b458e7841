#include "classic/rtp/session_tally.h"
#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/stream_clients.h"
#include "classic/server/session_end.h"
#include "classic/streamer/registries.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/delivery.h"
#include "tests/support/socket_faults.h"

#include <atomic>
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

/// Whether a thread waits for a mutex that another one holds: the first word of glibc's mutex is 2
/// then.
bool IsWaitedFor(const KovaMutex &mutex)
{
    return reinterpret_cast<const std::atomic<int> &>(mutex.native).load() == 2;
}

class PlayerCount : public ProtocolTest {
protected:
    /// Looked up before the list is held up, if it is.
    KovaRtpSender *Sender(uint32_t nPayloadId)
    {
        if (pHeldSenders != nullptr)
            return pPictures;
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
        pthread_mutex_lock(&pGroup->packetMutex.native);
        const bool bEmpty = pGroup->pPacketList == nullptr;
        pthread_mutex_unlock(&pGroup->packetMutex.native);
        return bEmpty;
    }

    /// Sends a request that comes to a halt at the stream's senders.
    void HoldAtSenders(const std::string &request)
    {
        server.Settle(client);
        pPictures = Sender(97);
        pHeldSenders = std::make_unique<HeldMutex>(&server.Stream()->senderMutex.native);
        ASSERT_TRUE(client.Send(request));
        ASSERT_TRUE(KovaWaitUntil([this] { return IsWaitedFor(server.Stream()->senderMutex); }));
    }

    void LetGo()
    {
        pHeldSenders.reset();
    }

    void MarkPlaying()
    {
        auto *pGroup = static_cast<KovaRtpSendGroup *>(Sender(97)->pSendGroupList->data);
        const KovaClientLock lock(pGroup);
        static_cast<KovaRtpClient *>(pGroup->pClientList->data)->nState = kClientPlaying;
    }

    bool HasNoClient()
    {
        auto *pGroup = static_cast<KovaRtpSendGroup *>(Sender(97)->pSendGroupList->data);
        const KovaClientLock lock(pGroup);
        return pGroup->pClientList == nullptr;
    }

    bool SessionsAreBusy()
    {
        const bool bBusy = pthread_mutex_trylock(&server.Server()->mtxSession.native) == EBUSY;
        if (!bBusy)
            pthread_mutex_unlock(&server.Server()->mtxSession.native);
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

    /// Ends the session while its next SETUP, of the sound, is at the stream's senders.
    void EndDuringAnotherSetup()
    {
        HoldAtSenders(client.Format("SETUP", "live/trackID=96",
                                    "Transport: RTP/AVP/TCP;unicast;interleaved=2-3\r\n"));
        EndTheSession();
        LetGo();
        EXPECT_EQ(client.Receive().nStatus, 200);
        server.Settle(client);
    }

    size_t AllClients()
    {
        return server.Clients(96).size() + server.Clients(97).size();
    }

    KovaSocketFaults faults;
    std::unique_ptr<HeldMutex> pHeldSenders;
    KovaRtpSender *pPictures = nullptr;
};

TEST_F(PlayerCount, ConnectionThatBreaksDuringItsPlayLowersItOnce)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    const std::string session = client.Session();
    faults.Script(server.Handler(client)->nSocket, std::deque<KovaScriptedSend>(100, {ECONNRESET}));
    HoldAtSenders(client.Format("PLAY", "live", ""));
    ASSERT_EQ(ClientCount(), 1);
    MarkPlaying(); // as the PLAY is about to do
    // The first packet meets the reset, the second one takes the client away; the
    // session's end waits at the senders, too, before the PLAY looks whether it lives.
    Send(1);
    Send(2);
    EXPECT_TRUE(KovaWaitUntil([this] { return HasNoClient(); }));
    EXPECT_TRUE(KovaWaitUntil([this] { return SessionsAreBusy(); }));
    LetGo();
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
    const KovaTestResponse answer = client.Receive();
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_NE(answer.text.find("RTP-Info: url="), std::string::npos) << "it had the track";
    server.Settle(client);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, PlayOfASessionWithoutClientsThatEndsMeanwhileCountsNobody)
{
    ASSERT_EQ(client.SetupTcp("live", 99, 0).nStatus, 200); // no such track
    HoldAtSenders(client.Format("PLAY", "live", ""));
    ASSERT_EQ(ClientCount(), 1);
    EndTheSession();
    LetGo();
    EXPECT_EQ(client.Receive().nStatus, 200);
    server.Settle(client);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, SetupOfASessionThatEndsMeanwhileLeavesNothing)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    EndDuringAnotherSetup();
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, SetupOfAPlayingSessionThatEndsMeanwhileCountsItOut)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EndDuringAnotherSetup();
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
    KovaServerEndSession(server.Server(), client.Session().c_str(), kEndLost);
    EXPECT_EQ(AllClients(), 0U);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(PlayerCount, PlayTwiceIsLoweredOnceByALostConnection)
{
    ASSERT_EQ(client.SetupUdp("live", 97, 5000).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    KovaServerEndSession(server.Server(), client.Session().c_str(), kEndLost);
    EXPECT_EQ(ClientCount(), 1);
}

} // namespace
