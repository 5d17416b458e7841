#pragma once

#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/stream.h"
#include "tests/live/live_host.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// A server on the loopback address whose loops have no threads and whose clock stands still: both
/// go on when the test says so, and no further. What happens at which time, and how often, can be
/// told exactly, however busy the machine is. One object at a time.
class KovaSteppedServer {
public:
    /// @param nLoops  1 to kLiveMaxLoops
    /// @param change  changes the configuration before the server is made
    explicit KovaSteppedServer(uint32_t nLoops = 1,
                               const std::function<void(KovaLiveConfig *)> &change = nullptr);
    ~KovaSteppedServer();
    KovaSteppedServer(const KovaSteppedServer &) = delete;
    KovaSteppedServer &operator=(const KovaSteppedServer &) = delete;

    KovaLive *Live()
    {
        return &m_live;
    }
    KovaLiveLoop *Loop(uint32_t nLoop = 0) const
    {
        return m_live.pLoops[nLoop];
    }
    uint16_t Port() const
    {
        return m_nPort;
    }

    /// Moves the monotonic clock and the wall clock forth, in microseconds. No loop runs.
    static void Advance(uint64_t nMicroseconds);
    /// Lets each loop do so many rounds, without waiting for anything.
    void Run(int nRounds = 4);
    /// Lets the loops run while a player talks to them; they stand again afterwards.
    void Serve(const std::function<void()> &talk);

    /// The answer that a player gets after this time and not before.
    KovaLiveAnswer AnswerAfter(KovaLiveClient *pClient, uint64_t nMicroseconds);

    /// A stream, and video of it that is known from the beginning.
    KovaLiveStream *AddStream(const char *szPath,
                              const std::function<void(KovaLiveStreamConfig *)> &change = nullptr);
    /// Connects, sets up track 1 and plays.
    bool Play(KovaLiveClient *pClient, bool bUdp, const char *szPath = "cam");

    /// What the host was told, of one type or all (0); and the lines of its log.
    std::vector<KovaToldEvent> Events(uint32_t nType = 0) const;
    std::vector<std::string> lines;

    KovaLiveServerNumbers Figures();
    std::vector<KovaLivePlayer> Players();

private:
    KovaLive m_live = {};
    uint16_t m_nPort = 0;
    std::vector<KovaToldEvent> m_events;
};
