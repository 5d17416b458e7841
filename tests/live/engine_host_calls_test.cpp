#include "kova_live.h"
#include "live/engine/stream.h"
#include "tests/live/live_host.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

// What the host's calls return, and what they leave in its records.

TEST(LiveHostCalls, EachResultHasItsText)
{
    const char *const texts[] = {"no error",
                                 "an argument is missing or out of range",
                                 "no memory",
                                 "not an IPv4 address of this machine",
                                 "the port is taken, or may not be used",
                                 "no descriptor or no thread could be had",
                                 "a stream of that path is there already",
                                 "no such player",
                                 "no access unit of this codec and form",
                                 "above a limit",
                                 "not to be called in a callback",
                                 "a codec that is not known"};
    const int32_t results[] = {KOVA_LIVE_OK,
                               KOVA_LIVE_ERROR_ARGUMENT,
                               KOVA_LIVE_ERROR_MEMORY,
                               KOVA_LIVE_ERROR_ADDRESS,
                               KOVA_LIVE_ERROR_PORT,
                               KOVA_LIVE_ERROR_SYSTEM,
                               KOVA_LIVE_ERROR_EXISTS,
                               KOVA_LIVE_ERROR_NOT_FOUND,
                               KOVA_LIVE_ERROR_DATA,
                               KOVA_LIVE_ERROR_TOO_LARGE,
                               KOVA_LIVE_ERROR_IN_CALLBACK,
                               KOVA_LIVE_ERROR_CODEC};
    for (size_t nResult = 0; nResult < sizeof(results) / sizeof(results[0]); nResult++)
        EXPECT_STREQ(KovaLiveErrorText(results[nResult]), texts[nResult]);
    EXPECT_STREQ(KovaLiveErrorText(KOVA_LIVE_DROPPED), "the unit was dropped");
    for (const int32_t nOther : {KOVA_LIVE_ERROR_CODEC - 1, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(KovaLiveErrorText(nOther), "an unknown result") << nOther;
}

TEST(LiveHostCalls, ARealmThatNoHeaderCanCarryIsAnArgument)
{
    for (const std::string &realm :
         {std::string("a\"b"), std::string("a\nb"), std::string(1000, 'a')}) {
        KovaLiveConfig config;
        ASSERT_EQ(KovaLiveConfigInit(&config, sizeof(config)), KOVA_LIVE_OK);
        config.address = "127.0.0.1";
        config.realm = realm.c_str();
        KovaLive *pLive = nullptr;
        EXPECT_EQ(KovaLiveOpen(&config, &pLive), KOVA_LIVE_ERROR_ARGUMENT) << realm;
        EXPECT_EQ(pLive, nullptr);
    }
}

TEST(LiveHostCalls, ChallengesNameTheHostsRealm)
{
    const KovaLiveUser user = {"anna", "pass word"};
    for (const char *szRealm : {"Garden", "", static_cast<const char *>(nullptr)}) {
        KovaLiveHost host([&](KovaLiveConfig *pConfig) {
            pConfig->realm = szRealm;
            pConfig->users = &user;
            pConfig->user_count = 1;
        });
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(host.Port()));
        const KovaLiveAnswer answer = client.Describe("cam");
        EXPECT_EQ(answer.nStatus, 401);
        const bool bOwn = szRealm != nullptr && szRealm[0] != '\0';
        EXPECT_NE(answer.text.find(bOwn ? "realm=\"Garden\"" : "realm=\"Kova\""), std::string::npos)
            << answer.text;
    }
}

TEST(LiveHostCalls, ARecordIsClearedInItsWholeLength)
{
    // As a host has it that was built with a later version.
    struct Later {
        KovaLiveConfig config;
        uint64_t nMore[4];
    } record;
    memset(&record, 0x55, sizeof(record));
    EXPECT_EQ(KovaLiveConfigInit(&record.config, sizeof(record)), KOVA_LIVE_OK);
    EXPECT_EQ(record.config.size, sizeof(record));
    EXPECT_EQ(record.config.threads, 0U);
    for (const uint64_t nMore : record.nMore)
        EXPECT_EQ(nMore, 0U);
    EXPECT_EQ(KovaLiveConfigInit(&record.config, sizeof(KovaLiveConfig) - 1),
              KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLiveConfigInit(nullptr, sizeof(record)), KOVA_LIVE_ERROR_ARGUMENT);
}

TEST(LiveHostCalls, PayloadTypesThatNobodyChoseAreTheFirstFreeOnes)
{
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    const std::string sps = KovaLiveSps();
    const std::string pps = KovaLivePps();
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
    config.sps = reinterpret_cast<const uint8_t *>(sps.data());
    config.sps_size = static_cast<uint32_t>(sps.size());
    config.pps = reinterpret_cast<const uint8_t *>(pps.data());
    config.pps_size = static_cast<uint32_t>(pps.size());
    for (const uint32_t nType : {97U, 0U, 99U, 0U, 0U}) {
        KovaLiveTrack *pTrack = nullptr;
        config.payload_type = nType;
        EXPECT_EQ(KovaLiveAddTrack(pStream, &config, &pTrack), KOVA_LIVE_OK);
    }
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    const std::string text = client.Describe("cam").body;
    std::string types;
    const std::string line = "m=video 0 RTP/AVP ";
    for (size_t nAt = 0; (nAt = text.find(line, nAt)) != std::string::npos; nAt += line.size())
        types += text.substr(nAt + line.size(), 3) + " ";
    EXPECT_EQ(types, "97\r 96\r 99\r 98\r 100 ");
}

TEST(LiveHostCalls, WhatAStreamsHostLeavesOutHasItsDefault)
{
    KovaLiveHost host;
    const KovaLiveStream *pStream = host.AddStream("cam");
    EXPECT_EQ(pStream->nKeepBytes, 4U * 1024 * 1024);
    EXPECT_EQ(pStream->nTrackWait, 2000000U);
    EXPECT_FALSE(pStream->bKeepGroup);
    pStream = host.AddStream("door", [](KovaLiveStreamConfig *pConfig) {
        pConfig->keep_max_bytes = 1;
        pConfig->track_wait_ms = 1;
        pConfig->keep_group = 1;
    });
    EXPECT_EQ(pStream->nKeepBytes, 1U);
    EXPECT_EQ(pStream->nTrackWait, 1000U);
    EXPECT_TRUE(pStream->bKeepGroup);
}

TEST(LiveHostCalls, APortIsHadAgainAtOnce)
{
    uint16_t nPort = 0;
    for (int nTurn = 0; nTurn < 3; nTurn++) {
        KovaLiveHost host([nPort](KovaLiveConfig *pConfig) { pConfig->port = nPort; });
        ASSERT_NE(host.Live(), nullptr);
        nPort = host.Port();
        // The server ends it first, and keeps its address for a while.
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(nPort));
        EXPECT_EQ(client.Options().nStatus, 200);
        host.Close();
        EXPECT_TRUE(client.WaitClosed());
    }
}

TEST(LiveHostCalls, ARemovedStreamLeavesTheOthersInTheList)
{
    KovaLiveHost host;
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    KovaLiveStream *streams[3];
    const char *const paths[] = {"one", "two", "three"};
    for (const int nRemoved : {2, 1, 0}) {
        for (int nStream = 0; nStream < 3; nStream++) {
            streams[nStream] = host.AddStream(paths[nStream]);
            KovaLiveHost::AddVideo(streams[nStream]);
        }
        EXPECT_EQ(KovaLiveRemoveStream(streams[nRemoved]), KOVA_LIVE_OK);
        for (int nStream = 0; nStream < 3; nStream++) {
            EXPECT_EQ(client.Describe(paths[nStream]).nStatus, nStream == nRemoved ? 404 : 200);
            if (nStream != nRemoved) {
                EXPECT_EQ(KovaLiveRemoveStream(streams[nStream]), KOVA_LIVE_OK);
            }
        }
    }
}

TEST(LiveHostCalls, AUnitWithoutMemoryIsDroppedAndCounted)
{
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    const std::string unit = KovaLiveKey(100000);
    int32_t nResult = KOVA_LIVE_OK;
    {
        KovaFailingHeap failing;
        nResult = KovaLivePushText(pVideo, unit, 0);
    }
    EXPECT_EQ(nResult, KOVA_LIVE_DROPPED);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).units, 0U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).unit_bytes, 0U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).dropped_units, 1U);
    EXPECT_EQ(KovaLivePushText(pVideo, unit, 40000), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).units, 1U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).dropped_units, 1U);
}

TEST(LiveHostCalls, AUnitOfSixteenMebibytesIsTakenAndNoLargerOne)
{
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    constexpr size_t kMost = size_t{16} * 1024 * 1024;
    std::string unit = KovaLiveKey(kMost);
    unit.resize(kMost);
    unit.back() = 'x';
    EXPECT_EQ(KovaLivePushText(pVideo, unit, 0), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).units, 1U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).unit_bytes, kMost);
    EXPECT_EQ(KovaLivePushText(pVideo, unit + "x", 0), KOVA_LIVE_ERROR_TOO_LARGE);
}
