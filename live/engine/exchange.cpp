#include "foundation/divide.h"
#include "live/engine/notices.h"
#include "live/engine/requests.h"
#include "live/rtsp/words.h"

#include "foundation/heap.h"

#include <arpa/inet.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr char kServerName[] = "Kova";
constexpr size_t kChallengeSize = 768;

/// "user@host:port" without the user, from a URL; empty when it has no host.
std::string_view AuthorityOf(std::string_view url)
{
    const size_t nScheme = KovaFindText(url, "://");
    if (nScheme == url.size())
        return {};
    url.remove_prefix(nScheme + 3);
    url = KovaPart(url, 0, KovaFind(url, "/?#"));
    for (size_t nUser; (nUser = KovaFind(url, "@")) < url.size();)
        url.remove_prefix(nUser + 1);
    return url;
}

/// Keeps the answer back: whoever guesses has to wait.
void HoldAnswer(KovaExchange *pExchange, uint32_t nDelayMs)
{
    KovaLiveConnection *pConnection = pExchange->pConnection;
    if (!KovaAnswerEnd(&pExchange->answer, nullptr, {}) ||
        (pConnection->pHeldText = strdup(pExchange->answer.szText)) == nullptr) {
        KovaConnectionFail(pConnection);
        return;
    }
    pConnection->hold = kHoldLogin;
    pConnection->nHoldUntil = pConnection->pLoop->nNow + uint64_t{nDelayMs} * 1000;
}

} // namespace

void KovaExchangeInit(KovaExchange *pExchange, KovaLiveConnection *pConnection,
                      const KovaRequest &request, char *szAnswer)
{
    *pExchange = {};
    pExchange->pConnection = pConnection;
    pExchange->pRequest = &request;
    pExchange->answer = {szAnswer, kAnswerSize, 0, true};
}

void KovaExchangeBegin(KovaExchange *pExchange, uint16_t nStatus)
{
    KovaAnswerBegin(&pExchange->answer, nStatus, *pExchange->pRequest, time(nullptr), kServerName);
}

void KovaExchangeSession(KovaExchange *pExchange, const KovaLiveSession *pSession)
{
    const uint64_t nSeconds = KovaDivide(pSession->pLoop->pLive->settings.nSessionTime, 1000000);
    // No player keeps up with 0.
    KovaAnswerHeader(&pExchange->answer, "Session", "%s;timeout=%u", pSession->szId,
                     nSeconds != 0 ? static_cast<unsigned>(nSeconds) : 1U);
}

void KovaExchangeSend(KovaExchange *pExchange)
{
    if (KovaAnswerEnd(&pExchange->answer, nullptr, {}))
        KovaConnectionSend(pExchange->pConnection, pExchange->answer.szText,
                           pExchange->answer.nLength);
    else
        KovaConnectionFail(pExchange->pConnection);
}

void KovaExchangeStatus(KovaExchange *pExchange, uint16_t nStatus)
{
    KovaExchangeBegin(pExchange, nStatus);
    KovaExchangeSend(pExchange);
}

bool KovaExchangeLogin(KovaExchange *pExchange, const KovaLoginUsers *pUsers, const char *szPath)
{
    KovaLiveConnection *pConnection = pExchange->pConnection;
    KovaLiveLoop *pLoop = pConnection->pLoop;
    if (pUsers == nullptr)
        return true;
    uint32_t nDelayMs = 0;
    const KovaLoginVerdict verdict =
        KovaLoginCheck(pLoop->pLive->pLogin, pUsers, &pConnection->login, *pExchange->pRequest,
                       szPath, pConnection->peer.sin_addr.s_addr, pLoop->nNow, &nDelayMs);
    if (verdict == kLoginPassed)
        return true;
    char szChallenge[kChallengeSize];
    const bool bStale = verdict == kLoginStale || verdict == kLoginSlow;
    if (!KovaLoginChallenge(pLoop->pLive->pLogin, &pConnection->login, bStale, pLoop->nNow,
                            szChallenge, sizeof(szChallenge))) {
        KovaExchangeStatus(pExchange, 503);
        return false;
    }
    KovaExchangeBegin(pExchange, 401);
    KovaAnswerLines(&pExchange->answer, szChallenge);
    if (nDelayMs == 0) {
        KovaExchangeSend(pExchange);
        return false;
    }
    // Once may be a slip. Who it claims to be stays out of the log: it may be a password in the
    // wrong field.
    KovaConnectionTell(pConnection, KOVA_LIVE_LOG_WARNING, ": login refused");
    HoldAnswer(pExchange, nDelayMs);
    return false;
}

bool KovaRequestBase(const KovaLiveConnection *pConnection, const KovaRequest &request,
                     const char *szPath, char *szBase, size_t nCapacity)
{
    char szEscaped[3 * kLivePathSize];
    if (!KovaLivePathEscape(szPath, szEscaped, sizeof(szEscaped)))
        return false;
    const std::string_view authority = AuthorityOf(request.url);
    int nLength;
    if (authority.empty()) {
        char szHost[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &pConnection->local.sin_addr, szHost, sizeof(szHost));
        nLength = snprintf(szBase, nCapacity, "rtsp://%s:%u/%s/", szHost,
                           ntohs(pConnection->local.sin_port), szEscaped);
    } else {
        nLength = snprintf(szBase, nCapacity, "rtsp://%.*s/%s/", static_cast<int>(authority.size()),
                           authority.data(), szEscaped);
    }
    return nLength > 0 && static_cast<size_t>(nLength) < nCapacity;
}
