#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/stream_clients.h"
#include "classic/streamer/registries.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/failing_heap.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr char kId[] = "12345678901";

class StreamClients : public ProtocolTest {
protected:
    void Add(const char *szUri, int nTrack, const char *szId, int nRtp, int nRtcp,
             KovaRtspServer *pServer)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        AddNewRtpClient(pServer, szUri, nTrack, szId, nRtp, nRtcp, 5000 + 65536, 5001, 4, 5, 0,
                        nullptr, address);
    }
    void Add(int nTrack, const char *szId)
    {
        Add("live", nTrack, szId, socket(AF_INET, SOCK_DGRAM, 0), socket(AF_INET, SOCK_DGRAM, 0),
            server.Server());
    }
    size_t AllClients()
    {
        return server.Clients(96).size() + server.Clients(97).size();
    }
};

TEST_F(StreamClients, AddedClientGoesToTheSenderOfItsTrack)
{
    Add(97, kId);
    ASSERT_EQ(server.Clients(97).size(), 1u);
    EXPECT_EQ(server.Clients(96).size(), 0u);
    const auto entry = server.Clients(97)[0];
    EXPECT_EQ(entry.session, kId);
    EXPECT_EQ(entry.nState, kClientSetUp);
    EXPECT_EQ(entry.nClientRtpPort, 5000); // kept in 16 bits
    EXPECT_EQ(entry.nClientRtcpPort, 5001);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(StreamClients, NothingIsAddedWithoutItsArguments)
{
    KovaRtspServer *pServer = server.Server();
    Add("live", 97, kId, 0, 0, nullptr);
    Add(nullptr, 97, kId, 0, 0, pServer);
    Add("live", 97, nullptr, 0, 0, pServer);
    Add("live", 97, kId, -1, 0, pServer);
    Add("live", 97, kId, 0, -1, pServer);
    Add("dead", 97, kId, 0, 0, pServer);
    Add("live", 98, kId, 0, 0, pServer);
    EXPECT_EQ(AllClients(), 0u);
}

TEST_F(StreamClients, RemovalTakesEveryTrackAndLowersTheCountOnce)
{
    const int nBefore = KovaOpenDescriptors();
    Add(96, kId);
    Add(97, kId);
    Add(97, kId);
    Add(97, "other");
    server.Stream()->nClientCount = 5;
    EXPECT_EQ(RemoveRtpClient(server.Server(), "live", kId), 0);
    ASSERT_EQ(AllClients(), 1u);
    EXPECT_EQ(server.Clients(97)[0].session, "other");
    EXPECT_EQ(ClientCount(), 4);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore + 2);
    EXPECT_EQ(RemoveRtpClient(server.Server(), "live", kId), 0);
    EXPECT_EQ(ClientCount(), 4);
}

TEST_F(StreamClients, MarkingCountsWhetherOrNotAClientMatches)
{
    Add(96, kId);
    Add(97, kId);
    EXPECT_EQ(UpdateRtpClientStatus(server.Server(), "live", "nobody"), 0);
    EXPECT_EQ(ClientCount(), 1);
    EXPECT_EQ(server.Clients(96)[0].nState, kClientSetUp);
    EXPECT_EQ(UpdateRtpClientStatus(server.Server(), "live", kId), 0);
    EXPECT_EQ(ClientCount(), 2);
    EXPECT_EQ(server.Clients(96)[0].nState, kClientPlaying);
    EXPECT_EQ(server.Clients(97)[0].nState, kClientPlaying);
}

TEST_F(StreamClients, TrackListHasAnEntryPerClientInSenderOrder)
{
    Add(97, kId);
    Add(96, kId);
    Add(97, "other");
    KovaRtpSender *pVideo = KovaRtspStreamerGetRtpSenderByPayloadId(server.Stream(), 97);
    pVideo->nLastSequence = 65535;
    pVideo->nLastTimestamp = 0x80000001;
    KovaList *pList = nullptr;
    EXPECT_EQ(GetTrackIdList(server.Server(), "live", kId, &pList), 0);
    ASSERT_EQ(KovaListLength(pList), 2u);
    const auto *pFirst = static_cast<const KovaRtspTrackInfo *>(pList->data);
    const auto *pSecond = static_cast<const KovaRtspTrackInfo *>(pList->next->data);
    EXPECT_EQ(pFirst->nTrackId, 96u);
    EXPECT_EQ(pSecond->nTrackId, 97u);
    EXPECT_EQ(pSecond->nSeq, 65535u);
    EXPECT_EQ(pSecond->nRtpTime, 0x80000001u);
    while (pList != nullptr)
        free(KovaListTakeFirst(&pList, nullptr));
}

TEST_F(StreamClients, TrackListWithoutMemorySkipsEntries)
{
    Add(97, kId);
    KovaList *pList = nullptr;
    for (int nGood = 0; nGood < 2; nGood++) {
        int32_t nResult = -1;
        {
            const KovaFailingHeap heap(nGood);
            nResult = GetTrackIdList(server.Server(), "live", kId, &pList);
        }
        EXPECT_EQ(nResult, 0);
        EXPECT_EQ(pList, nullptr);
    }
}

TEST_F(StreamClients, ResultsOfNullArgumentsAndUnknownStreams)
{
    KovaRtspServer *pServer = server.Server();
    KovaList *pList = nullptr;
    EXPECT_EQ(RemoveRtpClient(nullptr, "live", kId), 2);
    EXPECT_EQ(RemoveRtpClient(pServer, nullptr, kId), 2);
    EXPECT_EQ(RemoveRtpClient(pServer, "live", nullptr), 2);
    EXPECT_EQ(RemoveRtpClient(pServer, "dead", kId), 1);
    EXPECT_EQ(UpdateRtpClientStatus(nullptr, "live", kId), 2);
    EXPECT_EQ(UpdateRtpClientStatus(pServer, nullptr, kId), 2);
    EXPECT_EQ(UpdateRtpClientStatus(pServer, "live", nullptr), 2);
    EXPECT_EQ(UpdateRtpClientStatus(pServer, "dead", kId), 1);
    EXPECT_EQ(GetTrackIdList(nullptr, "live", kId, &pList), 2);
    EXPECT_EQ(GetTrackIdList(pServer, nullptr, kId, &pList), 2);
    EXPECT_EQ(GetTrackIdList(pServer, "live", nullptr, &pList), 2);
    EXPECT_EQ(GetTrackIdList(pServer, "live", kId, nullptr), 2);
    EXPECT_EQ(GetTrackIdList(pServer, "dead", kId, &pList), 1);
    EXPECT_EQ(pList, nullptr);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(StreamClients, SsrcOfATrack)
{
    KovaRtspServer *pServer = server.Server();
    uint32_t nSsrc = 1;
    EXPECT_EQ(GetSSRC(pServer, "live", 96, &nSsrc), 0);
    EXPECT_EQ(nSsrc, server.Ssrc(96));
    EXPECT_EQ(GetSSRC(pServer, "live", 97, &nSsrc), 0);
    EXPECT_EQ(nSsrc, server.Ssrc(97));
    nSsrc = 1;
    EXPECT_EQ(GetSSRC(pServer, "live", 98, &nSsrc), 1);
    EXPECT_EQ(GetSSRC(pServer, "dead", 97, &nSsrc), 1);
    EXPECT_EQ(GetSSRC(pServer, "", 97, &nSsrc), 2);
    EXPECT_EQ(GetSSRC(pServer, nullptr, 97, &nSsrc), 2);
    EXPECT_EQ(GetSSRC(nullptr, "live", 97, &nSsrc), 2);
    EXPECT_EQ(GetSSRC(pServer, "live", 97, nullptr), 2);
    EXPECT_EQ(nSsrc, 1u);
}

TEST_F(StreamClients, NetworkInfoComesFromTheHandler)
{
    KovaRtspServerHandler *pHandler = server.Handler(client);
    ASSERT_NE(pHandler, nullptr);
    const KovaRtspSdpGenerator *pGenerator = server.Stream()->pSdpGenerator;
    SetNetworkInfo(nullptr, pHandler, "live");
    SetNetworkInfo(server.Server(), nullptr, "live");
    SetNetworkInfo(server.Server(), pHandler, nullptr);
    SetNetworkInfo(server.Server(), pHandler, "dead");
    EXPECT_STREQ(pGenerator->szServerIp, "");
    SetNetworkInfo(server.Server(), pHandler, "live");
    EXPECT_STREQ(pGenerator->szServerIp, "127.0.0.1");
    EXPECT_EQ(pGenerator->nServerPort, server.Port());
    EXPECT_STREQ(pGenerator->szClientIp, "127.0.0.1");
}

TEST_F(StreamClients, DescriptionIsWrittenReadyOrNot)
{
    char szText[kSdpTextSize] = "untouched";
    int32_t nLength = -1;
    GetSdpInfo(nullptr, "live", szText, &nLength);
    GetSdpInfo(server.Server(), nullptr, szText, &nLength);
    GetSdpInfo(server.Server(), "live", nullptr, &nLength);
    GetSdpInfo(server.Server(), "live", szText, nullptr);
    GetSdpInfo(server.Server(), "dead", szText, &nLength);
    EXPECT_STREQ(szText, "untouched");
    EXPECT_EQ(nLength, -1);
    GetSdpInfo(server.Server(), "live", szText, &nLength);
    EXPECT_EQ(nLength, static_cast<int32_t>(strlen(szText)));
    EXPECT_NE(strstr(szText, "config=;"), nullptr);
    EXPECT_NE(strstr(szText, "sprop-parameter-sets=,;"), nullptr);
}

TEST_F(StreamClients, SetupWithoutMemoryForTheClientLeavesTheSocketsToTheCaller)
{
    const int nRtp = socket(AF_INET, SOCK_DGRAM, 0);
    const int nRtcp = socket(AF_INET, SOCK_DGRAM, 0);
    {
        const KovaFailingHeap heap;
        Add("live", 97, kId, nRtp, nRtcp, server.Server());
    }
    EXPECT_EQ(AllClients(), 0u);
    EXPECT_EQ(close(nRtp), 0);
    EXPECT_EQ(close(nRtcp), 0);
}

} // namespace
