#include "bench/load_crowd.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

namespace {

constexpr size_t kMostJoining = 16;
constexpr int kMostEvents = 4096;
constexpr uint64_t kTick = 50'000; // microseconds
// Packets are collected for a moment: to be woken for each would cost the sending side, too, which
// it does not cost where the players are on other machines.
constexpr unsigned kNap = 2'000;
constexpr int kLongWait = 20; // for whatever comes, milliseconds
constexpr int kPacedWait = 2; // until somebody else may have to join
constexpr uint64_t kQuietSpan = 300'000;
constexpr uint64_t kQuietPackets = 20; // of one player in one second
constexpr unsigned kQuietSpans = 2;    // one after the other

double CpuSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

uint64_t After(double fSeconds)
{
    return KovaLoadNow() + static_cast<uint64_t>(fSeconds * 1e6);
}

} // namespace

KovaLoadCrowd::KovaLoadCrowd(KovaLoadWorld *pWorld, std::vector<KovaLoadStream> streams)
    : m_pWorld(pWorld), m_streams(std::move(streams))
{
    pWorld->nEpoll = epoll_create1(EPOLL_CLOEXEC);
    pWorld->nNow = KovaLoadNow();
}

bool KovaLoadCrowd::SetPlayers(size_t nPlayers, unsigned nSeconds)
{
    while (m_players.size() > nPlayers) {
        m_players.back()->Leave();
        m_leaving.push_back(std::move(m_players.back()));
        m_players.pop_back();
    }
    const uint64_t nBegin = KovaLoadNow();
    const size_t nWanted = nPlayers - m_players.size();
    size_t nMissing = nWanted;
    const auto isNextDue = [&] {
        if (m_pWorld->nPace == 0)
            return CountIn(KovaLoadPlayer::kJoining) < kMostJoining;
        return nWanted - nMissing <= (KovaLoadNow() - nBegin) * m_pWorld->nPace / 1'000'000;
    };
    return PumpUntil(After(nSeconds), [&] {
        while (nMissing != 0 && isNextDue()) {
            KovaLoadStream *pStream = &m_streams[m_nJoined++ % m_streams.size()];
            m_players.push_back(std::make_unique<KovaLoadPlayer>(m_pWorld, pStream));
            m_players.back()->Join();
            nMissing--;
        }
        return m_leaving.empty() && nMissing == 0 && CountIn(KovaLoadPlayer::kJoining) == 0;
    });
}

bool KovaLoadCrowd::WaitHeard(unsigned nSeconds)
{
    return PumpUntil(After(nSeconds), [this] {
        return std::all_of(m_players.begin(), m_players.end(),
                           [](const auto &pPlayer) { return pPlayer->HasHeard(); });
    });
}

KovaLoadResult KovaLoadCrowd::Measure(double fSeconds)
{
    const uint64_t nBegin = m_pWorld->nNow = KovaLoadNow();
    for (const auto &pPlayer : m_players)
        pPlayer->Forget();
    m_pWorld->counts = {};
    const double fCpuBegin = CpuSeconds();
    PumpUntil(After(fSeconds), [] { return false; });
    KovaLoadResult result;
    result.counts = m_pWorld->counts;
    result.nPlayers = m_players.size();
    result.fSeconds = static_cast<double>(KovaLoadNow() - nBegin) / 1e6;
    result.fCpu = CpuSeconds() - fCpuBegin;
    for (const auto &pPlayer : m_players) {
        result.nSilent += pPlayer->HasHeard() ? 0 : 1;
        result.nWorstGap = std::max(result.nWorstGap, pPlayer->WorstGap());
    }
    return result;
}

bool KovaLoadCrowd::Settle(unsigned nSeconds)
{
    uint64_t nSpanEnd = m_pWorld->nNow + kQuietSpan;
    const uint64_t nMost = kQuietPackets * kQuietSpan / 1'000'000 * std::max<size_t>(1, Players());
    unsigned nQuiet = 0;
    m_pWorld->counts = {};
    return PumpUntil(After(nSeconds), [&] {
        if (m_pWorld->nNow < nSpanEnd)
            return false;
        const KovaLoadCounts counts = std::exchange(m_pWorld->counts, KovaLoadCounts{});
        nSpanEnd = m_pWorld->nNow + kQuietSpan;
        nQuiet = counts.nPackets <= nMost && counts.nLate == 0 ? nQuiet + 1 : 0;
        return nQuiet == kQuietSpans;
    });
}

void KovaLoadCrowd::WaitFor(int nDescriptor)
{
    epoll_event event = {};
    event.events = EPOLLIN;
    m_bOther = false;
    // A file is always readable, and epoll does not take it.
    if (epoll_ctl(m_pWorld->nEpoll, EPOLL_CTL_ADD, nDescriptor, &event) != 0)
        return;
    while (!m_bOther)
        Pump();
    epoll_ctl(m_pWorld->nEpoll, EPOLL_CTL_DEL, nDescriptor, &event);
}

bool KovaLoadCrowd::PumpUntil(uint64_t nEnd, const std::function<bool()> &isDone)
{
    while (!isDone()) {
        if (m_pWorld->nNow >= nEnd)
            return false;
        Pump();
    }
    return true;
}

void KovaLoadCrowd::Pump()
{
    static std::vector<epoll_event> s_events(kMostEvents);
    const bool bBusy = !m_leaving.empty() || CountIn(KovaLoadPlayer::kJoining) != 0;
    if (!bBusy)
        usleep(kNap);
    const int nMost = m_pWorld->nPace == 0 ? kLongWait : kPacedWait;
    const int nEvents = epoll_wait(m_pWorld->nEpoll, s_events.data(), kMostEvents, nMost);
    m_pWorld->nNow = KovaLoadNow();
    for (int nEvent = 0; nEvent < nEvents; nEvent++) {
        const auto *pEnd = static_cast<const KovaLoadEnd *>(s_events[nEvent].data.ptr);
        if (pEnd == nullptr)
            m_bOther = true;
        else
            pEnd->pPlayer->OnReadable(*pEnd);
    }
    Reap();
    if (m_pWorld->nNow < m_nNextTick)
        return;
    m_nNextTick = m_pWorld->nNow + kTick;
    for (const auto &pPlayer : m_players)
        pPlayer->Tick();
}

/// Counts the players who are through, and forgets them.
void KovaLoadCrowd::Reap()
{
    const auto isThrough = [this](const std::unique_ptr<KovaLoadPlayer> &pPlayer) {
        if (pPlayer->GetState() == KovaLoadPlayer::kLeft)
            m_nLeft++;
        else if (pPlayer->GetState() == KovaLoadPlayer::kBroken && m_nBroken++ == 0)
            m_trouble = pPlayer->Trouble();
        return pPlayer->GetState() == KovaLoadPlayer::kLeft ||
               pPlayer->GetState() == KovaLoadPlayer::kBroken;
    };
    for (auto *pList : {&m_players, &m_leaving})
        pList->erase(std::remove_if(pList->begin(), pList->end(), isThrough), pList->end());
}

size_t KovaLoadCrowd::CountIn(KovaLoadPlayer::State state) const
{
    return static_cast<size_t>(
        std::count_if(m_players.begin(), m_players.end(),
                      [&](const auto &pPlayer) { return pPlayer->GetState() == state; }));
}
