#pragma once

/// The clients (tracks) that one session has on one stream, seen as one: a
/// session counts as one player, so when its connection breaks and each track's
/// sending thread finds out on its own, the stream's count goes down once. The
/// count itself, and who lowers it when: classic/streamer/players.h. Any thread; a
/// leaf lock.
struct KovaSessionTally;

/// Joins the tally of a session on a stream (named by its address); the first
/// makes it. Returns null without memory, which every call below accepts.
KovaSessionTally *KovaSessionTallyJoin(const void *pStream, const char *szSessionId);

/// Leaves the tally; the last one out frees it.
void KovaSessionTallyLeave(KovaSessionTally *pTally);

/// As the last two, for somebody who is no client of the session.
KovaSessionTally *KovaSessionTallyHold(const void *pStream, const char *szSessionId);
void KovaSessionTallyRelease(KovaSessionTally *pTally);

/// Notes that a PLAY has raised the stream's count for the session: one caller of
/// the following may lower it.
void KovaSessionTallyRaised(KovaSessionTally *pTally);

/// True for the first caller: it lowers the stream's count for this session.
/// True for every caller without a tally.
bool KovaSessionTallyTake(KovaSessionTally *pTally);

/// The same, but only for a session that plays: one that a PLAY has counted, or of
/// which the caller knows it (bPlays).
bool KovaSessionTallyTakePlaying(KovaSessionTally *pTally, bool bPlays);

/// Leaves the tally; true when the session plays, nobody has taken the tally, and
/// this was its last client on the stream: then the caller lowers the count.
bool KovaSessionTallyLeaveLast(KovaSessionTally *pTally, bool bPlays);

/// Whether a client of any stream still bears this id. It may outlive its
/// session for a moment, and would pass for a client of another one.
bool KovaSessionTallyExists(const char *szSessionId);
