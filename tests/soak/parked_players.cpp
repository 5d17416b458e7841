#include "tests/soak/parked_players.h"

#include "tests/support/wait_until.h"

#include <algorithm>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kInterval(50);
/// The group that sends to a lost player may be waiting for another one.
constexpr std::chrono::seconds kPatience(40);

} // namespace

KovaParkedPlayers::KovaParkedPlayers(const KovaSoakStage &stage)
    : m_stage(stage), m_thread([this] { Run(); })
{}

KovaParkedPlayers::~KovaParkedPlayers()
{
    m_bEnd = true;
    m_thread.join();
}

void KovaParkedPlayers::Add(std::unique_ptr<KovaSoakPlayer> player)
{
    m_stage.pScore->nExpired += player->HasSession() && !player->EndsByItself();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_parked.push_back({std::move(player), Clock::now()});
}

bool KovaParkedPlayers::WaitEmpty(int nMilliseconds)
{
    return KovaWaitUntil(nMilliseconds, [this] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_parked.empty();
    });
}

bool KovaParkedPlayers::IsGone(const Parked &parked)
{
    KovaSoakPlayer &player = *parked.player;
    if (!player.HasSession() || !m_stage.pSessions->Exists(player.SessionNumber()))
        return true;
    // Again and again: a keep-alive may still be on its way.
    if (!player.EndsByItself())
        m_stage.pSessions->Expire(player.SessionNumber());
    if (Clock::now() - parked.since < kPatience)
        return false;
    player.Complain("its session stays; " + player.Situation());
    return true;
}

void KovaParkedPlayers::Look()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_parked.erase(std::remove_if(m_parked.begin(), m_parked.end(),
                                  [this](const Parked &parked) { return IsGone(parked); }),
                   m_parked.end());
}

void KovaParkedPlayers::Run()
{
    while (!m_bEnd) {
        Look();
        std::this_thread::sleep_for(kInterval);
    }
}
