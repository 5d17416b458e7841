#pragma once

#include "tests/live/live_host.h"

#include <atomic>
#include <memory>
#include <thread>

/// Pictures that are pushed all the time into track 1 of a stream, and a player over UDP and one
/// over TCP that want every packet of them, whatever happens to the server meanwhile. They keep
/// their sessions by requests.
class KovaGoodPlayers {
public:
    KovaGoodPlayers(const KovaLiveHost &host, KovaLiveTrack *pVideo, const char *szPath = "live");
    ~KovaGoodPlayers();
    KovaGoodPlayers(const KovaGoodPlayers &) = delete;
    KovaGoodPlayers &operator=(const KovaGoodPlayers &) = delete;

    /// Whether both play.
    bool Begun() const
    {
        return m_bBegun;
    }
    /// Pushes one last picture, waits for it at both, and lets them go by TEARDOWN. What they
    /// missed is a failure of the test. Once.
    void ExpectNothingMissed();

private:
    struct Player {
        KovaLiveClient client;
        bool bUdp = false;
        std::thread thread;
        std::string complaint; ///< read behind the thread's end
        bool bLast = false;    ///< so is this
    };
    void Feed();
    void Watch(Player *pPlayer) const;

    KovaLiveTrack *m_pVideo;
    const char *m_szPath;
    int64_t m_nPts = 0;
    std::atomic<bool> m_bStop{false};
    bool m_bBegun = false;
    Player m_players[2];
    std::thread m_feed;
};
