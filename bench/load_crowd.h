#pragma once

#include "bench/load_player.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a measurement saw.
struct KovaLoadResult {
    KovaLoadCounts counts;
    size_t nPlayers = 0;
    size_t nSilent = 0; ///< players of whom a track got nothing
    double fSeconds = 0;
    uint32_t nWorstGap = 0; ///< between two pictures of one player, milliseconds
    double fCpu = 0;        ///< processor time that this process took, seconds
};

/// Any number of players in one thread. The calls below go on receiving while they wait.
class KovaLoadCrowd {
public:
    KovaLoadCrowd(KovaLoadWorld *pWorld, std::vector<KovaLoadStream> streams);

    /// Lets players join or leave until there are nPlayers, which take the streams in turn. False
    /// when that takes longer than nSeconds.
    bool SetPlayers(size_t nPlayers, unsigned nSeconds);
    /// Waits until all have heard each track, at most nSeconds.
    bool WaitHeard(unsigned nSeconds);
    KovaLoadResult Measure(double fSeconds);
    /// Waits until hardly anything comes, at most nSeconds.
    bool Settle(unsigned nSeconds);
    /// Waits until a descriptor is readable.
    void WaitFor(int nDescriptor);

    size_t Players() const
    {
        return m_players.size();
    }
    /// The longest time that a player took to join so far, microseconds.
    uint64_t MostJoin() const
    {
        return m_pWorld->nMostJoin;
    }
    /// Answers to TEARDOWN so far.
    size_t Left() const
    {
        return m_nLeft;
    }
    /// Players who were refused or lost their connection, and what happened to the first.
    size_t Broken() const
    {
        return m_nBroken;
    }
    const std::string &Trouble() const
    {
        return m_trouble;
    }

private:
    bool PumpUntil(uint64_t nEnd, const std::function<bool()> &isDone);
    void Pump();
    void Reap();
    size_t CountIn(KovaLoadPlayer::State state) const;

    KovaLoadWorld *m_pWorld;
    std::vector<KovaLoadStream> m_streams;
    std::vector<std::unique_ptr<KovaLoadPlayer>> m_players;
    std::vector<std::unique_ptr<KovaLoadPlayer>> m_leaving;
    size_t m_nJoined = 0;
    size_t m_nLeft = 0;
    size_t m_nBroken = 0;
    bool m_bOther = false; ///< the descriptor waited for is readable
    uint64_t m_nNextTick = 0;
    std::string m_trouble;
};
