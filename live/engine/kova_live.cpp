#include "kova_live.h"

#include "foundation/descriptor.h"
#include "foundation/heap.h"
#include "foundation/owner.h"
#include "live/engine/loop.h"
#include "live/engine/stream.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kBacklog = 511;
constexpr char kRealm[] = "Kova";

void FreePeers(KovaLive *pLive)
{
    const KovaMutexLock lock(&pLive->numberMutex, kRankLeaf);
    free(pLive->peers.pPeers);
}

void FreeLive(KovaLive *pLive)
{
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++)
        KovaLoopDestroy(pLive->pLoops[nLoop]);
    if (pLive->nListener >= 0) {
        // A child that the host forked may have it, too, and would keep the port.
        shutdown(pLive->nListener, SHUT_RDWR);
        close(pLive->nListener);
    }
    KovaLoginUsersDestroy(pLive->pUsers);
    KovaLoginDestroy(pLive->pLogin);
    free(pLive->szRealm);
    FreePeers(pLive);
    KovaMutexDestroy(&pLive->streamsMutex);
    KovaMutexDestroy(&pLive->numberMutex);
    free(pLive);
}

int32_t ResultOfBind(int nError)
{
    return nError == EADDRNOTAVAIL ? KOVA_LIVE_ERROR_ADDRESS : KOVA_LIVE_ERROR_PORT;
}

int32_t Listen(KovaLive *pLive)
{
    pLive->nListener = KovaDescriptorRaise(
        socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    if (pLive->nListener < 0)
        return KOVA_LIVE_ERROR_SYSTEM;
    constexpr int kOn = 1;
    setsockopt(pLive->nListener, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof(kOn));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = pLive->settings.nAddress;
    address.sin_port = htons(pLive->settings.nPort);
    if (bind(pLive->nListener, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        return ResultOfBind(errno);
    if (listen(pLive->nListener, kBacklog) != 0)
        return KOVA_LIVE_ERROR_PORT;
    socklen_t nLength = sizeof(address);
    (void)getsockname(pLive->nListener, reinterpret_cast<sockaddr *>(&address), &nLength);
    pLive->nPort = ntohs(address.sin_port);
    return KOVA_LIVE_OK;
}

int32_t MakeLogin(KovaLive *pLive, const KovaLiveConfig &config)
{
    const bool bRealm = config.realm != nullptr && config.realm[0] != '\0';
    if (bRealm && !KovaLoginRealmAllowed(config.realm))
        return KOVA_LIVE_ERROR_ARGUMENT;
    pLive->szRealm = strdup(bRealm ? config.realm : kRealm);
    pLive->pLogin = pLive->szRealm != nullptr ? KovaLoginCreate(pLive->szRealm) : nullptr;
    if (pLive->pLogin == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    return KovaLoginUsersCreate(config.users, config.user_count, pLive->szRealm, &pLive->pUsers);
}

int32_t MakeLoops(KovaLive *pLive)
{
    while (pLive->nLoops < pLive->settings.nThreads) {
        const int32_t nResult = KovaLoopCreate(pLive, pLive->nLoops, &pLive->pLoops[pLive->nLoops]);
        if (nResult != KOVA_LIVE_OK)
            return nResult;
        pLive->nLoops++;
    }
    return KOVA_LIVE_OK;
}

void StopLoops(KovaLive *pLive)
{
    // All are asked first, so that they end at the same time.
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++) {
        pLive->pLoops[nLoop]->bStop = true;
        KovaWakeSignal(&pLive->pLoops[nLoop]->wake);
    }
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++)
        KovaLoopStop(pLive->pLoops[nLoop]);
}

/// The last loop first: the first one takes connections and hands them out.
int32_t StartLoops(KovaLive *pLive)
{
    for (uint32_t nLoop = pLive->nLoops; nLoop-- != 0;) {
        const int32_t nResult = KovaLoopStart(pLive->pLoops[nLoop]);
        if (nResult != KOVA_LIVE_OK) {
            StopLoops(pLive);
            return nResult;
        }
    }
    return KOVA_LIVE_OK;
}

int32_t Prepare(KovaLive *pLive, const KovaLiveConfig &config)
{
    int32_t nResult = MakeLogin(pLive, config);
    if (nResult == KOVA_LIVE_OK)
        nResult = Listen(pLive);
    if (nResult == KOVA_LIVE_OK)
        nResult = MakeLoops(pLive);
    return nResult == KOVA_LIVE_OK ? StartLoops(pLive) : nResult;
}

int32_t InitRecord(void *pRecord, uint32_t nSize, uint32_t nLeast)
{
    if (pRecord == nullptr || nSize < nLeast)
        return KOVA_LIVE_ERROR_ARGUMENT;
    memset(pRecord, 0, nSize);
    memcpy(pRecord, &nSize, sizeof(nSize));
    return KOVA_LIVE_OK;
}

} // namespace

extern "C" {

int32_t KovaLiveConfigInit(KovaLiveConfig *pConfig, uint32_t nSize)
{
    return InitRecord(pConfig, nSize, sizeof(*pConfig));
}

int32_t KovaLiveStreamConfigInit(KovaLiveStreamConfig *pConfig, uint32_t nSize)
{
    return InitRecord(pConfig, nSize, sizeof(*pConfig));
}

int32_t KovaLiveTrackConfigInit(KovaLiveTrackConfig *pConfig, uint32_t nSize)
{
    return InitRecord(pConfig, nSize, sizeof(*pConfig));
}

int32_t KovaLiveOpen(const KovaLiveConfig *pConfig, KovaLive **ppLive)
{
    if (ppLive == nullptr)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLiveSettings settings = {};
    int32_t nResult = KovaLiveSettingsFrom(pConfig, &settings);
    if (nResult != KOVA_LIVE_OK)
        return nResult;
    KovaLiveConfig config = {};
    if (pConfig != nullptr)
        KovaLiveRecordCopy(&config, sizeof(config), pConfig, sizeof(config));
    KovaOwner<KovaLive, FreeLive> live(KovaHeapNew<KovaLive>());
    if (!live)
        return KOVA_LIVE_ERROR_MEMORY;
    live->settings = settings;
    live->nListener = -1;
    KovaMutexInit(&live->streamsMutex);
    KovaMutexInit(&live->numberMutex);
    nResult = Prepare(live.Get(), config);
    if (nResult == KOVA_LIVE_OK)
        *ppLive = live.Release();
    return nResult;
}

int32_t KovaLiveClose(KovaLive *pLive)
{
    if (pLive == nullptr)
        return KOVA_LIVE_OK;
    if (KovaLoopIsCaller(pLive))
        return KOVA_LIVE_ERROR_IN_CALLBACK;
    StopLoops(pLive);
    KovaStreamsClear(pLive);
    FreeLive(pLive);
    return KOVA_LIVE_OK;
}

int32_t KovaLivePort(const KovaLive *pLive, uint16_t *pPort)
{
    if (pLive == nullptr || pPort == nullptr)
        return KOVA_LIVE_ERROR_ARGUMENT;
    *pPort = pLive->nPort;
    return KOVA_LIVE_OK;
}

} // extern "C"
