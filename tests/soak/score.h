#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

/// What all players of a run did, and what went wrong.
struct KovaSoakScore {
    std::atomic<unsigned> nPlayers{0};
    std::atomic<unsigned> nUnits{0};    ///< units of media that were right
    std::atomic<int> nPlays{0};         ///< PLAY requests answered 200
    std::atomic<int> nSessions{0};      ///< sessions that had media clients
    std::atomic<unsigned> nExpired{0};  ///< sessions that were made to expire
    std::atomic<unsigned> nUnread{0};   ///< players that stopped reading
    std::atomic<unsigned> nRequests{0}; ///< answered 200, whatever they were

    /// Notes a failure; the first few are kept.
    void Complain(const std::string &text);
    /// Prints what went wrong, in the name of a mode.
    void Report(const char *szMode);
    unsigned Failures() const
    {
        return m_nFailures;
    }

private:
    std::mutex m_mutex;
    std::atomic<unsigned> m_nFailures{0};
    std::vector<std::string> m_complaints;
};
