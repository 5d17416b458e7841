#include "tests/live/good_players.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

constexpr int64_t kFrameTime = 20000; // µs
constexpr unsigned kKeyEvery = 25;
constexpr size_t kLastSize = 77; // of the slice that ends it: no other has that size
constexpr int kOtherSlice = 1;
constexpr auto kAliveEvery = std::chrono::milliseconds(400);
constexpr auto kLongest = std::chrono::seconds(100);

/// Sequence numbers that go on; says what is wrong.
std::string Gap(uint16_t nSequence, int *pLast)
{
    const int nExpected = (*pLast + 1) & 0xFFFF;
    const bool bFollows = *pLast < 0 || nSequence == nExpected;
    *pLast = nSequence;
    return bFollows
               ? ""
               : "packet " + std::to_string(nSequence) + " instead of " + std::to_string(nExpected);
}

} // namespace

KovaGoodPlayers::KovaGoodPlayers(const KovaLiveHost &host, KovaLiveTrack *pVideo,
                                 const char *szPath)
    : m_pVideo(pVideo), m_szPath(szPath)
{
    m_players[1].bUdp = true;
    m_bBegun = KovaLivePlayTcp(&m_players[0].client, host, szPath) &&
               KovaLivePlayUdp(&m_players[1].client, host, szPath);
    if (!m_bBegun)
        return;
    for (Player &player : m_players)
        player.thread = std::thread([this, &player] { Watch(&player); });
    m_feed = std::thread([this] { Feed(); });
}

KovaGoodPlayers::~KovaGoodPlayers()
{
    m_bStop = true;
    if (m_feed.joinable())
        m_feed.join();
    for (Player &player : m_players) {
        if (player.thread.joinable())
            player.thread.join();
    }
}

void KovaGoodPlayers::Feed()
{
    for (unsigned nPicture = 0; !m_bStop; nPicture++) {
        const size_t nSize = 200 + nPicture * 37 % 3000;
        KovaLivePushText(m_pVideo,
                         nPicture % kKeyEvery == 0 ? KovaLiveKey(2 * nSize) : KovaLiveOther(nSize),
                         m_nPts);
        m_nPts += kFrameTime;
        std::this_thread::sleep_for(std::chrono::microseconds(kFrameTime));
    }
    KovaLivePushText(m_pVideo, KovaLiveOther(kLastSize), m_nPts);
}

void KovaGoodPlayers::Watch(Player *pPlayer) const
{
    const auto end = std::chrono::steady_clock::now() + kLongest;
    auto alive = std::chrono::steady_clock::now();
    int nLast = -1;
    while (!pPlayer->bLast && pPlayer->complaint.empty()) {
        KovaLiveRtp packet;
        if (pPlayer->client.NextRtp(1, &packet, 100)) {
            pPlayer->complaint = Gap(packet.header.nSequence, &nLast);
            pPlayer->bLast =
                packet.payload.size() == kLastSize && (packet.payload[0] & 0x1F) == kOtherSlice;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now < alive)
            continue;
        alive = now + kAliveEvery;
        const KovaLiveAnswer answer = pPlayer->client.Request("GET_PARAMETER", m_szPath);
        if (answer.nStatus != 200)
            pPlayer->complaint = "GET_PARAMETER: " + answer.text;
        if (now > end)
            pPlayer->complaint = "nothing more comes";
    }
    if (pPlayer->complaint.empty() && pPlayer->client.Teardown(m_szPath).nStatus != 200)
        pPlayer->complaint = "no answer to TEARDOWN";
    pPlayer->client.Close();
}

void KovaGoodPlayers::ExpectNothingMissed()
{
    m_bStop = true;
    m_feed.join();
    for (Player &player : m_players) {
        player.thread.join();
        EXPECT_EQ(player.complaint, "") << (player.bUdp ? "UDP" : "TCP");
    }
}
