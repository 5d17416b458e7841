#include "fuzz/support/server_world.h"

#include "fuzz/support/require.h"
#include "fuzz/support/world.h"
#include "rtp/rtp_packer.h"
#include "server/listener.h"
#include "server/monitor.h"
#include "server/session_registry.h"
#include "streamer/client_walk.h"

namespace {

constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";
const std::vector<uint8_t> kSps = {0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0xC8};
const std::vector<uint8_t> kPps = {0x68, 0xCE, 0x3C, 0x80};
const std::vector<uint8_t> kConfig = {0x12, 0x10};

void Tell(KovaRtspStreamer *pStream, uint32_t nPayloadId, uint32_t nKind,
          const std::vector<uint8_t> &data)
{
    KovaRtspSdpGeneratorSetMediaInfo(pStream->pSdpGenerator, nPayloadId, nKind, data.data(),
                                     static_cast<uint32_t>(data.size()));
}

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

void Append(std::vector<uint8_t> *pUnit, const std::vector<uint8_t> &nal)
{
    pUnit->insert(pUnit->end(), {0, 0, 0, 1});
    pUnit->insert(pUnit->end(), nal.begin(), nal.end());
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
    const KovaAudioDescription audio = {64, 44100, 2};
    const KovaVideoDescription video = {2000};
    uint32_t nPayloadId = 0;
    m_pStream = KovaRtspServerAddUri(m_pServer, "live");
    KovaRequire(m_pStream != nullptr, "a stream can be made");
    KovaRtspServerAddPayloadType(m_pStream, KOVA_MEDIA_AUDIO, &nPayloadId, &audio);
    KovaRequire(nPayloadId == 96, "the first payload id is 96");
    KovaRtspServerAddPayloadType(m_pStream, KOVA_MEDIA_VIDEO, &nPayloadId, &video);
    KovaRequire(nPayloadId == 97, "the second payload id is 97");
    Tell(m_pStream, 96, kInfoAacConfig, kConfig);
    Tell(m_pStream, 97, kInfoSps, kSps);
    Tell(m_pStream, 97, kInfoPps, kPps);
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

void KovaServerWorld::Push(uint32_t nPayloadId, const std::vector<uint8_t> &unit, uint32_t nPts)
{
    if (m_pStream != nullptr)
        KovaRtspServerPushData(m_pStream, nPayloadId, unit.data(),
                               static_cast<uint32_t>(unit.size()), nPts);
}

unsigned KovaServerWorld::Sessions()
{
    return Length(&m_pServer->mtxSession, &m_pServer->pSessionList);
}

unsigned KovaServerWorld::Handlers()
{
    return Length(&m_pServer->mtxHandler, &m_pServer->pHandlerList);
}

unsigned KovaServerWorld::Clients(const std::string &session)
{
    Count count = {&session, 0};
    if (m_pStream != nullptr)
        KovaStreamerWalkClients(m_pStream, {&m_pStream->senderMutex, nullptr, CountClient, &count});
    return count.nClients;
}

std::vector<uint8_t> KovaVideoUnit(bool bKey, size_t nSize)
{
    std::vector<uint8_t> unit;
    std::vector<uint8_t> slice(nSize + 1, 0x5A);
    slice[0] = bKey ? 0x65 : 0x41;
    if (bKey) {
        Append(&unit, kSps);
        Append(&unit, kPps);
    }
    Append(&unit, slice);
    return unit;
}

std::vector<uint8_t> KovaAudioUnit(size_t nSize)
{
    const size_t nLength = nSize + 7;
    std::vector<uint8_t> unit = {0xFF,
                                 0xF1,
                                 0x50,
                                 static_cast<uint8_t>(0x80 | nLength >> 11),
                                 static_cast<uint8_t>(nLength >> 3),
                                 static_cast<uint8_t>((nLength & 7) << 5 | 0x1F),
                                 0xFC};
    unit.resize(nLength, 0x21);
    return unit;
}
