#pragma once

#include "live/engine/loop.h"
#include "live/engine/session.h"

#include <cstdarg>
#include <cstdint>

/// Events and log lines of a round, kept until the loop's mutex is released: the
/// host may call us from its callbacks. Bounded: lines beyond it are counted.
struct KovaNotices;

void KovaNoticesDestroy(KovaNotices *pNotices);

/// Tells an event of a player. nReason: KOVA_LIVE_WENT_... or 0.
void KovaNoticePlayer(KovaLiveLoop *pLoop, uint32_t nType, const KovaLiveSession *pSession,
                      uint32_t nReason);

/// Tells an event of a stream, or of a track of it (null: none).
void KovaNoticeStream(KovaLiveLoop *pLoop, uint32_t nType, KovaLiveStream *pStream,
                      KovaLiveTrack *pTrack);

/// A log line, formatted as printf does, without a line break.
void KovaNoticeLog(KovaLiveLoop *pLoop, int32_t nLevel, const char *szFormat, ...)
    __attribute__((format(printf, 3, 4)));

/// A log line "<address>:<port><szSays><szWhat>" about a peer (address in network order).
void KovaNoticePeer(KovaLiveLoop *pLoop, int32_t nLevel, uint32_t nAddress, uint16_t nPort,
                    const char *szSays, const char *szWhat = "");

/// Calls the host with everything that is kept; without the mutex. pNotices was
/// taken out of the loop. Frees it.
void KovaNoticesTell(KovaLive *pLive, KovaNotices *pNotices);
