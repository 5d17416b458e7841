#include "classic/rtsp/responses.h"

#include "classic/rtsp/pinned_streamer.h"
#include "classic/rtsp/session.h"
#include "classic/rtsp/status_reasons.h"
#include "classic/sdp/sdp_generator.h"
#include "foundation/list_view.h"
#include "foundation/owner.h"
#include "foundation/text.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kResponseSize = 8192;

/// Room for every answer that repeats neither the URI nor the description. What a
/// request takes of the stack, a connection keeps.
constexpr size_t kShortResponseSize = 1024;

/// Frozen: what players and their logs have always been told.
constexpr char kServerName[] = "Brisklane/1.0.0.1";

/// A response being put together, in the caller's array. That is not cleared: a store
/// would make the connection keep its pages.
struct Response {
    char *szText;
    size_t nCapacity;
    size_t nLength;
};

void SetReason(KovaRtspRequestInfo *pInfo)
{
    ResponseStatusSetting(pInfo->nStatus, pInfo->szReason);
    pInfo->szReason[sizeof(pInfo->szReason) - 1] = '\0';
}

/// Every answer but the refusal begins so.
void Begin(Response *pResponse, KovaRtspRequestInfo *pInfo)
{
    SetReason(pInfo);
    KovaTextAppend(pResponse->szText, pResponse->nCapacity, &pResponse->nLength,
                   "RTSP/1.0 %d %s\r\nCSeq: %s\r\n", pInfo->nStatus, pInfo->szReason,
                   pInfo->szCSeq);
}

void Send(KovaRtspServerHandler *pHandler, const Response &response)
{
    RequestResponseSend(pHandler, response.szText, static_cast<int32_t>(response.nLength));
}

/// Appends one track's part of RTP-Info if the Session line still fits behind
/// it; an entry that does not is left out whole.
bool AppendTrack(Response *pResponse, const KovaRtspServerHandler *pHandler,
                 const KovaRtspRequestInfo &info, const KovaRtspTrackInfo *pTrack, bool bFirst)
{
    constexpr size_t kTail = 64;
    return KovaTextAppend(pResponse->szText, pResponse->nCapacity - kTail, &pResponse->nLength,
                          "%surl=rtsp://%s:%d/%s/trackID=%d;seq=%d;rtptime=%u", bFirst ? "" : ", ",
                          pHandler->szLocalAddr, pHandler->nLocalPort, info.szUri,
                          static_cast<int>(pTrack->nTrackId),
                          static_cast<int>(pTrack->nSeq & 0xFFFF), pTrack->nRtpTime);
}

/// Appends RTP-Info (RFC 2326, section 12.33) and releases the list.
void AppendRtpInfo(Response *pResponse, const KovaRtspServerHandler *pHandler,
                   KovaRtspRequestInfo *pInfo)
{
    if (pInfo->pTrackList == nullptr)
        return;
    KovaTextAppend(pResponse->szText, pResponse->nCapacity, &pResponse->nLength, "RTP-Info: ");
    bool bFirst = true;
    while (pInfo->pTrackList != nullptr) {
        const KovaOwner<KovaRtspTrackInfo, free> track(
            KovaListTakeFirstOf<KovaRtspTrackInfo>(pInfo->pTrackList, nullptr));
        if (track && AppendTrack(pResponse, pHandler, *pInfo, track.Get(), bFirst))
            bFirst = false;
    }
    KovaTextAppend(pResponse->szText, pResponse->nCapacity, &pResponse->nLength, "\r\n");
}

} // namespace

void RequestOptionsResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    char szText[kShortResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
    Send(pHandler, response);
}

void RequestDescribeResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    if (pHandler == nullptr)
        return;
    const KovaPinnedStreamer stream(pHandler->pServer, info.szUri);
    KovaAnswerDescribe(pHandler, &info, stream.Get());
}

void KovaAnswerDescribe(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo *pInfo,
                        KovaRtspStreamer *pStreamer)
{
    char szSdp[kSdpTextSize];
    szSdp[0] = '\0';
    int32_t nSdpLength = 0;
    if (KovaRtspStreamerSdpIsReady(pStreamer) != 0)
        KovaRtspGenerateSdpGetSdpInfo(pStreamer->pSdpGenerator, szSdp, &nSdpLength);
    char szText[kResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, pInfo);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Server: %s\r\nCache-Control: no-cache\r\n"
                   "Content-Type: application/sdp\r\nContent-Length: %d\r\n\r\n%s",
                   kServerName, static_cast<int>(strlen(szSdp)), szSdp);
    Send(pHandler, response);
}

void RequestSetupResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    if (pHandler == nullptr)
        return;
    char szText[kShortResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Server: %s\r\nCache-Control: no-cache\r\n", kServerName);
    if (info.nTransport == kTransportUdp)
        KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                       "Transport: RTP/AVP/UDP;unicast;client_port=%d-%d;server_port=%d-%d;"
                       "ssrc=%u\r\n",
                       info.nClientRtpPort, info.nClientRtcpPort, info.nServerRtpPort,
                       info.nServerRtcpPort, info.nSsrc);
    else
        KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                       "Transport: RTP/AVP/TCP;unicast;destination=%s;source=%s;"
                       "interleaved=%d-%d;ssrc=%u\r\n",
                       pHandler->szPeerAddr, pHandler->szLocalAddr, info.nRtpChannel,
                       info.nRtcpChannel, info.nSsrc);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Session: %s;timeout=%d\r\n\r\n", info.szSessionId, kSessionTimeout);
    Send(pHandler, response);
}

void RequestPlayResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    if (pHandler == nullptr)
        return;
    char szText[kResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Cache-Control: no-cache\r\n");
    AppendRtpInfo(&response, pHandler, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Session: %s;timeout=%d\r\n\r\n", info.szSessionId, kSessionTimeout);
    Send(pHandler, response);
}

void RequestGetParameterResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    char szText[kShortResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Cache-Control: no-cache\r\nSession: %s;timeout=%d\r\n\r\n", info.szSessionId,
                   kSessionTimeout);
    Send(pHandler, response);
}

void RequestTeardownResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    char szText[kShortResponseSize];
    Response response = {szText, sizeof(szText), 0};
    Begin(&response, &info);
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength,
                   "Cache-Control: no-cache\r\n\r\n");
    Send(pHandler, response);
}

void RequestNotOKResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info)
{
    SetReason(&info);
    char szText[kShortResponseSize];
    Response response = {szText, sizeof(szText), 0};
    KovaTextAppend(response.szText, response.nCapacity, &response.nLength, "RTSP/1.0 %d %s\r\n\r\n",
                   info.nStatus, info.szReason);
    Send(pHandler, response);
}
