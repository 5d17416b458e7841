#include "classic/rtsp/stream_clients.h"

#include "classic/rtp/session_tally.h"
#include "classic/rtp/stream_calls.h"
#include "classic/rtsp/server_calls.h"
#include "classic/streamer/client_walk.h"
#include "classic/streamer/streamer.h"
#include "foundation/heap.h"
#include "foundation/result.h"
#include "foundation/scope_guard.h"

namespace {

/// A stream looked up by URI, pinned for the life of a scope.
class PinnedStreamer {
public:
    PinnedStreamer(KovaRtspServer *pServer, const char *szUri)
        : m_pStreamer(KovaServerPinStreamer(pServer, szUri))
    {}
    ~PinnedStreamer()
    {
        KovaStreamerUnpin(m_pStreamer);
    }
    PinnedStreamer(const PinnedStreamer &) = delete;
    PinnedStreamer &operator=(const PinnedStreamer &) = delete;

    KovaRtspStreamer *Get() const
    {
        return m_pStreamer;
    }

private:
    KovaRtspStreamer *m_pStreamer;
};

/// Under senderMutex.
KovaRtpSender *FindSender(const KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    for (KovaList *pNode = pStreamer->pSenderList; pNode != nullptr; pNode = pNode->next) {
        KovaRtpSender *pSender = static_cast<KovaRtpSender *>(pNode->data);
        if (pSender != nullptr && pSender->nPayloadId == nPayloadId)
            return pSender;
    }
    return nullptr;
}

bool MarkPlaying(const KovaClientVisit &visit, void *)
{
    visit.pClient->nState = kClientPlaying;
    return false;
}

bool CountOutAndRemove(const KovaClientVisit &visit, void *)
{
    KovaVisitCountOut(visit);
    return true;
}

bool AppendTrack(const KovaClientVisit &visit, void *pContext)
{
    KovaList **ppTrackList = static_cast<KovaList **>(pContext);
    KovaRtspTrackInfo *pTrack = KovaHeapNew<KovaRtspTrackInfo>();
    if (pTrack == nullptr)
        return false;
    *pTrack = {visit.pSender->nPayloadId, visit.pSender->nLastSequence,
               visit.pSender->nLastTimestamp};
    if (!KovaListPush(ppTrackList, pTrack))
        free(pTrack);
    return false;
}

int32_t WalkSession(KovaRtspStreamer *pStreamer, const char *szSessionId,
                    KovaClientVisitor pfnVisit, void *pContext)
{
    KovaStreamerWalkSession(pStreamer, szSessionId, nullptr, pfnVisit, pContext);
    return KOVA_RESULT_OK;
}

} // namespace

bool KovaStreamTakeClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                          const KovaClientSetup &setup)
{
    if (pServer == nullptr || szUri == nullptr || setup.szSessionId == nullptr ||
        setup.nRtpSocket < 0 || setup.nRtcpSocket < 0)
        return false;
    const PinnedStreamer pinned(pServer, szUri);
    KovaRtspStreamer *pStreamer = pinned.Get();
    if (pStreamer == nullptr)
        return false;
    // Found and used under one lock: the host may remove the payload type.
    const KovaMutexLock lock(&pStreamer->senderMutex);
    KovaRtpSender *pSender = FindSender(pStreamer, static_cast<uint32_t>(nTrackId));
    if (pSender == nullptr)
        return false;
    KovaRtpClient *pClient = KovaRtpClientCreate(
        setup.szSessionId, setup.nRtpSocket, setup.nRtcpSocket, setup.nClientRtpPort,
        setup.nClientRtcpPort, setup.address, setup.nTransport, setup.pTcpSocket, setup.nRtpChannel,
        setup.nRtcpChannel, pSender->nLastSequence, pSender->nLastTimestamp);
    if (pClient == nullptr)
        return false;
    if (!KovaRtpSenderPlaceClient(pSender, pClient))
        KovaRtpClientDestroy(pClient);
    return true;
}

void AddNewRtpClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                     const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                     int32_t nClientRtpPort, int32_t nClientRtcpPort, int32_t nRtpChannel,
                     int32_t nRtcpChannel, int32_t nTransport, int *pTcpSocket,
                     sockaddr_in clientAddress)
{
    KovaStreamTakeClient(
        pServer, szUri, nTrackId,
        {szSessionId, nRtpSocket, nRtcpSocket, static_cast<uint16_t>(nClientRtpPort),
         static_cast<uint16_t>(nClientRtcpPort), static_cast<uint16_t>(nRtpChannel),
         static_cast<uint16_t>(nRtcpChannel), nTransport, pTcpSocket, clientAddress});
}

int32_t RemoveRtpClient(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr)
        return KOVA_RESULT_NULL;
    const PinnedStreamer pinned(pServer, szUri);
    if (pinned.Get() == nullptr)
        return KOVA_RESULT_FAILED;
    bool bCounted = false;
    return WalkSession(pinned.Get(), szSessionId, KovaVisitRemoveClient, &bCounted);
}

void KovaStreamDropSession(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    const PinnedStreamer pinned(pServer, szUri);
    if (pinned.Get() != nullptr)
        WalkSession(pinned.Get(), szSessionId, CountOutAndRemove, nullptr);
}

KovaPlay KovaStreamBeginPlay(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    const KovaPlay play = {KovaServerPinStreamer(pServer, szUri), nullptr, szSessionId};
    if (play.pStreamer == nullptr)
        return play;
    KovaSessionTally *pTally = KovaSessionTallyHold(play.pStreamer, szSessionId);
    play.pStreamer->nClientCount++;
    // Before any client plays: from then on its sending thread may find it lost.
    KovaSessionTallyRaised(pTally);
    WalkSession(play.pStreamer, szSessionId, MarkPlaying, nullptr);
    return {play.pStreamer, pTally, szSessionId};
}

void KovaStreamTakeBackPlay(const KovaPlay &play)
{
    if (play.pStreamer == nullptr)
        return;
    WalkSession(play.pStreamer, play.szSessionId, CountOutAndRemove, nullptr);
    if (KovaSessionTallyTake(play.pTally))
        play.pStreamer->nClientCount--;
}

void KovaStreamFinishPlay(const KovaPlay &play)
{
    KovaSessionTallyRelease(play.pTally);
    KovaStreamerUnpin(play.pStreamer);
}

int32_t UpdateRtpClientStatus(KovaRtspServer *pServer, const char *szUri, const char *szSessionId)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr)
        return KOVA_RESULT_NULL;
    const KovaPlay play = KovaStreamBeginPlay(pServer, szUri, szSessionId);
    KovaStreamFinishPlay(play);
    return play.pStreamer != nullptr ? KOVA_RESULT_OK : KOVA_RESULT_FAILED;
}

int32_t GetTrackIdList(KovaRtspServer *pServer, const char *szUri, const char *szSessionId,
                       KovaList **ppTrackList)
{
    if (pServer == nullptr || szUri == nullptr || szSessionId == nullptr || ppTrackList == nullptr)
        return KOVA_RESULT_NULL;
    const PinnedStreamer pinned(pServer, szUri);
    if (pinned.Get() == nullptr)
        return KOVA_RESULT_FAILED;
    return WalkSession(pinned.Get(), szSessionId, AppendTrack, ppTrackList);
}

int32_t GetSSRC(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId, uint32_t *pSsrc)
{
    if (pServer == nullptr || szUri == nullptr || szUri[0] == '\0' || pSsrc == nullptr)
        return KOVA_RESULT_NULL;
    const PinnedStreamer pinned(pServer, szUri);
    KovaPackerIdentity packer = {};
    if (pinned.Get() == nullptr ||
        !KovaStreamFindPacker(pinned.Get(), static_cast<uint32_t>(nTrackId), &packer))
        return KOVA_RESULT_FAILED;
    *pSsrc = packer.nSsrc;
    return KOVA_RESULT_OK;
}

void SetNetworkInfo(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler, const char *szUri)
{
    if (pServer == nullptr || pHandler == nullptr || szUri == nullptr)
        return;
    const PinnedStreamer pinned(pServer, szUri);
    if (pinned.Get() != nullptr)
        KovaRtspSdpGeneratorSetNetworkInfo(pinned.Get()->pSdpGenerator, pHandler->szLocalAddr,
                                           pHandler->nLocalPort, pHandler->szPeerAddr);
}

void GetSdpInfo(KovaRtspServer *pServer, const char *szUri, char *szText, int32_t *pLength)
{
    if (pServer == nullptr || szUri == nullptr || szText == nullptr || pLength == nullptr)
        return;
    const PinnedStreamer pinned(pServer, szUri);
    if (pinned.Get() != nullptr)
        KovaRtspGenerateSdpGetSdpInfo(pinned.Get()->pSdpGenerator, szText, pLength);
}

void KovaStreamGetReadySdp(KovaRtspServer *pServer, const char *szUri, char *szText,
                           int32_t *pLength)
{
    const PinnedStreamer pinned(pServer, szUri);
    if (KovaRtspStreamerSdpIsReady(pinned.Get()) != 0)
        KovaRtspGenerateSdpGetSdpInfo(pinned.Get()->pSdpGenerator, szText, pLength);
}
