#pragma once

#include "tests/soak/score.h"
#include "tests/soak/sessions.h"
#include "tests/soak/track_checker.h"
#include "tests/support/rtsp_client.h"

#include <memory>
#include <string>

enum KovaSoakTracks : unsigned {
    kSoakAudio = 1,
    kSoakVideo = 2,
    kSoakBoth = 3
};

/// How a player leaves.
enum KovaSoakLeaving {
    kLeaveByTeardown,
    kLeaveByEnd,     ///< the connection is closed
    kLeaveByReset,   ///< the connection is reset
    kLeaveByHalf,    ///< only the player's direction is closed
    kLeaveBySilence, ///< nothing is closed
    kSoakLeavings
};

/// What all players of a run share.
struct KovaSoakStage {
    uint16_t nPort;
    KovaRtspStreamer *pStream;
    KovaSoakSessions *pSessions;
    KovaSoakScore *pScore;
};

/// A player that knows what it must get. What it does not like goes to the
/// score, with the name of its scenario.
class KovaSoakPlayer {
public:
    KovaSoakPlayer(const KovaSoakStage &stage, std::string scenario);

    /// nMaxSegment > 0: with a tiny receive buffer and such small segments that
    /// the server's side, too, takes only some 30 KiB.
    bool Connect(int nMaxSegment = 0);
    /// OPTIONS and DESCRIBE, if bDescribe; SETUP of the tracks.
    bool SetUp(bool bUdp, unsigned nTracks, bool bDescribe = true);
    bool Play();
    /// Gets so many units of each track, and all of them are right.
    bool Watch(unsigned nUnits);
    /// TEARDOWN; nothing of the session may come behind its answer.
    bool Teardown();
    /// Leaves, once and for all.
    void Leave(KovaSoakLeaving leaving);

    /// Sends a keep-alive by RTSP or, over UDP, by RTCP.
    bool KeepAlive(bool bRtcp);
    /// A request that is answered with this status.
    bool Expect(const KovaTestResponse &response, int nStatus, const char *szRequest);

    KovaRtspTestClient &Rtsp()
    {
        return m_rtsp;
    }
    /// Whether a session is left behind, and whether the server can notice that
    /// by itself.
    bool HasSession() const
    {
        return !m_session.empty();
    }
    bool EndsByItself() const
    {
        return m_bNoticed;
    }
    /// The session's number, not its id.
    int SessionNumber() const
    {
        return m_nSession;
    }
    bool Complain(const std::string &text);
    /// What may explain that no media comes, or that the session stays.
    std::string Situation();

private:
    struct Track {
        std::unique_ptr<KovaTrackChecker> checker;
        std::unique_ptr<KovaUdpPair> ports;
        uint16_t nServerPort = 0;
    };
    bool SetUpTrack(unsigned nTrack, const char *szUri);
    bool TakeUdp();
    bool TakeTcp();
    void TakeRtcp(const std::string &packet);
    bool Enough(unsigned nUnits) const;

    const KovaSoakStage m_stage;
    const std::string m_scenario;
    KovaRtspTestClient m_rtsp;
    Track m_tracks[2];
    std::string m_session;
    int m_nSession = 0;
    int m_nFirstChannel = 0;
    bool m_bUdp = false;
    bool m_bPlaying = false;
    bool m_bNoticed = false;
};
