#include "classic/rtsp/stream_clients.h"

#include "classic/rtp/stream_calls.h"
#include "classic/rtsp/pinned_streamer.h"
#include "classic/streamer/client_walk.h"
#include "classic/streamer/players.h"
#include "foundation/heap.h"
#include "foundation/owner.h"

namespace {

bool AppendTrack(const KovaClientVisit &visit, void *pContext)
{
    KovaOwner<KovaRtspTrackInfo, free> track(KovaHeapNew<KovaRtspTrackInfo>());
    if (!track)
        return false;
    *track.Get() = {visit.pSender->nPayloadId,
                    visit.pSender->nLastSequence.load(std::memory_order_relaxed),
                    visit.pSender->nLastTimestamp.load(std::memory_order_relaxed)};
    if (KovaListPush(static_cast<KovaList **>(pContext), track.Get()))
        track.Release();
    return false;
}

} // namespace

void KovaStreamListTracks(KovaRtspStreamer *pStreamer, const char *szSessionId,
                          KovaList **ppTrackList)
{
    KovaStreamerWalkSession(pStreamer, szSessionId, nullptr, AppendTrack, ppTrackList);
}

bool KovaStreamFindSsrc(KovaRtspStreamer *pStreamer, int32_t nTrackId, uint32_t *pSsrc)
{
    KovaPackerIdentity packer = {};
    if (!KovaStreamFindPacker(pStreamer, static_cast<uint32_t>(nTrackId), &packer))
        return false;
    *pSsrc = packer.nSsrc;
    return true;
}

void KovaStreamTakeAddresses(KovaRtspStreamer *pStreamer, const KovaRtspServerHandler &handler)
{
    KovaRtspSdpGeneratorSetNetworkInfo(pStreamer->pSdpGenerator, handler.szLocalAddr,
                                       handler.nLocalPort, handler.szPeerAddr);
}

void AddNewRtpClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                     const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                     int32_t nClientRtpPort, int32_t nClientRtcpPort, int32_t nRtpChannel,
                     int32_t nRtcpChannel, int32_t nTransport, int *pTcpSocket,
                     sockaddr_in clientAddress)
{
    if (szSessionId == nullptr)
        return;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (stream)
        KovaPlayersAdd(stream.Get(), static_cast<uint32_t>(nTrackId),
                       {szSessionId, nRtpSocket, nRtcpSocket, static_cast<uint16_t>(nClientRtpPort),
                        static_cast<uint16_t>(nClientRtcpPort), static_cast<uint16_t>(nRtpChannel),
                        static_cast<uint16_t>(nRtcpChannel), nTransport, pTcpSocket,
                        clientAddress});
}

int32_t RemoveRtpClient(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (!stream)
        return KOVA_ERROR_FAILED;
    bool bCounted = false;
    KovaPlayersEnd(stream.Get(), szSessionId, kEndTornDown, &bCounted);
    return KOVA_OK;
}

int32_t UpdateRtpClientStatus(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr)
        return KOVA_ERROR_NULL;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (!stream)
        return KOVA_ERROR_FAILED;
    KovaPlayersFinishPlay(KovaPlayersBeginPlay(stream.Get(), szSessionId));
    return KOVA_OK;
}

int32_t GetTrackIdList(KovaRtspServer *pServer, const char *szUri, const char *szSessionId,
                       KovaList **ppTrackList)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr || ppTrackList == nullptr)
        return KOVA_ERROR_NULL;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (!stream)
        return KOVA_ERROR_FAILED;
    KovaStreamListTracks(stream.Get(), szSessionId, ppTrackList);
    return KOVA_OK;
}

int32_t GetSSRC(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId, uint32_t *pSsrc)
{
    if (pServer == nullptr || szUri == nullptr || szUri[0] == '\0' || pSsrc == nullptr)
        return KOVA_ERROR_NULL;
    const KovaPinnedStreamer stream(pServer, szUri);
    return stream && KovaStreamFindSsrc(stream.Get(), nTrackId, pSsrc) ? KOVA_OK
                                                                       : KOVA_ERROR_FAILED;
}

void SetNetworkInfo(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler, const char *szUri)
{
    if (pHandler == nullptr)
        return;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (stream)
        KovaStreamTakeAddresses(stream.Get(), *pHandler);
}

void GetSdpInfo(KovaRtspServer *pServer, const char *szUri, char *szText, int32_t *pLength)
{
    if (szText == nullptr || pLength == nullptr)
        return;
    const KovaPinnedStreamer stream(pServer, szUri);
    if (stream)
        KovaRtspGenerateSdpGetSdpInfo(stream.Get()->pSdpGenerator, szText, pLength);
}
