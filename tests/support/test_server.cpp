#include "tests/support/test_server.h"

#include "classic/rtp/rtp_packer.h"
#include "classic/rtp/tcp_channel.h"
#include "classic/server/listener.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/registries.h"
#include "tests/support/server_records.h"
#include "tests/support/sockets.h"

#include <dirent.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kPortAttempts = 20;
constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";

/// The socket that a client's reference leads to. A connection that is not
/// registered any more is about to be freed: its memory is not looked at.
int32_t SocketOf(KovaRtspServer *pServer, const int *pSocket)
{
    int32_t nSocket = -1;
    KovaForEachHandler(pServer, [&](KovaRtspServerHandler *pHandler) {
        if (reinterpret_cast<int *>(&pHandler->nSocket) == pSocket)
            nSocket = pHandler->nSocket;
    });
    return nSocket;
}

} // namespace

uint16_t KovaFreeTcpPort()
{
    const int nSocket = KovaListen();
    const uint16_t nPort = KovaPortOf(nSocket);
    close(nSocket);
    return nPort;
}

KovaTestServer::KovaTestServer(const KovaTestServerOptions &options) : m_uri(options.uri)
{
    if (!options.bStart) {
        m_nListener = KovaListen();
        m_nPort = KovaPortOf(m_nListener);
        m_pServer = KovaRtspServerCreate(kLoopback, m_nPort, options.nMaxClient);
    }
    // Somebody else may take the port between the choice and its use.
    for (int i = 0; i < kPortAttempts && m_pServer == nullptr && options.bStart; i++) {
        m_nPort = KovaFreeTcpPort();
        KovaRtspServerInit(&m_pServer, kLoopback, m_nPort, options.nMaxClient);
    }
    if (m_pServer != nullptr && !m_uri.empty())
        m_pStream = AddStream(m_uri);
}

KovaTestServer::~KovaTestServer()
{
    if (m_nListener >= 0) {
        KovaRtspServerDestroy(m_pServer);
        close(m_nListener);
    } else if (m_pServer != nullptr) {
        KovaRtspServerUninit(m_pServer);
    }
}

KovaRtspStreamer *KovaTestServer::AddStream(const std::string &uri)
{
    return KovaPublishAudioVideo(m_pServer, uri);
}

void KovaTestServer::RemoveStream()
{
    KovaRtspServerRemoveUri(m_pServer, m_uri.c_str());
    m_pStream = nullptr;
}

bool KovaTestServer::PushReady(uint32_t nTimestamp)
{
    KovaPush(m_pStream, KOVA_PAYLOAD_ID_AUDIO, KovaTestAacFrame(20), nTimestamp);
    KovaPush(m_pStream, KOVA_PAYLOAD_ID_VIDEO, KovaTestKeyFrame(100), nTimestamp);
    return KovaWaitUntil(5000, [this] { return KovaRtspStreamerSdpIsReady(m_pStream) == 1; });
}

bool KovaTestServer::Connect(KovaRtspTestClient *pClient, int nReceiveBuffer)
{
    if (!pClient->Connect(m_nPort, nReceiveBuffer))
        return false;
    if (m_nListener >= 0) {
        sockaddr_in peer = {};
        socklen_t nSize = sizeof(peer);
        const int nSocket = accept(m_nListener, reinterpret_cast<sockaddr *>(&peer), &nSize);
        pClient->OnExchange([this, pClient] { Settle(*pClient); });
        return AddNewRtspHandler(m_pServer, nSocket, peer) == 0;
    }
    return KovaWaitUntil(5000, [&] { return Handler(*pClient) != nullptr; });
}

KovaRtspServerHandler *KovaTestServer::Handler(const KovaRtspTestClient &client)
{
    KovaRtspServerHandler *pFound = nullptr;
    const uint16_t nPort = client.LocalPort();
    KovaForEachHandler(m_pServer, [&](KovaRtspServerHandler *pHandler) {
        if (pHandler->nPeerPort == nPort)
            pFound = pHandler;
    });
    return pFound;
}

void KovaTestServer::Settle(const KovaRtspTestClient &client)
{
    KovaRtspServerHandler *pHandler = Handler(client);
    if (pHandler == nullptr)
        return;
    pthread_mutex_lock(&pHandler->mtxRequest.native);
    pthread_mutex_unlock(&pHandler->mtxRequest.native);
    // The connection's end comes after this: it takes the registry's mutex first.
    HandlerCount();
}

bool KovaTestServer::WaitHandlers(unsigned nCount, int nMilliseconds)
{
    return KovaWaitUntil(nMilliseconds, [&] { return HandlerCount() == nCount; });
}

unsigned KovaTestServer::HandlerCount()
{
    pthread_mutex_lock(&m_pServer->mtxHandler.native);
    const unsigned nCount = KovaListLength(m_pServer->pHandlerList);
    pthread_mutex_unlock(&m_pServer->mtxHandler.native);
    return nCount;
}

unsigned KovaTestServer::SessionCount()
{
    pthread_mutex_lock(&m_pServer->mtxSession.native);
    const unsigned nCount = KovaListLength(m_pServer->pSessionList);
    pthread_mutex_unlock(&m_pServer->mtxSession.native);
    return nCount;
}

int32_t KovaTestServer::Expiry(const std::string &session)
{
    int32_t tExpire = 0;
    KovaForEachSession(m_pServer, [&](const KovaRtspSession *pSession) {
        if (session == pSession->szSessionId)
            tExpire = pSession->tExpire.load();
    });
    return tExpire;
}

std::vector<KovaTestServer::Client> KovaTestServer::Clients(KovaRtspStreamer *pStream,
                                                            uint32_t nPayloadId)
{
    std::vector<Client> clients;
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStream, nPayloadId);
    if (pSender == nullptr)
        return clients;
    pthread_mutex_lock(&pSender->mutex.native);
    for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next) {
        auto *pGroup = static_cast<KovaRtpSendGroup *>(pNode->data);
        const KovaClientLock lock(pGroup);
        for (KovaList *pEntry = pGroup->pClientList; pEntry != nullptr; pEntry = pEntry->next) {
            auto *pClient = static_cast<KovaRtpClient *>(pEntry->data);
            int *pTcpSocket = pClient->pTcpSocket.load();
            clients.push_back({pClient->szSessionId, pClient->nState, pClient->nRtpSocket,
                               pClient->nRtcpSocket, pClient->nClientRtpPort,
                               pClient->nClientRtcpPort, pClient->bInterleaved, pTcpSocket, -1,
                               pClient->nRtpChannel, pClient->nRtcpChannel, pClient->nStartSequence,
                               pClient->nStartTimestamp, pClient->rtpAddress,
                               pClient->rtcpAddress});
        }
    }
    pthread_mutex_unlock(&pSender->mutex.native);
    for (Client &entry : clients)
        entry.nTcpSocket = SocketOf(pStream->pServer, entry.pTcpSocket);
    return clients;
}

uint32_t KovaTestServer::Ssrc(uint32_t nPayloadId) const
{
    KovaRtpPacker *pPacker = KovaRtspStreamerGetRtpPackerByPayloadId(m_pStream, nPayloadId);
    return pPacker == nullptr ? 0 : pPacker->nSsrc;
}

int KovaOpenDescriptors()
{
    int nCount = -1; // the directory itself is open while it is read
    DIR *pDirectory = opendir("/proc/self/fd");
    while (const dirent *pEntry = readdir(pDirectory))
        nCount += pEntry->d_name[0] != '.';
    closedir(pDirectory);
    return nCount;
}
