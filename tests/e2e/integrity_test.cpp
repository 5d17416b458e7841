#include "tests/e2e/e2e_fixture.h"

#include <algorithm>
#include <memory>

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

/// The number of the picture with this RTP timestamp.
unsigned PictureAt(uint32_t nTimestamp)
{
    unsigned nPicture = 0;
    while (KovaPictureTime(nPicture) * 90 < nTimestamp)
        nPicture++;
    return nPicture;
}

/// The picture that a player has last got a packet of; 0 before the first.
unsigned LastPicture(const KovaPlayer &player)
{
    KovaRtpHeaderFields header;
    for (auto arrival = player.Arrivals().rbegin(); arrival != player.Arrivals().rend(); ++arrival)
        if (arrival->nTrack == 97 && !arrival->bRtcp && KovaReadRtpHeader(arrival->packet, &header))
            return PictureAt(header.nTimestamp);
    return 0;
}

/// Whether a player has got the last slice of a picture.
bool HasEndOf(const KovaPlayer &player, const KovaSyntheticSizes &sizes, unsigned nPicture)
{
    KovaH264Depacketizer video;
    KovaRtpHeaderFields header;
    for (const KovaArrival &arrival : player.Arrivals())
        if (arrival.nTrack == 97 && !arrival.bRtcp && KovaReadRtpHeader(arrival.packet, &header) &&
            header.nTimestamp == KovaPictureTime(nPicture) * 90)
            video.Take(arrival.packet);
    return !video.Units().empty() &&
           video.Units().back().bytes == KovaSyntheticSlices(sizes, nPicture).back();
}

/// Whether a player's last sound is the frame of this number.
bool EndsWithSound(const KovaPlayer &player, unsigned nFrame)
{
    KovaAacDepacketizer audio;
    for (auto arrival = player.Arrivals().rbegin(); arrival != player.Arrivals().rend(); ++arrival)
        if (arrival->nTrack == 96 && !arrival->bRtcp) {
            audio.Take(arrival->packet);
            break;
        }
    return !audio.Units().empty() && audio.Units().back().bytes == KovaSyntheticSound(nFrame);
}

/// Lets the players take what arrives until each has all that was pushed.
bool AwaitEnd(const std::vector<KovaPlayer *> &players, const KovaSyntheticSizes &sizes,
              const KovaSyntheticFeed &feed)
{
    return KovaWaitUntil(30000, [&] {
        KovaCollect(players, 20);
        return std::all_of(players.begin(), players.end(), [&](const KovaPlayer *pPlayer) {
            return EndsWithSound(*pPlayer, feed.Sounds() - 1) &&
                   HasEndOf(*pPlayer, sizes, feed.Pictures() - 1);
        });
    });
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
    KovaPlayer udp(true), tcp(false);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
    }
    KovaSyntheticFeed feed(m_server->Stream(), sizes);
    feed.Start(60000); // until it is stopped
    // Who is set up while a key frame goes by starts in its middle: the late one asks again when
    // it was not answered well before the next.
    std::unique_ptr<KovaPlayer> late;
    unsigned nBefore = 0, nSoundsBefore = 0, nAfter = 0, nSoundsAfter = 0;
    for (int i = 0; i < 20 && nAfter == 0; i++) {
        ASSERT_TRUE(KovaWaitUntil(20000, [&] {
            KovaCollect({&udp, &tcp}, 5);
            return LastPicture(tcp) % kSyntheticFps >= kSyntheticFps / 2;
        }));
        nBefore = LastPicture(tcp);
        nSoundsBefore = static_cast<unsigned>(tcp.RtpCount(96));
        late = std::make_unique<KovaPlayer>(true);
        ASSERT_TRUE(late->SetUp(m_server.get()));
        ASSERT_TRUE(late->Play());
        nSoundsAfter = feed.Sounds();
        KovaCollect({&udp, &tcp}, 5);
        const unsigned nNow = LastPicture(tcp);
        if (nNow / kSyntheticFps == nBefore / kSyntheticFps && nNow % kSyntheticFps < 27)
            nAfter = nNow;
    }
    ASSERT_GT(nAfter, 0u);
    const unsigned nKey = (nAfter / kSyntheticFps + 1) * kSyntheticFps;
    ASSERT_TRUE(KovaWaitUntil(30000, [&] {
        KovaCollect({&udp, &tcp, late.get()}, 5);
        return LastPicture(*late) >= nKey + 2 * kSyntheticFps;
    }));
    feed.Stop();
    EXPECT_TRUE(AwaitEnd({&udp, &tcp, late.get()}, sizes, feed));

    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ExpectPictures(*pPlayer, *m_server, sizes, 0, feed.Pictures());
        EXPECT_EQ(ExpectSound(*pPlayer, *m_server, feed.Sounds()), 0u);
    }
    // The pictures from the next key frame on; of the sound, what was pushed after the answer and
    // nothing that had gone out before the question.
    ExpectPictures(*late, *m_server, sizes, nKey, feed.Pictures());
    const unsigned nSound = ExpectSound(*late, *m_server, feed.Sounds());
    EXPECT_GE(nSound, nSoundsBefore);
    EXPECT_LE(nSound, nSoundsAfter);
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
