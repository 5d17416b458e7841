#pragma once

#include "live/engine/loop.h"
#include "live/engine/session.h"
#include "live/rtsp/login.h"
#include "live/rtsp/request_reader.h"

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

/// Why nothing is read from a connection just now.
enum KovaConnectionHold : uint8_t {
    kHoldNone,
    kHoldReady, ///< a DESCRIBE waits until its stream can be described
    kHoldLogin, ///< an answer to a wrong login is kept back
    kHoldMove,  ///< it goes to another loop, which reads the request again
};

/// Bytes that are no media and wait to be sent: answers, RTCP frames.
struct KovaPendingBytes {
    uint8_t *pBytes;
    size_t nSize;
    size_t nSent;
    size_t nRoom;
};

/// One RTSP connection.
struct KovaLiveConnection {
    KovaPollItem item; ///< first: the poller gives it back
    KovaLiveLoop *pLoop;
    KovaLiveConnection *pNext;
    KovaLiveConnection **ppLink;
    sockaddr_in peer;
    sockaddr_in local;
    KovaTimer timer;
    KovaRequestReader reader;
    KovaPendingBytes pending;
    KovaLiveSession *pSessions; ///< made by this connection, newest first
    KovaLiveSession *pBegun;    ///< whose frame is out in part; nothing else may be sent
    uint64_t nActive;           ///< µs: last request
    uint64_t nBegunRequest;     ///< µs: when the request that is not whole began; 0: none
    uint64_t nProgress;         ///< µs: last byte taken, or nothing to take
    uint64_t nNoted;            ///< µs: the progress behind which nInSystem was noted
    int nInSystem;              ///< bytes that the peer had not acknowledged then
    KovaLoginState login;
    KovaConnectionHold hold;
    bool bClosing;               ///< ends when everything pending is out
    uint64_t nDrainUntil;        ///< µs: closed for sending, reads to the peer's end; 0: not
    bool bEnded;                 ///< nothing works any more: ends at the end of the round
    uint64_t nHoldUntil;         ///< µs
    uint64_t nHoldEnd;           ///< µs: kHoldReady: then it is refused
    KovaLiveStream *pHeldStream; ///< kHoldReady: with a reference
    char *pHeldText;             ///< kHoldReady: the base of the URLs; kHoldLogin: the answer
    char szHeldCSeq[24];
    KovaLiveLoop *pMovesTo; ///< kHoldMove
};

/// Makes a connection of a socket that was accepted; it is nobody's yet. Null without memory.
KovaLiveConnection *KovaConnectionCreate(int nSocket, const sockaddr_in &peer);

/// Closes a socket that was counted, and counts it out.
void KovaConnectionForget(KovaLive *pLive, int nSocket, const sockaddr_in &peer);

/// The same with everything that a connection has, which is no loop's (any more).
void KovaConnectionDestroy(KovaLive *pLive, KovaLiveConnection *pConnection);

/// Gives a connection, which is nobody's, to a loop. bOwn: the caller is that loop's thread.
void KovaConnectionHand(KovaLiveConnection *pConnection, KovaLiveLoop *pTo, bool bOwn);

/// Takes it in, and serves what it has brought along. The loop's thread.
void KovaConnectionTake(KovaLiveLoop *pLoop, KovaLiveConnection *pConnection);

/// Lets a connection go to the loop whose session it asks for, with this request and all that
/// follow. False when it stays: there is none, or it has sessions here.
/// @param pOwner  null: nobody's session
bool KovaConnectionFollow(KovaLiveConnection *pConnection, KovaLiveLoop *pOwner);

/// Ends a connection: its interleaved players end, its UDP players go on by themselves.
void KovaConnectionEnd(KovaLiveConnection *pConnection);

/// A log line "<its peer><szSays>": a player who is refused sees a status alone.
void KovaConnectionTell(const KovaLiveConnection *pConnection, int32_t nLevel, const char *szSays);

/// Ends it as soon as nobody stands on it: at once, or at the next event.
void KovaConnectionFail(KovaLiveConnection *pConnection);

/// Queues an answer or another thing that is no media, and sends what can be sent.
/// False when it was too much or there is no memory: the connection ends.
bool KovaConnectionSend(KovaLiveConnection *pConnection, const void *pBytes, size_t nSize);

/// Sends what waits, frames whole: a begun one first, then what is pending, then the
/// queues of its players.
void KovaConnectionFlush(KovaLiveConnection *pConnection);

/// Whether something is to be sent that the peer has not taken.
bool KovaConnectionWaits(const KovaLiveConnection *pConnection);

/// Notes how much the system holds for a peer that takes no more just now.
void KovaConnectionNoteFull(KovaLiveConnection *pConnection);

/// Whether the peer has taken something of that since. A socket is told to be writable only
/// when much of its buffer is free: a slow peer takes seconds for it.
bool KovaConnectionTook(KovaLiveConnection *pConnection);

/// A session's frame that is out in part becomes something that is pending: the session may
/// go, or lose what it has queued, and the frame is finished all the same.
void KovaConnectionFinishFrame(KovaLiveSession *pSession);

/// Waits for what can happen next.
void KovaConnectionArm(KovaLiveConnection *pConnection);

/// Handles the requests that have arrived.
void KovaConnectionServe(KovaLiveConnection *pConnection);

/// The stream can be described: those who wait for it get their answer.
void KovaConnectionStreamReady(KovaLiveLoop *pLoop, KovaLiveStream *pStream);
/// Those who wait for a stream that was removed get theirs.
void KovaConnectionStreamsGone(KovaLiveLoop *pLoop);

/// Answers one request. Part of KovaConnectionServe.
void KovaRequestServe(KovaLiveConnection *pConnection, const KovaRequest &request);
void KovaRequestRefuse(KovaLiveConnection *pConnection, const KovaRequest &request,
                       uint16_t nStatus);
/// The answer that was kept back: a description, or 503 when the stream is not ready.
void KovaRequestResume(KovaLiveConnection *pConnection);
