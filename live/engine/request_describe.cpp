#include "live/engine/requests.h"

#include "foundation/heap.h"
#include "foundation/text.h"
#include "live/rtsp/words.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

constexpr uint64_t kReadyWait = 5000000;
constexpr size_t kBaseSize = 1100;

/// Whether the player takes a description in SDP: that is the default (RFC 2326, 12.1).
bool TakesSdp(const KovaRequest &request)
{
    const std::string_view accept = KovaRequestHeaderOf(request, "Accept");
    const auto bNamed = [accept](const char *szType) {
        return KovaFindText(accept, szType) != accept.size();
    };
    return accept.empty() || bNamed("application/sdp") || bNamed("application/*") || bNamed("*/*");
}

void AnswerDescription(KovaLiveConnection *pConnection, const KovaRequest &request,
                       KovaLiveStream *pStream, const char *szBase)
{
    char text[kDescriptionSize + kAnswerSize];
    char *szBody = text;
    char *szAnswer = text + kDescriptionSize;
    char szAddress[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pConnection->local.sin_addr, szAddress, sizeof(szAddress));
    size_t nBody = 0;
    KovaExchange exchange;
    KovaExchangeInit(&exchange, pConnection, request, szAnswer);
    if (!KovaStreamDescribe(pStream, szAddress, szBody, kDescriptionSize, &nBody))
        return KovaExchangeStatus(&exchange, 503);
    KovaExchangeBegin(&exchange, 200);
    KovaAnswerHeader(&exchange.answer, "Content-Base", "%s", szBase);
    KovaAnswerHeader(&exchange.answer, "Cache-Control", "no-cache");
    // The body is sent from where it stands.
    KovaAnswerHeader(&exchange.answer, "Content-Type", "application/sdp");
    KovaAnswerHeader(&exchange.answer, "Content-Length", "%u", static_cast<unsigned>(nBody));
    if (!KovaAnswerEnd(&exchange.answer, nullptr, {}))
        return KovaConnectionFail(pConnection);
    if (KovaConnectionSend(pConnection, exchange.answer.szText, exchange.answer.nLength))
        KovaConnectionSend(pConnection, szBody, nBody);
}

void HoldUntilReady(KovaExchange *pExchange, const char *szBase, uint64_t nWait)
{
    KovaLiveConnection *pConnection = pExchange->pConnection;
    const std::string_view cseq = KovaRequestHeaderOf(*pExchange->pRequest, "CSeq");
    pConnection->pHeldText = strdup(szBase);
    if (pConnection->pHeldText == nullptr)
        return KovaConnectionFail(pConnection);
    KovaTextCopy(pConnection->szHeldCSeq, sizeof(pConnection->szHeldCSeq), cseq);
    pConnection->hold = kHoldReady;
    pConnection->pHeldStream = pExchange->pStream;
    KovaStreamAddReference(pExchange->pStream);
    pConnection->nHoldEnd = pConnection->pLoop->nNow + kReadyWait;
    pConnection->nHoldUntil =
        nWait < kReadyWait ? pConnection->pLoop->nNow + nWait : pConnection->nHoldEnd;
}

KovaRequest HeldRequest(const KovaLiveConnection *pConnection)
{
    KovaRequest request = {};
    request.nHeaders = 1;
    request.headers[0] = {"CSeq", pConnection->szHeldCSeq};
    return request;
}

void AnswerNotReady(KovaLiveConnection *pConnection, const KovaRequest &request)
{
    char text[kAnswerSize];
    KovaExchange exchange;
    KovaExchangeInit(&exchange, pConnection, request, text);
    KovaExchangeBegin(&exchange, pConnection->pHeldStream->bGone ? 404 : 503);
    if (!pConnection->pHeldStream->bGone)
        KovaAnswerHeader(&exchange.answer, "Retry-After", "5");
    KovaExchangeSend(&exchange);
}

/// Whether the held DESCRIBE has its answer now.
bool ResumeDescribe(KovaLiveConnection *pConnection)
{
    const uint64_t nNow = pConnection->pLoop->nNow;
    uint64_t nWait = 0;
    KovaLiveStream *pStream = pConnection->pHeldStream;
    const bool bReady = !pStream->bGone && KovaStreamReady(pStream, nNow, &nWait);
    if (!bReady && !pStream->bGone && nNow < pConnection->nHoldEnd) {
        const uint64_t nLeft = pConnection->nHoldEnd - nNow;
        pConnection->nHoldUntil = nNow + (nWait < nLeft ? nWait : nLeft);
        return false;
    }
    const KovaRequest request = HeldRequest(pConnection);
    if (bReady)
        AnswerDescription(pConnection, request, pStream, pConnection->pHeldText);
    else
        AnswerNotReady(pConnection, request);
    return true;
}

/// pStream: null: any that was removed.
void ResumeWaiting(KovaLiveLoop *pLoop, const KovaLiveStream *pStream)
{
    for (KovaLiveConnection *pConnection = pLoop->pConnections; pConnection != nullptr;
         pConnection = pConnection->pNext) {
        const KovaLiveStream *pHeld = pConnection->pHeldStream;
        if (pHeld == nullptr || pConnection->bEnded ||
            (pStream != nullptr ? pHeld != pStream : !pHeld->bGone))
            continue;
        KovaRequestResume(pConnection);
        KovaConnectionArm(pConnection);
    }
}

} // namespace

void KovaRequestDescribe(KovaExchange *pExchange)
{
    char szBase[kBaseSize];
    if (!TakesSdp(*pExchange->pRequest))
        return KovaExchangeStatus(pExchange, 406);
    // A base that does not fit belongs to a host name that nobody has.
    if (!KovaRequestBase(pExchange->pConnection, *pExchange->pRequest, pExchange->pStream->szPath,
                         szBase, sizeof(szBase)))
        return KovaExchangeStatus(pExchange, 400);
    uint64_t nWait = 0;
    if (KovaStreamReady(pExchange->pStream, pExchange->pConnection->pLoop->nNow, &nWait))
        AnswerDescription(pExchange->pConnection, *pExchange->pRequest, pExchange->pStream, szBase);
    else
        HoldUntilReady(pExchange, szBase, nWait);
}

void KovaRequestResume(KovaLiveConnection *pConnection)
{
    if (pConnection->hold == kHoldReady && !ResumeDescribe(pConnection))
        return;
    if (pConnection->hold == kHoldLogin)
        KovaConnectionSend(pConnection, pConnection->pHeldText, strlen(pConnection->pHeldText));
    pConnection->hold = kHoldNone;
    free(pConnection->pHeldText);
    pConnection->pHeldText = nullptr;
    KovaStreamRelease(pConnection->pHeldStream);
    pConnection->pHeldStream = nullptr;
    pConnection->nActive = pConnection->pLoop->nNow;
    // What came meanwhile was not read: the time of a request behind begins now.
    pConnection->nBegunRequest = 0;
    KovaConnectionServe(pConnection);
}

void KovaConnectionStreamReady(KovaLiveLoop *pLoop, KovaLiveStream *pStream)
{
    ResumeWaiting(pLoop, pStream);
}

void KovaConnectionStreamsGone(KovaLiveLoop *pLoop)
{
    ResumeWaiting(pLoop, nullptr);
}
