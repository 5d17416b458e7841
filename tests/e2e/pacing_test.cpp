#include "tests/e2e/e2e_fixture.h"

#include <map>

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint32_t kNtpOffset = 2208988800u; // 1900 to 1970, seconds

uint32_t Word(const std::string &packet, size_t nIndex)
{
    uint32_t nValue = 0;
    for (size_t i = nIndex * 4; i < nIndex * 4 + 4; i++)
        nValue = nValue << 8 | static_cast<uint8_t>(packet[i]);
    return nValue;
}

double Milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

TEST_F(EndToEnd, PicturesGoOutOneSecondBehindInTheirOwnRhythm)
{
    m_server->MakeReady();
    KovaPlayer player(false);
    ASSERT_TRUE(player.SetUp(m_server.get()));
    ASSERT_TRUE(player.Play());
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(2500);
    KovaCollect({&player}, 3800);
    feed.Finish();

    std::map<uint32_t, Clock::time_point> first; // by picture time, in ms
    uint32_t nLast = 0;
    for (const KovaArrival &arrival : player.Arrivals()) {
        KovaRtpHeaderFields header;
        if (arrival.nTrack != 97 || arrival.bRtcp || !KovaReadRtpHeader(arrival.packet, &header))
            continue;
        EXPECT_GE(header.nTimestamp, nLast);
        nLast = header.nTimestamp;
        first.emplace(header.nTimestamp / 90, arrival.when);
    }
    ASSERT_EQ(first.size(), 75u);
    // The first packet of the stream sets the time base and does not wait.
    const uint32_t nBegin = KovaPictureTime(0);
    EXPECT_LT(Milliseconds(first.begin()->second - feed.Begin()), 700);
    for (unsigned i = 1; i < 75; i++) {
        const double behind =
            Milliseconds(first[KovaPictureTime(i)] - feed.Begin()) - (KovaPictureTime(i) - nBegin);
        ASSERT_GT(behind, 950) << "picture " << i;
        ASSERT_LT(behind, 1800) << "picture " << i;
    }
    const double span = Milliseconds(first[KovaPictureTime(70)] - first[KovaPictureTime(10)]);
    EXPECT_NEAR(span / (KovaPictureTime(70) - KovaPictureTime(10)), 1.0, 0.15);
}

TEST_F(EndToEnd, SenderReportsTellTimeAndCountsAtMostEverySixSeconds)
{
    m_server->MakeReady();
    KovaPlayer tcp(false), udp(true);
    for (KovaPlayer *pPlayer : {&tcp, &udp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
    }
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(5700);
    KovaCollect({&tcp, &udp}, 7000);
    feed.Finish();
    const uint32_t tCreated = m_server->Stream()->tCreated;

    for (int nTrack = 96; nTrack <= 97; nTrack++) {
        SCOPED_TRACE(nTrack);
        uint32_t nPackets = 0, nOctets = 0, nReports = 0;
        Clock::time_point last;
        for (size_t i = 0; i < tcp.Arrivals().size(); i++) {
            const KovaArrival &arrival = tcp.Arrivals()[i];
            if (arrival.nTrack != nTrack)
                continue;
            if (!arrival.bRtcp) {
                // The report comes in front of the first packet.
                EXPECT_GT(nReports, 0u);
                nPackets++;
                nOctets += static_cast<uint32_t>(arrival.packet.size());
                continue;
            }
            ASSERT_EQ(arrival.packet.size(), 28u);
            EXPECT_EQ(Word(arrival.packet, 0), 0x80C80006u);
            EXPECT_EQ(Word(arrival.packet, 1), m_server->Ssrc(static_cast<uint32_t>(nTrack)));
            EXPECT_EQ(Word(arrival.packet, 5), nPackets);
            EXPECT_EQ(Word(arrival.packet, 6), nOctets);
            // The packet behind it carries the same RTP timestamp.
            for (size_t j = i + 1; j < tcp.Arrivals().size(); j++) {
                const KovaArrival &next = tcp.Arrivals()[j];
                if (next.nTrack != nTrack)
                    continue;
                EXPECT_EQ(Word(next.packet, 1), Word(arrival.packet, 4));
                break;
            }
            if (nTrack == 97) {
                const uint32_t nPts = Word(arrival.packet, 4) / 90;
                EXPECT_EQ(Word(arrival.packet, 2), nPts / 1000 + tCreated + kNtpOffset);
                EXPECT_EQ(Word(arrival.packet, 3),
                          static_cast<uint32_t>((nPts % 1000) * 4294967.296));
            }
            if (nReports > 0) {
                // Whole seconds are compared, and the first packet did not wait a second.
                EXPECT_GT(Milliseconds(arrival.when - last), 4900);
                EXPECT_LT(Milliseconds(arrival.when - last), 7500);
            }
            last = arrival.when;
            nReports++;
        }
        EXPECT_EQ(nReports, 2u);
    }
    unsigned nUdpReports[2] = {};
    for (const KovaArrival &arrival : udp.Arrivals())
        if (arrival.bRtcp) {
            nUdpReports[arrival.nTrack - 96]++;
            EXPECT_EQ(arrival.packet.size(), 28u);
        }
    EXPECT_EQ(nUdpReports[0], 2u);
    EXPECT_EQ(nUdpReports[1], 2u);
}

} // namespace
