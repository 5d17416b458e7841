#include "tests/soak/parked_players.h"

#include "foundation/scope_guard.h"
#include "rtsp/server_calls.h"
#include "tests/support/wait_until.h"

#include <algorithm>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kInterval(50);
/// The group that sends to a lost player may be waiting for another one.
constexpr std::chrono::seconds kPatience(40);

} // namespace

void KovaExpireSession(KovaRtspServer *pServer, const std::string &session)
{
    const KovaMutexLock lock(&pServer->mtxSession);
    for (KovaList *pNode = pServer->pSessionList; pNode != nullptr; pNode = pNode->next) {
        auto *pSession = static_cast<KovaRtspSession *>(pNode->data);
        if (session.empty() || session == pSession->szSessionId)
            pSession->tExpire = 1;
    }
}

KovaParkedPlayers::KovaParkedPlayers(KovaRtspServer *pServer, KovaSoakScore *pScore)
    : m_pServer(pServer), m_pScore(pScore), m_thread([this] { Run(); })
{}

KovaParkedPlayers::~KovaParkedPlayers()
{
    m_bEnd = true;
    m_thread.join();
}

void KovaParkedPlayers::Add(std::unique_ptr<KovaSoakPlayer> player)
{
    if (player->HasSession() && !player->EndsByItself()) {
        KovaExpireSession(m_pServer, player->Session());
        m_pScore->nExpired++;
    }
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
    if (!parked.player->HasSession() ||
        KovaRtspServerIsSessionExist(m_pServer, parked.player->Session().c_str()) == 0)
        return true;
    if (Clock::now() - parked.since < kPatience)
        return false;
    m_pScore->Complain(parked.player->Scenario() + ": session " + parked.player->Session() +
                       " stays");
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
