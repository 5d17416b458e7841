#include "fuzz/support/server_world.h"

#include "classic/rtp/rtp_packer.h"
#include "classic/server/listener.h"
#include "classic/server/monitor.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/client_walk.h"
#include "fuzz/support/require.h"
#include "fuzz/support/world.h"
#include "tests/support/feed.h"
#include "tests/support/ready_stream.h"

namespace {

constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";

unsigned Length(pthread_mutex_t *pMutex, KovaList **ppList)
{
    pthread_mutex_lock(pMutex);
    const unsigned nLength = KovaListLength(*ppList);
    pthread_mutex_unlock(pMutex);
    return nLength;
}

struct Count {
    const std::string *pSession;
    unsigned nClients;
};

bool CountClient(const KovaClientVisit &visit, void *pContext)
{
    Count *pCount = static_cast<Count *>(pContext);
    if (pCount->pSession->empty() || *pCount->pSession == visit.pClient->szSessionId)
        pCount->nClients++;
    return false;
}

} // namespace

KovaServerWorld::KovaServerWorld(bool bMonitor, int32_t nMaxClient)
{
    KovaWorldBegin();
    m_pServer = KovaRtspServerCreate(kLoopback, 554, nMaxClient);
    KovaRequire(m_pServer != nullptr, "a server can be made");
    if (bMonitor) {
        m_pServer->nMonitorState = kThreadRunning;
        KovaWorldStartThread(pMonitorProc, m_pServer);
    }
    Publish();
}

KovaServerWorld::~KovaServerWorld()
{
    KovaRtspServerStop(m_pServer);
    KovaRtspServerDestroy(m_pServer);
    KovaWorldRun(1000);
    KovaWorldEnd();
}

void KovaServerWorld::Publish()
{
    if (m_pStream != nullptr)
        return;
    m_pStream = KovaPublishAudioVideo(m_pServer, "live");
    KovaRequire(m_pStream != nullptr, "a stream with both tracks can be made");
    KovaMakeReady(m_pStream);
}

void KovaServerWorld::Withdraw()
{
    KovaRtspServerRemoveUri(m_pServer, "live");
    m_pStream = nullptr;
}

void KovaServerWorld::Connect(KovaFuzzPlayer *pPlayer)
{
    const sockaddr_in peer = {};
    KovaRequire(AddNewRtspHandler(m_pServer, pPlayer->Connect(), peer) == 0,
                "a connection gets its handler");
}

void KovaServerWorld::Push(uint32_t nPayloadId, const std::string &unit, uint32_t nPts)
{
    if (m_pStream != nullptr)
        KovaPush(m_pStream, nPayloadId, unit, nPts);
}

unsigned KovaServerWorld::Sessions()
{
    return Length(&m_pServer->mtxSession.native, &m_pServer->pSessionList);
}

unsigned KovaServerWorld::Handlers()
{
    return Length(&m_pServer->mtxHandler.native, &m_pServer->pHandlerList);
}

unsigned KovaServerWorld::Clients(const std::string &session)
{
    Count count = {&session, 0};
    if (m_pStream != nullptr)
        KovaStreamerWalkClients(
            m_pStream, {&m_pStream->senderMutex, kRankSenders, nullptr, CountClient, &count});
    return count.nClients;
}
