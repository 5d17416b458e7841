#pragma once

#include "bench/rtsp_input.h"
#include "bench/track_check.h"

#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A stream that is played, and what its players know together.
struct KovaLoadStream {
    std::string url;
    sockaddr_in address = {};
    std::vector<KovaTrackClock> clocks; ///< one for each track of the description
};

/// What all players share.
struct KovaLoadWorld {
    int nEpoll = -1;
    bool bUdp = false;
    uint32_t nLateLimit = 200;    ///< milliseconds
    uint64_t nKeepAlive = 20'000; ///< milliseconds between two GET_PARAMETER
    unsigned nPace = 0;           ///< players who join in a second; 0: some at a time
    uint64_t nMostJoin = 0;       ///< microseconds from a connection to the answer to PLAY
    KovaLoadCounts counts;
    uint64_t nNow = 0; ///< microseconds, renewed often
};

class KovaLoadPlayer;

/// What epoll gives back.
struct KovaLoadEnd {
    enum Kind {
        kRtsp,
        kRtp,
        kRtcp
    };
    KovaLoadPlayer *pPlayer;
    Kind kind;
    size_t nTrack;
    int nSocket;
};

/// A player: its dialogue, a step for each answer, and its tracks. Nothing waits.
class KovaLoadPlayer {
public:
    enum State {
        kJoining,
        kPlaying,
        kLeaving,
        kLeft,  ///< after the answer to its TEARDOWN
        kBroken ///< refused, or the connection ended
    };

    KovaLoadPlayer(KovaLoadWorld *pWorld, KovaLoadStream *pStream);
    ~KovaLoadPlayer();
    KovaLoadPlayer(const KovaLoadPlayer &) = delete;
    KovaLoadPlayer &operator=(const KovaLoadPlayer &) = delete;

    void Join();
    void Leave();
    /// Reads what has come to one of its sockets.
    void OnReadable(const KovaLoadEnd &end);
    /// Called now and then: keeps the session alive.
    void Tick();

    State GetState() const
    {
        return m_state;
    }
    /// What ended it.
    const std::string &Trouble() const
    {
        return m_trouble;
    }
    /// Whether each track got a packet since the last Forget().
    bool HasHeard() const;
    void Forget();
    /// The longest time between two pictures that were complete since then, milliseconds.
    uint32_t WorstGap() const;

private:
    enum Step {
        kOptions,
        kDescribe,
        kSetup,
        kPlay,
        kKeepAlive,
        kTeardown
    };
    struct Track {
        std::string control;
        KovaTrackCheck check;
        int nRtpPort = 0;
    };

    void Request(Step step);
    void Answer(const KovaTestResponse &answer);
    void AfterDescribe(const KovaTestResponse &answer);
    std::string SetupLines(size_t nTrack) const;
    bool OpenPorts(size_t nTrack);
    bool Listen(KovaLoadEnd::Kind kind, size_t nTrack, int nSocket);
    void Frame(unsigned nChannel, const uint8_t *pPacket, size_t nSize);
    void Packet(size_t nTrack, const uint8_t *pHeader, size_t nSize);
    void Drain(const KovaLoadEnd &end);
    void End(State state, const std::string &trouble);

    KovaLoadWorld *m_pWorld;
    KovaLoadStream *m_pStream;
    KovaRtspInput m_input;
    State m_state = kJoining;
    Step m_step = kOptions;
    int m_nSocket = -1;
    int m_nCSeq = 0;
    bool m_bAsked = false; ///< a request is unanswered
    bool m_bAskAgain = false;
    uint64_t m_nLastRequest = 0;
    uint64_t m_nBegin = 0; ///< when it began to join
    size_t m_nSetUp = 0;   ///< tracks
    std::string m_session;
    std::string m_trouble;
    std::vector<Track> m_tracks;
    std::vector<std::unique_ptr<KovaLoadEnd>> m_ends;
};
