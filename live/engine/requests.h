#pragma once

#include "live/engine/connection.h"
#include "live/rtsp/answer.h"
#include "live/rtsp/request_url.h"

#include <cstddef>
#include <cstdint>

/// One request and its answer in the making. The stream is released at its end.
struct KovaExchange {
    KovaLiveConnection *pConnection;
    const KovaRequest *pRequest;
    KovaRequestUrl url;
    KovaLiveStream *pStream;   ///< of the URL, with a reference; null: none
    KovaLiveSession *pSession; ///< of the Session header; null: no header
    KovaAnswer answer;
};

/// Room for an answer without a body, and with a description.
constexpr size_t kAnswerSize = 2048;
constexpr size_t kDescriptionSize = 8192;

/// Methods whose answers are given in several places.
constexpr char kLivePublic[] =
    "OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER, SET_PARAMETER";

/// Prepares an exchange without URL, stream and session.
/// szAnswer: room of kAnswerSize bytes, used until the answer is sent.
void KovaExchangeInit(KovaExchange *pExchange, KovaLiveConnection *pConnection,
                      const KovaRequest &request, char *szAnswer);
/// Begins the answer of an exchange.
void KovaExchangeBegin(KovaExchange *pExchange, uint16_t nStatus);
/// Adds the Session header.
void KovaExchangeSession(KovaExchange *pExchange, const KovaLiveSession *pSession);
/// Ends and sends it.
void KovaExchangeSend(KovaExchange *pExchange);
/// An answer without more to say.
void KovaExchangeStatus(KovaExchange *pExchange, uint16_t nStatus);

/// Whether the player may: passed its login, or none is needed. Otherwise it is answered.
/// pUsers: null: nobody needs one.
bool KovaExchangeLogin(KovaExchange *pExchange, const KovaLoginUsers *pUsers, const char *szPath);

/// Writes "rtsp://<host>/<path>/": the request's own host and port if it names one, else
/// the connection's address. False when it does not fit.
bool KovaRequestBase(const KovaLiveConnection *pConnection, const KovaRequest &request,
                     const char *szPath, char *szBase, size_t nCapacity);

/// The methods. The session, where one is needed, and the stream are there.
void KovaRequestDescribe(KovaExchange *pExchange);
void KovaRequestSetup(KovaExchange *pExchange);
void KovaRequestPlay(KovaExchange *pExchange);
void KovaRequestPause(KovaExchange *pExchange);
void KovaRequestTeardown(KovaExchange *pExchange);
