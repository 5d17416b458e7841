#include "tests/e2e/e2e_fixture.h"

namespace {

/// What a player of pictures nFirst to nEnd gets: the slices.
std::vector<KovaReceivedUnit> PushedSlices(const KovaSyntheticSizes &sizes, unsigned nFirst,
                                           unsigned nEnd)
{
    std::vector<KovaReceivedUnit> units;
    for (unsigned i = nFirst; i < nEnd; i++)
        for (std::string &slice : KovaSyntheticSlices(sizes, i))
            units.push_back({KovaPictureTime(i) * 90, std::move(slice)});
    return units;
}

/// Compares without printing megabytes.
void ExpectSame(const std::vector<KovaReceivedUnit> &received,
                const std::vector<KovaReceivedUnit> &pushed)
{
    ASSERT_EQ(received.size(), pushed.size());
    for (size_t i = 0; i < pushed.size(); i++) {
        ASSERT_EQ(received[i].nTimestamp, pushed[i].nTimestamp) << "unit " << i;
        ASSERT_EQ(received[i].bytes.size(), pushed[i].bytes.size()) << "unit " << i;
        ASSERT_TRUE(received[i].bytes == pushed[i].bytes) << "unit " << i;
    }
}

/// Pictures from a number on to the end, each slice byte for byte, nothing lost or doubled.
void ExpectPictures(const KovaPlayer &player, const KovaTestServer &server,
                    const KovaSyntheticSizes &sizes, unsigned nFirst, unsigned nEnd)
{
    KovaH264Depacketizer video;
    KovaReassemble(player, 97, &video);
    EXPECT_EQ(video.Complaint(), "");
    EXPECT_EQ(video.First().nPayloadType, 97);
    EXPECT_EQ(video.First().nSsrc, server.Ssrc(97));
    ExpectSame(video.Units(), PushedSlices(sizes, nFirst, nEnd));
}

/// Sound frames, contiguous, to the end; returns the number of the first.
unsigned ExpectSound(const KovaPlayer &player, const KovaTestServer &server, unsigned nEnd)
{
    KovaAacDepacketizer audio;
    KovaReassemble(player, 96, &audio);
    EXPECT_EQ(audio.Complaint(), "");
    EXPECT_EQ(audio.First().nPayloadType, 96);
    EXPECT_EQ(audio.First().nSsrc, server.Ssrc(96));
    const unsigned nGot = static_cast<unsigned>(audio.Units().size());
    EXPECT_LE(nGot, nEnd);
    const unsigned nFirst = nEnd - std::min(nGot, nEnd);
    for (unsigned i = 0; i < nGot; i++) {
        if (audio.Units()[i].bytes != KovaSyntheticSound(nFirst + i)) {
            ADD_FAILURE() << "sound frame " << nFirst + i;
            break;
        }
    }
    return nFirst;
}

TEST_F(EndToEnd, PlayersOnBothTransportsGetFullHdByteForByte)
{
    const KovaSyntheticSizes sizes;
    ASSERT_TRUE(m_server->PushReady());
    KovaPlayer udp(true), tcp(false), late(true);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
    }
    KovaSyntheticFeed feed(m_server->Stream(), sizes);
    feed.Start(6000);
    KovaCollect({&udp, &tcp}, 2500);
    ASSERT_TRUE(late.SetUp(m_server.get()));
    ASSERT_TRUE(late.Play());
    KovaCollect({&udp, &tcp, &late}, 4600);
    feed.Finish();
    KovaCollect({&udp, &tcp, &late}, 300);

    EXPECT_EQ(feed.Pictures(), 180u);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ExpectPictures(*pPlayer, *m_server, sizes, 0, feed.Pictures());
        EXPECT_EQ(ExpectSound(*pPlayer, *m_server, feed.Sounds()), 0u);
    }
    // One second behind: at 2.5 s the pictures of 1.5 s are going out; the next key frame is
    // number 60, the one after it 90.
    KovaH264Depacketizer video;
    KovaReassemble(late, 97, &video);
    ASSERT_GT(video.Units().size(), 0u);
    const unsigned nFirst = video.Units().front().nTimestamp == KovaPictureTime(60) * 90 ? 60 : 90;
    ExpectPictures(late, *m_server, sizes, nFirst, feed.Pictures());
    const unsigned nSound = ExpectSound(late, *m_server, feed.Sounds());
    EXPECT_GT(KovaSoundTime(nSound), 2200u); // 1000 at the begin, 1.5 s in
    EXPECT_LT(KovaSoundTime(nSound), 3600u);
}

TEST_F(EndToEnd, PlayerWaitsForAKeyFrameButNotForSound)
{
    ASSERT_TRUE(m_server->PushReady());
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(3300);
    KovaPlayer early(false), late(false);
    ASSERT_TRUE(early.SetUp(m_server.get()));
    ASSERT_TRUE(early.Play());
    // The early player shows when a picture in the middle of a second goes out.
    ASSERT_TRUE(KovaWaitUntil(5000, [&] {
        KovaCollect({&early}, 2);
        KovaRtpHeaderFields header;
        for (const KovaArrival &arrival : early.Arrivals())
            if (arrival.nTrack == 97 && !arrival.bRtcp &&
                KovaReadRtpHeader(arrival.packet, &header) &&
                header.nTimestamp >= KovaPictureTime(36) * 90)
                return true;
        return false;
    }));
    ASSERT_TRUE(late.SetUp(m_server.get()));
    ASSERT_TRUE(late.Play());
    feed.Finish();
    KovaCollect({&early, &late}, 1300);
    ASSERT_GT(late.Arrivals().size(), 0u);
    KovaH264Depacketizer video;
    KovaReassemble(late, 97, &video);
    ASSERT_GT(video.Units().size(), 0u);
    EXPECT_EQ(video.Complaint(), "");
    EXPECT_EQ(video.Units().front().bytes[0], '\x65');
    EXPECT_EQ(video.Units().front().nTimestamp, KovaPictureTime(60) * 90);
    KovaAacDepacketizer audio;
    KovaReassemble(late, 96, &audio);
    EXPECT_EQ(audio.Complaint(), "");
    // 24 pictures without a key frame are some 34 sound frames ahead of the first key frame.
    size_t nAhead = 0;
    for (const KovaArrival &arrival : late.Arrivals()) {
        if (arrival.nTrack == 97 && !arrival.bRtcp)
            break;
        nAhead += !arrival.bRtcp;
    }
    EXPECT_GE(nAhead, 8u);
}

} // namespace
