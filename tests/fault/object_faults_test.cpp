#include "tests/fault/fault_bench.h"

#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/rtsp/transport.h"
#include "classic/sdp/media_info.h"
#include "classic/sdp/sdp_generator.h"
#include "classic/server/listener.h"
#include "classic/server/session_registry.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace {

const KovaAudioDescription kAudio = {64, 44100, 2};
const KovaVideoDescription kVideo = {2000};

const uint8_t *Bytes(const std::string &text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

class ObjectFaults : public KovaFaultTest {};

TEST_F(ObjectFaults, DescriptionSaysWhatItLacks)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [](KovaFaults *pFaults) {
        const KovaHoldings before = KovaHoldingsNow();
        KovaInsideLibrary inside;
        KovaRtspSdpGenerator *pGenerator = KovaRtspSdpGeneratorCreate("live");
        const int32_t nAudio = KovaRtspSdpGeneratorAddMedia(pGenerator, 1, 96, &kAudio);
        const int32_t nVideo = KovaRtspSdpGeneratorAddMedia(pGenerator, 2, 97, &kVideo);
        const std::string config("\x12\x10", 2);
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, 96, 1, Bytes(config), 2);
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, 97, 2, Bytes(KovaTestSps()), 10);
        KovaRtspSdpGeneratorSetMediaInfo(pGenerator, 97, 3, Bytes(KovaTestPps()), 4);
        char szText[kSdpTextSize] = {};
        int32_t nLength = -1;
        KovaRtspGenerateSdpGetSdpInfo(pGenerator, szText, &nLength);
        pFaults->Stop();
        const std::string text = szText;
        if (pGenerator == nullptr) {
            EXPECT_EQ(nAudio, 2);
            EXPECT_EQ(nVideo, 2);
            EXPECT_EQ(nLength, -1);
        } else {
            EXPECT_EQ(nAudio == 0 && nVideo == 0, pFaults->Hits() == 0);
            EXPECT_EQ(text.find("m=audio") != std::string::npos, nAudio == 0);
            EXPECT_EQ(text.find("m=video") != std::string::npos, nVideo == 0);
            EXPECT_EQ(nLength, static_cast<int32_t>(text.size()));
            // One section missing does not keep the other from being complete.
            EXPECT_EQ(KovaRtspSdpGeneratorIsReady(pGenerator), 1);
            // The memory is back: sections can be added now.
            EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 1, 98, &kAudio), 0);
            EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 2, 99, &kVideo), 0);
        }
        KovaRtspSdpGeneratorDestroy(pGenerator);
        KovaExpectHeld(before);
    });
}

TEST_F(ObjectFaults, WhatIsRemovedGivesItsMemoryBack)
{
    const KovaTestServer server({"", 16, false});
    KovaRtspSdpGenerator *pGenerator = KovaRtspSdpGeneratorCreate("live");
    const KovaHoldings before = KovaHoldingsNow();
    EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 1, 96, &kAudio), 0);
    EXPECT_EQ(KovaRtspSdpGeneratorAddMedia(pGenerator, 2, 97, &kVideo), 0);
    KovaRtspSdpGeneratorRemoveMedia(pGenerator,
                                    KovaRtspSdpGeneratorGetMediaByPayloadId(pGenerator, 96));
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(pGenerator, 97);
    char szId[kSessionIdSize] = {};
    EXPECT_EQ(AddNewRtspSession(server.Server(), szId, 60), 0);
    EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(server.Server(), szId), 0);
    KovaExpectHeld(before);
    KovaRtspSdpGeneratorDestroy(pGenerator);
}

TEST_F(ObjectFaults, SessionThatExpiresGivesItsMemoryBack)
{
    KovaTestServer server({"", 16, true});
    ASSERT_TRUE(server.IsUp());
    const KovaHoldings before = KovaHoldingsNow();
    char szId[kSessionIdSize] = {};
    EXPECT_EQ(AddNewRtspSession(server.Server(), szId, -60), 0); // it has expired already
    EXPECT_TRUE(KovaWaitUntil(20000, [&] { return server.SessionCount() == 0; }));
    KovaExpectHeld(before);
}

TEST_F(ObjectFaults, MediaInfoAndTransportAreWholeOrNull)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [](KovaFaults *pFaults) {
        const KovaHoldings before = KovaHoldingsNow();
        KovaInsideLibrary inside;
        KovaRtspMediaInfo *pAudio = KovaRtspMediaInfoCreate(1, 96, &kAudio);
        KovaRtspMediaInfo *pVideo = KovaRtspMediaInfoCreate(2, 97, &kVideo);
        KovaRtspTransport *pTransport = KovaRtspTransportCreate(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
        const int nMissing = (pAudio == nullptr) + (pVideo == nullptr) + (pTransport == nullptr);
        EXPECT_EQ(nMissing, pFaults->Hits());
        KovaRtspMediaInfoDestroy(pAudio);
        KovaRtspMediaInfoDestroy(pVideo);
        KovaRtspTransportDestroy(pTransport);
        KovaExpectHeld(before);
    });
}

TEST_F(ObjectFaults, SessionThatCannotBeMadeStillHasAnId)
{
    KovaTestServer server({"", 16, false});
    ASSERT_TRUE(server.IsUp());
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [&](KovaFaults *pFaults) {
        const KovaHoldings before = KovaHoldingsNow();
        KovaInsideLibrary inside;
        char szId[kSessionIdSize] = {};
        const int32_t nResult = AddNewRtspSession(server.Server(), szId, 60);
        pFaults->Stop();
        EXPECT_EQ(nResult, pFaults->Hits() != 0 ? 1 : 0);
        EXPECT_EQ(std::string(szId).size(), 11U);
        EXPECT_EQ(KovaRtspServerIsSessionExist(server.Server(), szId), nResult == 0 ? 1 : 0);
        char szNext[kSessionIdSize] = {};
        EXPECT_EQ(AddNewRtspSession(server.Server(), szNext, 60), 0);
        KovaRtspServerRemoveAllSession(server.Server());
        KovaExpectHeld(before);
    });
}

/// Both ends of a connection on the loopback; reading from the server is bounded.
struct Connection : KovaConnection {
    Connection() : KovaConnection(KovaMakeConnection())
    {
        const struct timeval patience = {5, 0};
        setsockopt(nPlayer, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
};

/// A connection whose handler cannot be made, registered or started is closed.
TEST_F(ObjectFaults, ConnectionThatCannotBeHandledIsClosed)
{
    KovaTestServer server({"", 16, false});
    ASSERT_TRUE(server.IsUp());
    for (const uint32_t nCalls : {kFaultHeap + 0U, kFaultThread + 0U}) {
        KovaFailEach(nCalls, {EAGAIN}, 40, [&](KovaFaults *pFaults) {
            const KovaHoldings before = KovaHoldingsNow();
            const Connection connection;
            int32_t nResult = 0;
            {
                const KovaInsideLibrary inside;
                nResult = AddNewRtspHandler(server.Server(), connection.nServer, connection.peer);
            }
            pFaults->Stop();
            if (pFaults->Hits() != 0) {
                // 2 without a handler, 1 when it cannot be registered or started.
                EXPECT_TRUE(nResult == 1 || (nResult == 2 && nCalls == kFaultHeap)) << nResult;
                char first = 0;
                EXPECT_EQ(recv(connection.nPlayer, &first, 1, 0), 0);
            } else {
                EXPECT_EQ(nResult, 0);
                EXPECT_EQ(server.HandlerCount(), 1U);
            }
            close(connection.nPlayer);
            EXPECT_TRUE(server.WaitHandlers(0, 5000));
            KovaExpectHeld(before);
        });
    }
}

} // namespace
