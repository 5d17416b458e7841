#pragma once

#include "classic/streamer/registries.h"
#include "tests/support/fake_clock.h"
#include "tests/support/player.h"
#include "tests/support/server_records.h"
#include "tests/support/synthetic_media.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <string>

/// A started server with one stream, fed with small pictures unless the test wants others.
class EndToEnd : public ::testing::Test {
protected:
    EndToEnd()
    {
        // The library's millisecond clock wraps every 71 minutes; no test runs over that.
        m_clock.StartAt((int64_t{400000} << 32) + 60'000'000);
    }

    void SetUp() override
    {
        m_server = std::make_unique<KovaTestServer>();
        ASSERT_TRUE(m_server->IsUp());
    }

    /// A figure of the stream.
    uint32_t Figure(uint32_t nType)
    {
        KovaRtspStatus status = {};
        status.nType = nType;
        EXPECT_EQ(KovaRtspServerGetStatus(m_server->Stream(), &status), KOVA_OK);
        return status.value.nStreamStatus;
    }
    int32_t ClientCount()
    {
        return static_cast<int32_t>(Figure(KOVA_STATUS_CLIENT_COUNT));
    }
    /// Players of a track. Looks at no connection: those come and go meanwhile.
    unsigned TrackClients(uint32_t nPayloadId)
    {
        unsigned nCount = 0;
        KovaRtpSender *pSender =
            KovaRtspStreamerGetRtpSenderByPayloadId(m_server->Stream(), nPayloadId);
        pthread_mutex_lock(&pSender->mutex.native);
        for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next)
            nCount += KovaRtpSendGroupClientCount(static_cast<KovaRtpSendGroup *>(pNode->data));
        pthread_mutex_unlock(&pSender->mutex.native);
        return nCount;
    }
    /// Waits for a stream status; the players go on meanwhile.
    bool AwaitStatus(uint32_t nStatus, const std::vector<KovaPlayer *> &players = {})
    {
        return KovaWaitUntil(6000, [&] {
            KovaCollect(players, 5);
            return Figure(KOVA_STATUS_STREAM) == nStatus;
        });
    }
    /// Waits until a player has so many packets of a track; the others go on meanwhile.
    bool AwaitPackets(KovaPlayer *pPlayer, int nTrack, size_t nCount,
                      const std::vector<KovaPlayer *> &others = {})
    {
        std::vector<KovaPlayer *> players = others;
        players.push_back(pPlayer);
        return KovaWaitUntil(20000, [&] {
            KovaCollect(players, 5);
            return pPlayer->RtpCount(nTrack) >= nCount;
        });
    }
    /// Moves a session's expiry; false when there is no such session.
    bool SetExpiry(const std::string &session, int32_t tExpire)
    {
        return KovaSetExpiry(m_server->Server(), session, tExpire);
    }
    int32_t Now() const
    {
        return static_cast<int32_t>(m_clock.Now() / 1000000);
    }

    KovaFakeClock m_clock;
    std::unique_ptr<KovaTestServer> m_server;
    KovaSyntheticSizes m_small = {4000, 1800};
};
