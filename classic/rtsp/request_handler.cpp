#include "classic/rtsp/request_handler.h"

#include "classic/rtsp/keep_alive.h"
#include "classic/rtsp/pinned_streamer.h"
#include "classic/rtsp/request_parser.h"
#include "classic/rtsp/request_ports.h"
#include "classic/rtsp/responses.h"
#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/rtsp/stream_clients.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <cstdio>

namespace {

/// A check that refuses returns the status; this lets the request go on.
constexpr int32_t kGoOn = 0;

/// One request on its way.
struct Request {
    KovaRtspServerHandler *pHandler;
    KovaRtspServer *pServer;
    KovaPinnedStreamer stream; ///< that the URI names; looked up once
    KovaRequestPorts ports;    ///< that a UDP transport has opened
    KovaRtspRequestInfo info;
    KovaRequestScan scan; ///< last, for the sake of its text
};

int32_t Refuse(const char *szMessage, int32_t nStatus)
{
    printf("%s", szMessage);
    return nStatus;
}

int32_t CheckMethod(Request *pRequest)
{
    if (!KovaRequestScanMethod(&pRequest->scan))
        return Refuse("Parse Request fail\n", kStatusBadRequest);
    if (IsRequestCommandSupport(pRequest->scan.szMethod) == 0)
        return Refuse("Not Support Request Command\n", kStatusBadRequest);
    return kGoOn;
}

/// A path of no or one byte names no track's SSRC, whatever stream it names.
bool FindSsrc(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    return pInfo->szUri[0] != '\0' && pRequest->stream &&
           KovaStreamFindSsrc(pRequest->stream.Get(), pInfo->nTrackId, &pInfo->nSsrc);
}

int32_t CheckUri(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    if (!KovaRequestScanHost(&pRequest->scan, pInfo))
        return Refuse("Parse HostPort fail\n", kStatusBadRequest);
    if (!KovaRequestScanVersion(&pRequest->scan, pInfo))
        return kGoOn; // the missing CSeq refuses it
    if (pRequest->scan.bSetup && !KovaRequestScanTrack(&pRequest->scan, pInfo))
        printf("Not find track id !!!\n");
    const KovaPathScan path = KovaRequestScanPath(&pRequest->scan, pInfo);
    if (path != kPathTooLong)
        pRequest->stream.Pin(pRequest->pServer, pInfo->szUri);
    if (path == kPathTooLong || (path == kPathFound && !pRequest->stream))
        return Refuse("Can't find Uri !!!\n", kStatusNotFound);
    if (pRequest->scan.bSetup && !FindSsrc(pRequest))
        printf("Get SSRC fail !!!\n");
    return pRequest->stream ? kGoOn : Refuse("Parse Track Id or Uri fail\n", kStatusNotFound);
}

int32_t CheckCSeq(Request *pRequest)
{
    if (!KovaRequestScanCSeq(&pRequest->scan, &pRequest->info))
        return Refuse("Parse CSeq fail\n", kStatusBadRequest);
    return kGoOn;
}

/// An id that no session has may be as long as the request.
void PrintSessionId(std::string_view id)
{
    char szShown[kRequestSize + 1];
    printf("Session Id: %s\n", KovaTextPrintable(szShown, sizeof(szShown), id));
}

int32_t CheckSession(Request *pRequest)
{
    std::string_view id;
    if (!KovaRequestScanSession(&pRequest->scan, &id))
        return kGoOn;
    PrintSessionId(id);
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    if (id.size() >= sizeof(pInfo->szSessionId))
        return kStatusSessionNotFound;
    KovaTextCopy(pInfo->szSessionId, sizeof(pInfo->szSessionId), id);
    if (KovaRtspServerIsSessionExist(pRequest->pServer, pInfo->szSessionId) == 0)
        return kStatusSessionNotFound;
    if (pInfo->szSessionId[0] != '\0')
        KovaHandlerSetSessionId(pRequest->pHandler, pInfo->szSessionId);
    return kGoOn;
}

void OpenPorts(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    pRequest->ports.Open(pInfo);
    printf("Client: %d-%d, Server: %d-%d, Client Socket: %d-%d\n", pInfo->nClientRtpPort,
           pInfo->nClientRtcpPort, pInfo->nServerRtpPort, pInfo->nServerRtcpPort, pInfo->nRtpSocket,
           pInfo->nRtcpSocket);
}

int32_t CheckInterleaved(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    switch (KovaRequestScanParameter(&pRequest->scan, "interleaved", &pInfo->nRtpChannel)) {
    case kParameterAbsent:
        return Refuse("Parse Client Port fail\n", kStatusBadRequest);
    case kParameterIncomplete:
    case kParameterInvalid:
        return kStatusBadRequest;
    case kParameterFound:
        break;
    }
    pInfo->nRtcpChannel = static_cast<uint16_t>(pInfo->nRtpChannel + 1);
    pInfo->nTransport = kTransportInterleaved;
    pInfo->nTcpSocket = pRequest->pHandler->nSocket;
    return kGoOn;
}

/// UDP ports are opened for whatever method names client ports; interleaved
/// channels count for SETUP only.
int32_t CheckTransport(Request *pRequest)
{
    switch (
        KovaRequestScanParameter(&pRequest->scan, "client_port", &pRequest->info.nClientRtpPort)) {
    case kParameterAbsent:
        return pRequest->scan.bSetup ? CheckInterleaved(pRequest) : kGoOn;
    case kParameterIncomplete:
        break;
    case kParameterInvalid:
        return kStatusBadRequest;
    case kParameterFound:
        OpenPorts(pRequest);
        break;
    }
    return kGoOn;
}

void TakeClient(Request *pRequest)
{
    const KovaRtspRequestInfo &info = pRequest->info;
    if (pRequest->ports.HaveFailed())
        return;
    KovaRtspServerHandler *pHandler = pRequest->pHandler;
    const bool bTaken =
        KovaPlayersAdd(pRequest->stream.Get(), static_cast<uint32_t>(info.nTrackId),
                       {info.szSessionId, info.nRtpSocket, info.nRtcpSocket, info.nClientRtpPort,
                        info.nClientRtcpPort, info.nRtpChannel, info.nRtcpChannel, info.nTransport,
                        reinterpret_cast<int *>(&pHandler->nSocket), pHandler->peerAddr});
    if (bTaken)
        pRequest->ports.Release();
}

/// Takes back what the request did if its session has expired, or broken, since
/// the request was checked.
void EndIfOvertaken(const Request *pRequest, const KovaPlay *pPlay)
{
    if (pRequest->info.szSessionId[0] != '\0')
        KovaServerEndOvertaken(pRequest->pServer, pRequest->stream.Get(),
                               pRequest->info.szSessionId, pPlay);
}

int32_t DoSetup(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    if (KovaRtspServerGetCurrentClientCount(pRequest->pServer) >=
        KovaServerMaxClient(pRequest->pServer))
        return kStatusForbidden;
    bool bHasSession = true;
    if (pInfo->szSessionId[0] == '\0')
        bHasSession =
            AddNewRtspSession(pRequest->pServer, pInfo->szSessionId, kSessionTimeout) == KOVA_OK;
    else if (KovaRtspServerIsSessionExist(pRequest->pServer, pInfo->szSessionId) == 0)
        return kStatusSessionNotFound;
    // Without a session nothing would ever end the client.
    if (bHasSession) {
        TakeClient(pRequest);
        EndIfOvertaken(pRequest, nullptr);
    }
    // With the answer the request ends for the player.
    pRequest->ports.Close();
    RequestSetupResponse(pRequest->pHandler, *pInfo);
    return kGoOn;
}

void DoPlay(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    KovaRtspStreamer *pStreamer = pRequest->stream.Get();
    const KovaPlay play = KovaPlayersBeginPlay(pStreamer, pInfo->szSessionId);
    KovaStreamListTracks(pStreamer, pInfo->szSessionId, &pInfo->pTrackList);
    EndIfOvertaken(pRequest, &play);
    KovaPlayersFinishPlay(play);
    RequestPlayResponse(pRequest->pHandler, *pInfo);
}

void DoGetParameter(Request *pRequest)
{
    const KovaRtspRequestInfo &info = pRequest->info;
    char szShown[kSessionIdSize];
    TimeLog(kLogThread, "%s, UpdateSession: %s\n", "HandleRtspRequest",
            KovaTextPrintable(szShown, sizeof(szShown), info.szSessionId));
    KovaRtspServerUpdateSession(pRequest->pServer, info.szSessionId);
    RequestGetParameterResponse(pRequest->pHandler, info);
}

void DoTeardown(Request *pRequest)
{
    const KovaRtspRequestInfo &info = pRequest->info;
    bool bCounted = false;
    KovaPlayersEnd(pRequest->stream.Get(), info.szSessionId, kEndTornDown, &bCounted);
    KovaServerEndSession(pRequest->pServer, info.szSessionId, kEndGoneWithIt);
    RequestTeardownResponse(pRequest->pHandler, info);
}

/// Acts on the method and answers. Returns the status of a refusal, or kGoOn.
int32_t Dispatch(Request *pRequest)
{
    KovaRtspRequestInfo *pInfo = &pRequest->info;
    pInfo->nMethod = KovaRequestMethodOf(pRequest->scan.szMethod);
    if (pInfo->nMethod != kMethodSetup)
        pRequest->ports.Close();
    switch (pInfo->nMethod) {
    case kMethodOptions:
        KovaStreamTakeAddresses(pRequest->stream.Get(), *pRequest->pHandler);
        RequestOptionsResponse(pRequest->pHandler, *pInfo);
        return kGoOn;
    case kMethodDescribe:
        KovaAnswerDescribe(pRequest->pHandler, pInfo, pRequest->stream.Get());
        return kGoOn;
    case kMethodSetup:
        return DoSetup(pRequest);
    case kMethodPlay:
        DoPlay(pRequest);
        return kGoOn;
    case kMethodGetParameter:
        DoGetParameter(pRequest);
        return kGoOn;
    case kMethodTeardown:
        DoTeardown(pRequest);
        return kGoOn;
    default:
        return kStatusBadRequest;
    }
}

/// The steps of a request, in the order in which a refusal is decided.
int32_t RunSteps(Request *pRequest)
{
    using Step = int32_t (*)(Request *);
    static constexpr Step kSteps[] = {CheckMethod,  CheckUri,       CheckCSeq,
                                      CheckSession, CheckTransport, Dispatch};
    for (const Step pfnStep : kSteps) {
        const int32_t nStatus = pfnStep(pRequest);
        if (nStatus != kGoOn)
            return nStatus;
    }
    return kGoOn;
}

} // namespace

int32_t HandleRtspRequest(KovaRtspServerHandler *pHandler, const uint8_t *pBytes, int32_t nCount)
{
    if (pHandler == nullptr || pBytes == nullptr || pHandler->pServer == nullptr)
        return KOVA_ERROR_NULL;
    if (HandleRtspTcpKeepAlive(pHandler, pBytes, nCount) != 0)
        return KOVA_OK;
    Request request;
    request.pHandler = pHandler;
    request.pServer = pHandler->pServer;
    request.info = {};
    request.info.nStatus = kStatusOk;
    KovaRequestScanBegin(&request.scan, pBytes, nCount);
    const int32_t nRefused = RunSteps(&request);
    if (nRefused != kGoOn) {
        request.ports.Close();
        request.info.nStatus = nRefused;
        RequestNotOKResponse(pHandler, request.info);
    }
    return KOVA_OK;
}
