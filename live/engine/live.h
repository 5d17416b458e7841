#pragma once

#include "foundation/mutex.h"
#include "kova_live.h"
#include "live/rtsp/login.h"

#include <atomic>
#include <cstdint>

struct KovaLiveLoop;

constexpr uint32_t kLiveMaxLoops = 16;
constexpr uint32_t kLiveMaxTracks = 8;

/// The host's configuration with its defaults filled in. Times in µs.
struct KovaLiveSettings {
    uint32_t nAddress; ///< network order; INADDR_ANY for every address
    uint16_t nPort;
    uint16_t nUdpFirst; ///< 0: any
    uint16_t nUdpLast;
    uint16_t nMaxPacket;
    uint32_t nThreads;
    uint32_t nMaxConnections;
    uint32_t nMaxPerAddress; ///< 0: no limit
    uint32_t nMaxSessions;
    uint64_t nRequestTime;
    uint64_t nIdleTime;
    uint64_t nSessionTime;
    uint64_t nDelay;
    uint64_t nPlayerMaxTime;
    uint32_t nPlayerMaxBytes;
    uint64_t nPlayerStallTime;
    int32_t nLogLevel;
    KovaLiveLogCallback pfnLog;
    KovaLiveEventCallback pfnEvent;
    void *pContext;
};

/// What players got, for the figures.
struct KovaSentCounts {
    uint64_t nPackets;
    uint64_t nBytes;
    uint64_t nLatePackets;
};

/// Connections of each address that has some; kept when there is a limit of them.
struct KovaPeerCount {
    uint32_t nAddress; ///< network order
    uint32_t nConnections;
};
struct KovaPeerCounts {
    KovaPeerCount *pPeers;
    uint32_t nPeers;
    uint32_t nRoom;
};

/// One server. What stands without a lock is written before the loops begin.
struct KovaLive {
    KovaLiveSettings settings;
    int nListener;
    uint16_t nPort;
    char *szRealm;
    KovaLogin *pLogin;
    KovaLoginUsers *pUsers; ///< of streams without users of their own; null: none
    uint32_t nLoops;
    KovaLiveLoop *pLoops[kLiveMaxLoops];

    KovaMutex streamsMutex;
    KovaLiveStream *pStreams KOVA_GUARDED_BY(streamsMutex); ///< newest first
    uint32_t nLastStream KOVA_GUARDED_BY(streamsMutex);

    std::atomic<uint32_t> nSessions; ///< of all loops: their sum is limited
    std::atomic<uint32_t> nConnections;
    KovaMutex numberMutex;
    uint64_t nLastPlayer KOVA_GUARDED_BY(numberMutex);
    KovaPeerCounts peers KOVA_GUARDED_BY(numberMutex);
};

/// Fills in what the host left at its default. KOVA_LIVE_OK, ERROR_ARGUMENT or _ADDRESS.
int32_t KovaLiveSettingsFrom(const KovaLiveConfig *pConfig, KovaLiveSettings *pSettings);

/// A copy of a host's record as this version knows it: what the host's own version
/// does not have is 0. False for null and a size that is too small.
bool KovaLiveRecordCopy(void *pCopy, uint32_t nOurs, const void *pTheirs, uint32_t nLeast);

/// Gives back the list's references, at the server's end.
void KovaStreamsClear(KovaLive *pLive);
