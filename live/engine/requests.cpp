#include "live/engine/requests.h"

#include "foundation/owner.h"
#include "live/engine/notices.h"
#include "live/rtsp/words.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>

namespace {

void ReleaseStream(KovaLiveStream *pStream)
{
    KovaStreamRelease(pStream);
}

bool IsSafeFromLogin(KovaMethod method)
{
    return method != kMethodDescribe && method != kMethodSetup;
}

/// The value of a Session header, without its parameters.
std::string_view SessionId(std::string_view value)
{
    return {value.data(), KovaFind(value, "; \t")};
}

/// Notes the request's session. False when it is answered, as there is none of that id for
/// this peer, or when another loop will see to it.
bool FindSession(KovaExchange *pExchange)
{
    const std::string_view value = KovaRequestHeaderOf(*pExchange->pRequest, "Session");
    if (value.data() == nullptr)
        return true;
    const std::string_view id = SessionId(value);
    KovaLiveConnection *pConnection = pExchange->pConnection;
    pExchange->pSession = KovaSessionFind(pConnection->pLoop, id.data(), id.size(),
                                          pConnection->peer.sin_addr.s_addr);
    if (pExchange->pSession == nullptr) {
        if (!KovaConnectionFollow(pConnection,
                                  KovaSessionLoop(pConnection->pLoop->pLive, id.data(), id.size())))
            KovaExchangeStatus(pExchange, 454);
        return false;
    }
    KovaSessionHeard(pExchange->pSession);
    return true;
}

bool NeedsSession(KovaMethod method)
{
    return method == kMethodPlay || method == kMethodPause || method == kMethodTeardown;
}

/// We have no extensions: whatever a player requires is refused (RFC 2326, 12.32).
bool RefuseRequired(KovaExchange *pExchange)
{
    std::string_view required = KovaRequestHeaderOf(*pExchange->pRequest, "Require");
    if (required.data() == nullptr)
        required = KovaRequestHeaderOf(*pExchange->pRequest, "Proxy-Require");
    if (required.data() == nullptr)
        return false;
    KovaExchangeBegin(pExchange, 551);
    KovaAnswerHeader(&pExchange->answer, "Unsupported", "%.*s", static_cast<int>(required.size()),
                     required.data());
    KovaExchangeSend(pExchange);
    return true;
}

/// Ends an answer that names the session only if the request did.
void SendWithSession(KovaExchange *pExchange)
{
    if (pExchange->pSession != nullptr)
        KovaExchangeSession(pExchange, pExchange->pSession);
    KovaExchangeSend(pExchange);
}

void Options(KovaExchange *pExchange)
{
    KovaExchangeBegin(pExchange, 200);
    KovaAnswerHeader(&pExchange->answer, "Public", "%s", kLivePublic);
    SendWithSession(pExchange);
}

/// Parameters: there are none to ask for or to set; an empty request keeps the session.
void Parameter(KovaExchange *pExchange)
{
    KovaExchangeBegin(pExchange, pExchange->pRequest->body.empty() ? 200 : 451);
    SendWithSession(pExchange);
}

void NotAllowed(KovaExchange *pExchange, uint16_t nStatus)
{
    KovaExchangeBegin(pExchange, nStatus);
    KovaAnswerHeader(&pExchange->answer, nStatus == 405 ? "Allow" : "Public", "%s", kLivePublic);
    KovaExchangeSend(pExchange);
}

/// The stream of the URL, and whether the player may have it. False when it is answered.
bool FindStream(KovaExchange *pExchange)
{
    KovaLive *pLive = pExchange->pConnection->pLoop->pLive;
    pExchange->pStream = KovaStreamFind(pLive, pExchange->url.szPath);
    const KovaLiveStream *pStream = pExchange->pStream;
    // Without a login nobody learns which streams there are.
    const KovaLoginUsers *pUsers = pStream != nullptr ? pStream->pUsers : pLive->pUsers;
    if (!IsSafeFromLogin(pExchange->pRequest->method) &&
        !KovaExchangeLogin(pExchange, pUsers, pExchange->url.szPath))
        return false;
    if (pStream != nullptr)
        return true;
    KovaExchangeStatus(pExchange, 404);
    return false;
}

/// Requests about one stream.
void StreamRequest(KovaExchange *pExchange)
{
    const KovaMethod method = pExchange->pRequest->method;
    if (!FindStream(pExchange))
        return;
    if (NeedsSession(method) &&
        (pExchange->pSession == nullptr || pExchange->pSession->pStream != pExchange->pStream)) {
        KovaExchangeStatus(pExchange, 454);
        return;
    }
    switch (method) {
    case kMethodDescribe:
        return KovaRequestDescribe(pExchange);
    case kMethodSetup:
        return KovaRequestSetup(pExchange);
    case kMethodPlay:
        return KovaRequestPlay(pExchange);
    case kMethodPause:
        return KovaRequestPause(pExchange);
    default:
        return KovaRequestTeardown(pExchange);
    }
}

void Dispatch(KovaExchange *pExchange)
{
    const KovaRequest &request = *pExchange->pRequest;
    if (KovaRequestHeaderOf(request, "CSeq").data() == nullptr || !pExchange->url.bValid)
        return KovaExchangeStatus(pExchange, 400);
    if (RefuseRequired(pExchange) || !FindSession(pExchange))
        return;
    switch (request.method) {
    case kMethodOptions:
        return Options(pExchange);
    case kMethodGetParameter:
    case kMethodSetParameter:
        return Parameter(pExchange);
    case kMethodUnknown:
        return NotAllowed(pExchange, 501);
    case kMethodAnnounce:
    case kMethodRecord:
    case kMethodRedirect:
        return NotAllowed(pExchange, 405);
    default:
        break;
    }
    if (pExchange->url.bStar)
        return KovaExchangeStatus(pExchange, 400);
    StreamRequest(pExchange);
}

} // namespace

void KovaRequestServe(KovaLiveConnection *pConnection, const KovaRequest &request)
{
    char text[kAnswerSize];
    KovaExchange exchange;
    KovaExchangeInit(&exchange, pConnection, request, text);
    exchange.url = KovaRequestUrlParse(request.url);
    snprintf(text, sizeof(text), " %.*s %s", static_cast<int>(request.methodText.size()),
             request.methodText.data(), exchange.url.szPath);
    KovaConnectionTell(pConnection, KOVA_LIVE_LOG_DEBUG, text);
    Dispatch(&exchange);
    ReleaseStream(exchange.pStream);
}

void KovaRequestRefuse(KovaLiveConnection *pConnection, const KovaRequest &request,
                       uint16_t nStatus)
{
    char text[kAnswerSize];
    KovaExchange exchange;
    KovaExchangeInit(&exchange, pConnection, request, text);
    KovaMutexAssertHeld(&pConnection->pLoop->mutex);
    pConnection->pLoop->figures.nRefused++;
    KovaExchangeBegin(&exchange, nStatus);
    if (pConnection->bClosing || nStatus == 408)
        KovaAnswerHeader(&exchange.answer, "Connection", "close");
    KovaExchangeSend(&exchange);
}
