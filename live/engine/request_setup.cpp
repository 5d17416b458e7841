#include "live/engine/requests.h"

#include "live/engine/udp_ports.h"
#include "live/rtsp/transport_header.h"

#include <arpa/inet.h>

namespace {

constexpr size_t kTransportSize = 256;

/// Sessions of one connection: a player has one, a relay some; none may take all of them.
constexpr uint32_t kMostOwnSessions = 256;

uint32_t OwnSessions(const KovaLiveConnection *pConnection)
{
    uint32_t nCount = 0;
    for (const KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn)
        nCount++;
    return nCount;
}

/// The session that gets the track: the request's, or a new one. Null when it is answered.
KovaLiveSession *SessionFor(KovaExchange *pExchange, bool bInterleaved)
{
    KovaLiveSession *pSession = pExchange->pSession;
    if (pSession == nullptr) {
        const int32_t nResult =
            OwnSessions(pExchange->pConnection) < kMostOwnSessions
                ? KovaSessionCreate(pExchange->pConnection, pExchange->pStream, &pSession)
                : KOVA_LIVE_ERROR_TOO_LARGE;
        if (nResult == KOVA_LIVE_OK) {
            pSession->bInterleaved = bInterleaved;
            return pSession;
        }
        pExchange->pConnection->bClosing = nResult == KOVA_LIVE_ERROR_TOO_LARGE;
        if (nResult == KOVA_LIVE_ERROR_TOO_LARGE)
            KovaConnectionTell(pExchange->pConnection, KOVA_LIVE_LOG_WARNING,
                               ": too many sessions");
        KovaRequestRefuse(pExchange->pConnection, *pExchange->pRequest, 503);
        return nullptr;
    }
    uint16_t nStatus = 0;
    if (pSession->pStream != pExchange->pStream)
        nStatus = 459; // one session is one stream's
    else if (pSession->state != kSessionReady)
        nStatus = 455;
    else if (pSession->bInterleaved != bInterleaved ||
             (bInterleaved && pSession->pConnection != pExchange->pConnection))
        nStatus = 461; // all tracks of a session go the same way
    if (nStatus == 0)
        return pSession;
    KovaExchangeStatus(pExchange, nStatus);
    return nullptr;
}

bool ChannelIsFree(const KovaLiveConnection *pConnection, const KovaLiveSetup *pOwn,
                   uint32_t nChannel)
{
    for (const KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn) {
        for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr;
             pSetup = pSetup->pNext) {
            if (pSetup != pOwn && pSetup->bInterleaved &&
                (pSetup->nRtpChannel == nChannel || pSetup->nRtcpChannel == nChannel))
                return false;
        }
    }
    return true;
}

/// The channels that were asked for, or the first free pair. False when there is none.
bool ChooseChannels(const KovaLiveConnection *pConnection, const KovaLiveSetup *pOwn,
                    KovaTransportOffer *pOffer)
{
    if (pOffer->bChannels && pOffer->nRtpChannel != pOffer->nRtcpChannel &&
        ChannelIsFree(pConnection, pOwn, pOffer->nRtpChannel) &&
        ChannelIsFree(pConnection, pOwn, pOffer->nRtcpChannel))
        return true;
    for (uint32_t nChannel = 0; nChannel < 256; nChannel += 2) {
        if (ChannelIsFree(pConnection, pOwn, nChannel) &&
            ChannelIsFree(pConnection, pOwn, nChannel + 1)) {
            pOffer->nRtpChannel = static_cast<uint8_t>(nChannel);
            pOffer->nRtcpChannel = static_cast<uint8_t>(nChannel + 1);
            return true;
        }
    }
    return false;
}

sockaddr_in PeerPort(const KovaLiveConnection *pConnection, uint16_t nPort)
{
    sockaddr_in address = pConnection->peer;
    address.sin_port = htons(nPort);
    return address;
}

/// Notes the way to the player. False when there are no ports or channels.
bool SetWay(KovaLiveConnection *pConnection, KovaLiveSession *pSession, KovaLiveSetup *pSetup,
            KovaTransportAnswer *pAnswer)
{
    KovaTransportOffer *pOffer = &pAnswer->offer;
    pSetup->bInterleaved = pOffer->kind == kTransportInterleaved;
    pSetup->bBye = false;
    if (pSetup->bInterleaved) {
        if (!ChooseChannels(pConnection, pSetup, pOffer))
            return false;
        pSetup->nRtpChannel = pOffer->nRtpChannel;
        pSetup->nRtcpChannel = pOffer->nRtcpChannel;
        return true;
    }
    // Tracks of a session leave from one address, whichever its later connections came to.
    if (pSession->pPorts == nullptr)
        pSession->pPorts = KovaUdpPortsOf(pConnection->pLoop, pConnection->local.sin_addr.s_addr);
    if (pSession->pPorts == nullptr) {
        KovaConnectionTell(pConnection, KOVA_LIVE_LOG_WARNING, ": no pair of UDP ports can be had");
        return false;
    }
    pSetup->route = {};
    pSetup->rtpAddress = PeerPort(pConnection, pOffer->nClientRtp);
    pSetup->rtcpAddress = PeerPort(pConnection, pOffer->nClientRtcp);
    pAnswer->nServerRtp = pSession->pPorts->nRtpPort;
    pAnswer->nServerRtcp = pSession->pPorts->nRtcpPort;
    return true;
}

/// The track of the URL; of a stream with one track the stream's URL will do.
bool FindTrack(KovaExchange *pExchange, uint32_t *pnTrack)
{
    const uint32_t nTracks = pExchange->pStream->nTracks;
    const int32_t nTrack = pExchange->url.nTrack;
    if (nTrack < 0 && nTracks != 1) {
        KovaExchangeStatus(pExchange, nTracks == 0 ? 404 : 459);
        return false;
    }
    *pnTrack = nTrack < 0 ? 0 : static_cast<uint32_t>(nTrack);
    if (*pnTrack < nTracks)
        return true;
    KovaExchangeStatus(pExchange, 404);
    return false;
}

void AnswerSetup(KovaExchange *pExchange, const KovaLiveSession *pSession,
                 const KovaTransportAnswer &answer)
{
    char szTransport[kTransportSize];
    if (!KovaTransportHeaderWrite(answer, szTransport, sizeof(szTransport)))
        return KovaExchangeStatus(pExchange, 500);
    KovaExchangeBegin(pExchange, 200);
    KovaAnswerHeader(&pExchange->answer, "Transport", "%s", szTransport);
    KovaExchangeSession(pExchange, pSession);
    KovaExchangeSend(pExchange);
}

/// A session or a track that this request made goes with it.
void Undo(KovaLiveSession *pSession, KovaLiveSetup *pSetup)
{
    if (pSetup != nullptr)
        KovaSessionRemoveSetup(pSession, pSetup);
    if (pSession->pSetups == nullptr)
        KovaSessionEnd(pSession, KOVA_LIVE_WENT_TEARDOWN);
}

} // namespace

void KovaRequestSetup(KovaExchange *pExchange)
{
    uint32_t nTrack = 0;
    if (!FindTrack(pExchange, &nTrack))
        return;
    KovaTransportAnswer answer = {};
    answer.offer = KovaTransportHeaderParse(KovaRequestHeaderOf(*pExchange->pRequest, "Transport"));
    if (answer.offer.kind == kTransportNone || answer.offer.kind == kTransportBad)
        return KovaExchangeStatus(pExchange, answer.offer.kind == kTransportNone ? 461 : 400);
    KovaLiveSession *pSession = SessionFor(pExchange, answer.offer.kind == kTransportInterleaved);
    if (pSession == nullptr)
        return;
    KovaLiveSetup *pSetup = KovaSessionSetup(pSession, nTrack);
    if (pSetup == nullptr)
        pSetup = KovaSessionAddSetup(pSession, nTrack);
    if (pSetup == nullptr || !SetWay(pExchange->pConnection, pSession, pSetup, &answer)) {
        Undo(pSession, pSetup);
        return KovaExchangeStatus(pExchange, 503);
    }
    answer.nSsrc = KovaTrackMediaSsrc(pExchange->pStream->pTracks[nTrack]->pMedia);
    char szSource[INET_ADDRSTRLEN];
    inet_ntop(AF_INET,
              pSession->pPorts != nullptr ? &pSession->pPorts->nAddress
                                          : &pExchange->pConnection->local.sin_addr.s_addr,
              szSource, sizeof(szSource));
    answer.szSource = szSource;
    AnswerSetup(pExchange, pSession, answer);
}
