#pragma once

/// The clients (tracks) that one session has on one stream, seen as one: a
/// session counts as one player, so when its connection breaks and each track's
/// sending thread finds out on its own, the stream's count goes down once.
struct KovaSessionTally;

/// Joins the tally of a session on a stream (named by its address); the first
/// makes it. Returns null without memory, which every call below accepts.
KovaSessionTally *KovaSessionTallyJoin(const void *pStream, const char *szSessionId);

/// Leaves the tally; the last one out frees it.
void KovaSessionTallyLeave(KovaSessionTally *pTally);

/// True for the first caller: it lowers the stream's count for this session.
/// True for every caller without a tally.
bool KovaSessionTallyTake(KovaSessionTally *pTally);

/// Whether a client of any stream still bears this id. It may outlive its
/// session for a moment, and would pass for a client of another one.
bool KovaSessionTallyExists(const char *szSessionId);
