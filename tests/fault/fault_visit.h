#pragma once

#include "classic/streamer/streamer.h"
#include "tests/fault/fault_shim.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// How the visiting player takes its media.
enum KovaVisitKind {
    kVisitUdp,
    kVisitInterleaved,
};

constexpr char kVisitUri[] = "live";

/// One request of a visit and what came of it.
struct KovaVisitStep {
    std::string method;
    int nCSeq;
    bool bComplete; ///< a whole response came
    int nStatus;
    std::string text; ///< with what differs from visit to visit taken out
};

/// What a player saw of a server.
struct KovaVisit {
    bool bConnected = false;
    bool bEnded = false; ///< the server ended the connection
    std::vector<KovaVisitStep> steps;
    std::vector<std::string> audio; ///< RTP payloads, in order
    std::vector<std::string> video;
    std::string strays;        ///< bytes of the connection that are neither response nor frame
    size_t nClientsAtPlay = 0; ///< of the stream, all tracks
    bool bPlayed = false;      ///< the PLAY was answered with 200
};

/// How a visit goes.
struct KovaVisitPlan {
    KovaVisitKind nKind = kVisitUdp;
    uint16_t nPort = 0;
    KovaRtspStreamer *pStream = nullptr;
    /// What fails meanwhile, where that may cost packets, or null: the player
    /// waits long for what must come, but not for what a failure may have lost.
    const KovaFaults *pFaults = nullptr;
    bool bAnswersGetLost = false;    ///< may a failure cost a response?
    std::function<void()> onPlaying; ///< called between the PLAY and the first packet
    std::function<void()> onWatched; ///< called when no more packets are awaited
    int nUnits = 3;                  ///< access units per track that the host pushes
    bool bLeave = true; ///< with a TEARDOWN; otherwise the connection is reset in the middle
};

/// A player comes, asks for everything in order, is sent media while the host
/// pushes it, and leaves. It goes on where an answer is missing, and stops where
/// the connection ends. Every wait is bounded.
KovaVisit KovaMakeVisit(const KovaVisitPlan &plan);

/// Pushes nUnits access units per track. All are due at once.
void KovaPushUnits(KovaRtspStreamer *pStream, int nUnits);

/// Whether part is what is left of whole when some of it is taken out.
bool KovaIsSubsequence(const std::vector<std::string> &part, const std::vector<std::string> &whole);

/// The NAL units of an aggregation packet's payload (RFC 6184, STAP-A); none of
/// any other.
std::vector<std::string> KovaAggregated(const std::string &payload);

/// All clients of the stream.
size_t KovaClientsOf(KovaRtspStreamer *pStream);
