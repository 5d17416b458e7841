#include "kova_live.h"
#include "tests/fault/fault_bench.h"
#include "tests/support/live_client.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

// The live engine: each call of the system fails once, while it is opened, while players come and
// play, and while they go. Nothing crashes or stays behind, nobody gets anything wrong, and the
// next player is served.

namespace {

constexpr int kQuickMs = 300; ///< for what a failure may have lost

const std::string &Picture(char c)
{
    static std::string picture;
    picture = std::string("\0\0\0\1\x67\x64\x10\x28\x80s\0\0\0\1\x68\xC0p\0\0\0\1\x65", 22) +
              std::string(5000, c);
    return picture;
}

int32_t Push(KovaLiveTrack *pTrack, char c, int64_t nPts)
{
    const KovaInsideLibrary inside;
    const std::string &picture = Picture(c);
    return KovaLivePush(pTrack, picture.data(), picture.size(), nPts);
}

bool IsOneOf(int32_t nResult, std::initializer_list<int32_t> lawful)
{
    for (const int32_t nOne : lawful)
        if (nResult == nOne)
            return true;
    return false;
}

/// A server with one stream, opened and closed as the library's own calls.
struct Server {
    KovaLive *pLive = nullptr;
    KovaLiveStream *pStream = nullptr;
    KovaLiveTrack *pTrack = nullptr;
    uint16_t nPort = 0;
    bool bSecret = false; ///< there is a stream with a user of its own

    /// Whether everything could be had.
    bool Open(uint32_t nThreads = 1)
    {
        const KovaInsideLibrary inside;
        const KovaLiveUser user = {"ann", "secret"};
        KovaLiveConfig config;
        KovaLiveConfigInit(&config, sizeof(config));
        config.address = "127.0.0.1";
        config.threads = nThreads;
        config.max_connections_per_address = 100;
        config.on_event = [](void *, const KovaLiveEvent *) {};
        config.on_log = [](void *, int32_t, const char *) {};
        config.log_level = KOVA_LIVE_LOG_DEBUG;
        const int32_t nOpened = KovaLiveOpen(&config, &pLive);
        EXPECT_TRUE(IsOneOf(nOpened, {KOVA_LIVE_OK, KOVA_LIVE_ERROR_MEMORY, KOVA_LIVE_ERROR_PORT,
                                      KOVA_LIVE_ERROR_SYSTEM}))
            << nOpened;
        if (nOpened != KOVA_LIVE_OK)
            return false;
        EXPECT_EQ(KovaLivePort(pLive, &nPort), KOVA_LIVE_OK);
        KovaLiveStreamConfig stream;
        KovaLiveStreamConfigInit(&stream, sizeof(stream));
        stream.keep_group = 1;
        stream.name = "name";
        KovaLiveStream *pPrivate = nullptr;
        KovaLiveStreamConfig secret = stream;
        secret.users = &user;
        secret.user_count = 1;
        const int32_t nSecret = KovaLiveAddStream(pLive, "secret", &secret, &pPrivate);
        bSecret = nSecret == KOVA_LIVE_OK;
        const int32_t nStream = KovaLiveAddStream(pLive, "cam", &stream, &pStream);
        EXPECT_TRUE(IsOneOf(nStream, {KOVA_LIVE_OK, KOVA_LIVE_ERROR_MEMORY}));
        EXPECT_TRUE(IsOneOf(nSecret, {KOVA_LIVE_OK, KOVA_LIVE_ERROR_MEMORY}));
        KovaLiveTrackConfig track;
        KovaLiveTrackConfigInit(&track, sizeof(track));
        track.codec = KOVA_LIVE_H264;
        const int32_t nTrack =
            nStream == KOVA_LIVE_OK ? KovaLiveAddTrack(pStream, &track, &pTrack) : nStream;
        EXPECT_TRUE(IsOneOf(nTrack, {KOVA_LIVE_OK, KOVA_LIVE_ERROR_MEMORY}));
        return nTrack == KOVA_LIVE_OK;
    }
    void Close()
    {
        const KovaInsideLibrary inside;
        EXPECT_EQ(KovaLiveClose(pLive), KOVA_LIVE_OK);
        pLive = nullptr;
    }
};

/// The pictures that came whole, in their order; others are missing, never changed.
std::string PicturesOf(KovaLiveClient *pClient, size_t nMost, int nMilliseconds)
{
    std::string pictures;
    std::string bytes;
    KovaLiveRtp packet;
    int nSequence = -1;
    while (pictures.size() < nMost && pClient->NextRtp(1, &packet, nMilliseconds)) {
        if (nSequence >= 0 && packet.header.nSequence != ((nSequence + 1) & 0xFFFF))
            bytes.clear();
        nSequence = packet.header.nSequence;
        const uint8_t nType = static_cast<uint8_t>(packet.payload.at(0)) & 0x1F;
        if (nType == 28)
            bytes += packet.payload.substr(2);
        if (!packet.header.bMarker)
            continue;
        if (bytes.size() == 5000) {
            EXPECT_EQ(bytes, std::string(5000, bytes[0]));
            pictures += bytes[0];
        }
        bytes.clear();
    }
    return pictures;
}

/// A player from its first request to its last; what it gets is right or missing.
void Visit(const Server &server, bool bUdp, bool bWhole)
{
    SCOPED_TRACE(bUdp ? "UDP" : "interleaved");
    const int nWait = bWhole ? kLiveWaitMs : kQuickMs;
    KovaLiveClient client;
    const bool bConnected = client.Connect(server.nPort);
    const auto ask = [&client, bWhole, nWait](const std::string &text) {
        if (!client.Send(text))
            return -1;
        const int nStatus = client.Receive(nWait).nStatus;
        EXPECT_TRUE(bWhole ? nStatus == 200 : IsOneOf(nStatus, {-1, 200, 404, 454, 503}))
            << nStatus << " " << text;
        return nStatus;
    };
    EXPECT_TRUE(bConnected);
    ask(client.Text("OPTIONS", "*"));
    if (server.bSecret && client.Send(client.Text("DESCRIBE", "secret"))) {
        const int nStatus = client.Receive(nWait).nStatus;
        EXPECT_TRUE(bWhole ? nStatus == 401 : IsOneOf(nStatus, {-1, 401, 503})) << nStatus;
    }
    ask(client.Text("DESCRIBE", "cam"));
    const KovaLiveAnswer setup = bUdp ? client.SetupUdp("cam", 1) : client.SetupTcp("cam", 1);
    EXPECT_TRUE(bWhole ? setup.nStatus == 200 : IsOneOf(setup.nStatus, {-1, 200, 404, 503}))
        << setup.text;
    if (setup.nStatus != 200)
        return;
    const int nPlay = ask(client.Text("PLAY", "cam"));
    EXPECT_TRUE(IsOneOf(Push(server.pTrack, 'b', 40000), {KOVA_LIVE_OK, KOVA_LIVE_DROPPED}));
    EXPECT_TRUE(IsOneOf(Push(server.pTrack, 'c', 80000), {KOVA_LIVE_OK, KOVA_LIVE_DROPPED}));
    const std::string pictures = nPlay == 200 ? PicturesOf(&client, 3, nWait) : "";
    if (bWhole) {
        ASSERT_EQ(pictures.size(), 3U);
        EXPECT_EQ(pictures.substr(1), "bc") << "behind the one that was kept";
    }
    ask(client.Text("GET_PARAMETER", "cam"));
    ask(client.Text("TEARDOWN", "cam"));
}

void WholeVisits(const Server &server)
{
    for (const bool bUdp : {false, true})
        Visit(server, bUdp, true);
}

class LiveFaults : public KovaFaultTest {};

/// Players come and go while a call fails; then the server serves as ever.
void FailWhilePlaying(uint32_t nCalls, const std::vector<int> &errors, int nMost)
{
    KovaFailEach(nCalls, errors, nMost, [](KovaFaults *pFaults) {
        pFaults->Stop();
        const KovaHoldings before = KovaHoldingsNow();
        Server server;
        ASSERT_TRUE(server.Open());
        ASSERT_EQ(Push(server.pTrack, 'a', 0), KOVA_LIVE_OK);
        pFaults->Start();
        for (const bool bUdp : {false, true})
            Visit(server, bUdp, false);
        pFaults->Stop();
        ASSERT_EQ(Push(server.pTrack, 'a', 120000), KOVA_LIVE_OK);
        WholeVisits(server);
        server.Close();
        KovaExpectHeld(before);
    });
}

TEST_F(LiveFaults, OpeningSaysWhatItLacksAndLeavesNothing)
{
    for (const uint32_t nCalls : {uint32_t{kFaultHeap}, uint32_t{kFaultThread},
                                  uint32_t{kFaultSocket | kFaultBind | kFaultListen},
                                  uint32_t{kFaultEpoll | kFaultEpollAdd | kFaultEvent}})
        KovaFailEach(nCalls, {nCalls == kFaultHeap ? ENOMEM : EMFILE}, 60, [](KovaFaults *pFaults) {
            const KovaHoldings before = KovaHoldingsNow();
            Server server;
            const bool bOpen = server.Open(2);
            pFaults->Stop();
            if (bOpen) {
                ASSERT_EQ(Push(server.pTrack, 'a', 0), KOVA_LIVE_OK);
                WholeVisits(server);
            }
            if (server.pLive != nullptr)
                server.Close();
            KovaExpectHeld(before);
        });
}

TEST_F(LiveFaults, MemoryFailsWhilePlayersComeAndPlay)
{
    FailWhilePlaying(kFaultHeap, {ENOMEM}, 70);
}

TEST_F(LiveFaults, SocketsFailWhilePlayersCome)
{
    FailWhilePlaying(kFaultSocket | kFaultBind | kFaultSetOption | kFaultOwnName | kFaultEpollAdd,
                     {EMFILE}, 40);
}

TEST_F(LiveFaults, ConnectionsCannotBeAccepted)
{
    FailWhilePlaying(kFaultAccept, {EMFILE, ECONNABORTED, EINTR, ENOMEM}, 6);
}

TEST_F(LiveFaults, ReceivingFails)
{
    FailWhilePlaying(kFaultReceive | kFaultReceiveFrom, {EINTR, ENOMEM}, 20);
}

TEST_F(LiveFaults, SendingFails)
{
    FailWhilePlaying(kFaultSend | kFaultSendTo, {EAGAIN, ENOBUFS, EPERM}, 30);
}

TEST_F(LiveFaults, EveryDescriptorIsCloseOnExec)
{
    const size_t nBefore = KovaInheritableOpenings();
    Server server;
    ASSERT_TRUE(server.Open(2));
    ASSERT_EQ(Push(server.pTrack, 'a', 0), KOVA_LIVE_OK);
    WholeVisits(server);
    server.Close();
    EXPECT_EQ(KovaInheritableOpenings(), nBefore);
}

} // namespace
