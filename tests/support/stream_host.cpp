#include "tests/support/stream_host.h"

#include "classic/rtp/rtp_packer.h"
#include "classic/rtsp/server_calls.h"
#include "classic/streamer/registries.h"
#include "foundation/mutex.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Tests that go on without their objects would test nothing.
template <typename Object> Object *Require(Object *pObject, const char *szWhat)
{
    if (pObject != nullptr)
        return pObject;
    fprintf(stderr, "stream host: no %s\n", szWhat);
    abort();
}

KovaRtpSendGroup *FirstGroup(KovaRtpSender *pSender)
{
    return static_cast<KovaRtpSendGroup *>(
        Require(Require(pSender, "sender")->pSendGroupList, "group")->data);
}

} // namespace

KovaStreamHost::KovaStreamHost(int32_t nMaxClient)
{
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    m_pServer = Require(KovaRtspServerCreate(szAddress, 0, nMaxClient), "server");
}

KovaStreamHost::~KovaStreamHost()
{
    KovaRtspServerDestroy(m_pServer);
}

KovaRtspStreamer *KovaStreamHost::AddStream(const std::string &uri)
{
    return Require(KovaRtspServerAddUri(m_pServer, uri.c_str()), "stream");
}

KovaRtspStreamer *KovaStreamHost::AddAudioVideo(const std::string &uri)
{
    return Require(KovaPublishAudioVideo(m_pServer, uri), "stream");
}

KovaRtspSession *KovaStreamHost::AddSession(const std::string &id, int32_t nTimeout)
{
    char szId[kSessionIdSize] = {};
    id.copy(szId, sizeof(szId) - 1);
    KovaRtspSession *pSession = Require(KovaRtspSessionCreate(szId, nTimeout), "session");
    if (KovaRtspServerAddSession(m_pServer, pSession) != KOVA_OK)
        abort();
    return pSession;
}

KovaRtpClient *KovaAddTestClient(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                                 const std::string &sessionId)
{
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, nPayloadId);
    KovaRtpSendGroup *pGroup = FirstGroup(pSender);
    KovaRtpSenderAddRtpClient(pSender, sessionId.c_str(), 0, 0, 0, 0, sockaddr_in{}, 1, nullptr, 0,
                              1, 0, 0);
    const KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
    return static_cast<KovaRtpClient *>(Require(KovaListLast(pGroup->pClientList), "client")->data);
}

std::vector<std::string> KovaClientIds(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    KovaRtpSendGroup *pGroup =
        FirstGroup(KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, nPayloadId));
    std::vector<std::string> ids;
    const KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
    for (KovaList *pNode = pGroup->pClientList; pNode != nullptr; pNode = pNode->next)
        ids.emplace_back(static_cast<KovaRtpClient *>(pNode->data)->szSessionId);
    return ids;
}

void KovaStopPackers(KovaRtspStreamer *pStreamer)
{
    KovaThreadRequestStop(pStreamer->nAudioPackerState);
    KovaThreadRequestStop(pStreamer->nVideoPackerState);
    KovaThreadWaitStopped(pStreamer->nAudioPackerState);
    KovaThreadWaitStopped(pStreamer->nVideoPackerState);
}

std::vector<std::string> KovaMessagesOf(const std::vector<std::string> &messages,
                                        const std::string &name)
{
    std::vector<std::string> found;
    for (const std::string &message : messages) {
        if (message.rfind(name + ", ", 0) == 0)
            found.push_back(message);
    }
    return found;
}
