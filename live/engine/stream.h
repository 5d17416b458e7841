#pragma once

#include "foundation/mutex.h"
#include "live/engine/live.h"
#include "live/media/track_media.h"
#include "live/rtsp/request_url.h"

#include <atomic>
#include <cstdint>

struct KovaLiveSession;

/// A track of a stream. Written before it is counted in the stream's nTracks.
struct KovaLiveTrack {
    KovaLiveStream *pStream;
    uint32_t nIndex;
    uint8_t nPayloadType;
    KovaTrackMedia *pMedia;
    std::atomic<uint32_t> nPushing; ///< calls of KovaLivePush that are inside

    /// Guarded by the mutex of the stream.
    int64_t nLastPts;
    uint64_t nLastArrived; ///< 0: nothing was pushed yet
    int64_t nInterval;     ///< µs between units, about
    uint64_t nKeyAsked;    ///< when the host was asked last; 0: never
};

/// Recent units from an entry on, for newcomers.
struct KovaPictureGroup {
    KovaUnit **ppUnits;
    uint32_t nUnits;
    uint32_t nRoom;
    uint32_t nBytes;
    bool bWhole; ///< begins with an entry and lacks nothing
};

/// What was pushed to a stream, for the figures.
struct KovaStreamCounts {
    uint64_t nUnits;
    uint64_t nUnitBytes;
    uint64_t nDroppedUnits;
};

/// A published stream. References: the server's list, sessions, messages.
struct KovaLiveStream {
    KovaLive *pLive;
    KovaLiveStream *pNext; ///< guarded by KovaLive::streamsMutex
    std::atomic<uint32_t> nReferences;
    std::atomic<bool> bGone; ///< taken out of the list
    uint32_t nNumber; ///< of the stream in its server: the description's version begins there
    char szPath[kLivePathSize];
    char *szName;
    KovaLoginUsers *pUsers; ///< null: the server's
    bool bOwnUsers;
    uint64_t nTrackWait; ///< µs
    bool bKeepGroup;
    uint32_t nKeepBytes;

    std::atomic<uint32_t> nTracks;
    KovaLiveTrack *pTracks[kLiveMaxTracks];
    std::atomic<bool> bReady;

    KovaMutex mutex;
    uint32_t nLastSerial KOVA_GUARDED_BY(mutex);
    uint64_t nFirstPush KOVA_GUARDED_BY(mutex); ///< µs, monotonic; 0: nothing yet
    int64_t nAnchorPts KOVA_GUARDED_BY(mutex);  ///< that pts was at the wall clock's nAnchorWall
    int64_t nAnchorWall KOVA_GUARDED_BY(mutex); ///< µs since 1970
    uint64_t nLateSince KOVA_GUARDED_BY(mutex); ///< µs, monotonic; 0: units come on time
    uint32_t nVersion KOVA_GUARDED_BY(mutex);   ///< of the description
    uint32_t nDescribedHash KOVA_GUARDED_BY(mutex);
    KovaPictureGroup group KOVA_GUARDED_BY(mutex);
    uint32_t nPlaying[kLiveMaxLoops] KOVA_GUARDED_BY(mutex); ///< players of each loop
    uint32_t nPosted[kLiveMaxLoops] KOVA_GUARDED_BY(mutex);  ///< serial of the last unit it got
    KovaStreamCounts counts KOVA_GUARDED_BY(mutex);

    /// Of each loop: its players, newest first, and what they got.
    KovaLiveSession *pPlayers[kLiveMaxLoops];
    KovaSentCounts sent[kLiveMaxLoops]; ///< by each loop, guarded by its mutex
};

void KovaStreamAddReference(KovaLiveStream *pStream);

/// Gives a reference back; the last one frees the stream with its tracks. Null is ignored.
void KovaStreamRelease(KovaLiveStream *pStream);

/// The stream of a path, with a reference; null when there is none.
KovaLiveStream *KovaStreamFind(KovaLive *pLive, const char *szPath);

/// Whether the stream can be described now: all tracks are known, or one is and the
/// others have been waited for long enough. *pnWait (may be null): µs until that may
/// change by time alone; UINT64_MAX when it cannot.
bool KovaStreamReady(KovaLiveStream *pStream, uint64_t nNow, uint64_t *pnWait);

/// Where a track's clock stands at nNow: its pts by what was pushed last and what has
/// passed since, and the wall clock of that pts, µs since 1970. False before the first push.
bool KovaStreamClock(KovaLiveStream *pStream, uint32_t nTrack, uint64_t nNow, int64_t *pPts,
                     int64_t *pWall);

/// Brings a new player in at nNow: from the next unit on, or with what is kept. *ppKept gets
/// *pnKept units with references, in an array to be freed by the caller (null: none);
/// the player's own units begin behind serial *pnSerial. Kept units whose delay has not passed
/// are among those: the loop gets them where it has not got them yet. Counts the player.
void KovaStreamJoin(KovaLiveStream *pStream, uint32_t nLoop, uint64_t nNow, KovaUnit ***pppKept,
                    uint32_t *pnKept, uint32_t *pnSerial);
void KovaStreamLeave(KovaLiveStream *pStream, uint32_t nLoop);

/// The players of all loops. Any thread.
uint32_t KovaStreamPlayers(KovaLiveStream *pStream);

/// Whether the host is to be asked for a key frame of the track now: not more often than
/// once in nEvery µs.
bool KovaStreamWantsKey(KovaLiveStream *pStream, uint32_t nTrack, uint64_t nNow, uint64_t nEvery);

/// Writes the whole description (RFC 4566) for a player who is connected to szAddress.
/// False when the stream is not known or the text does not fit.
bool KovaStreamDescribe(KovaLiveStream *pStream, const char *szAddress, char *szText,
                        size_t nCapacity, size_t *pLength);
