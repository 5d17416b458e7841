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
};

/// Takes an accepted socket in, which is the loop's from then on in any case. A limit
/// answers 503 and closes.
void KovaConnectionTake(KovaLiveLoop *pLoop, int nSocket);

/// Ends a connection: its interleaved players end, its UDP players go on by themselves.
void KovaConnectionEnd(KovaLiveConnection *pConnection);

/// Ends it as soon as nobody stands on it: at once, or at the next event.
void KovaConnectionFail(KovaLiveConnection *pConnection);

/// Queues an answer or another thing that is no media, and sends what can be sent.
/// False when it was too much or there is no memory: the connection ends.
bool KovaConnectionSend(KovaLiveConnection *pConnection, const void *pBytes, size_t nSize);

/// The player whose frame is out in part is going: the rest of that frame becomes pending,
/// in front of everything else. Without memory the connection ends.
void KovaConnectionFinishFrame(KovaLiveConnection *pConnection);

/// Sends what waits, frames whole: a begun one first, then what is pending, then the
/// queues of its players.
void KovaConnectionFlush(KovaLiveConnection *pConnection);

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
