#include "classic/server/server.h"

#include "classic/server/handler_registry.h"
#include "classic/server/listener.h"
#include "classic/server/monitor.h"
#include "classic/server/session_registry.h"
#include "classic/server/stream_registry.h"
#include "foundation/clock.h"
#include "foundation/descriptor.h"
#include "foundation/error_text.h"
#include "foundation/heap.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kBacklog = 128;
constexpr uint32_t kInitialLogLevel = kLogOverflow;

/// A TCP socket. Like every descriptor made here it stays out of the programs that
/// the host starts: one of them that outlives the host would keep the port.
int OpenSocket()
{
    return KovaDescriptorRaise(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
}

sockaddr_in ListenAddress(const KovaRtspServer *pServer)
{
    char szAddr[KOVA_ADDRESS_SIZE + 1];
    KovaTextCopy(szAddr, sizeof(szAddr), KovaTextField(pServer->szAddr, sizeof(pServer->szAddr)));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(pServer->nPort);
    address.sin_addr.s_addr = szAddr[0] != '\0' ? inet_addr(szAddr) : htonl(INADDR_ANY);
    return address;
}

/// Logs a failed step of the start with the system's error.
int32_t StartFailed(const char *szStep, int32_t nResult)
{
    const int nError = errno;
    char szError[kErrorTextSize];
    TimeLog(kLogFailure, "%s, %s fail, error: %d(%s)\n", "KovaRtspServerStart", szStep, nError,
            KovaErrorText(nError, szError));
    return nResult;
}

int32_t OpenListener(KovaRtspServer *pServer)
{
    const int nSocket = OpenSocket();
    pServer->nListenSocket = nSocket;
    if (nSocket == -1)
        return KOVA_ERROR_SOCKET;
    const sockaddr_in address = ListenAddress(pServer);
    const int nReuse = 1;
    if (setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nReuse, sizeof(nReuse)) != 0)
        return StartFailed("setsockopt (REUSEADDR)", KOVA_ERROR_SETSOCKOPT);
    if (bind(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return StartFailed("bind", KOVA_ERROR_BIND);
    if (listen(nSocket, kBacklog) != 0)
        return StartFailed("listen", KOVA_ERROR_LISTEN);
    fcntl(nSocket, F_SETFL, fcntl(nSocket, F_GETFL) | O_NONBLOCK);
    return KOVA_OK;
}

} // namespace

void KovaServerCloseListener(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxListen, kRankLeaf);
    const int nSocket = pServer->nListenSocket;
    if (nSocket <= 0)
        return;
    pServer->nListenSocket = -1;
    close(nSocket);
}

void KovaServerWakeListener(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxListen, kRankLeaf);
    const int nSocket = pServer->nListenSocket;
    if (nSocket > 0)
        shutdown(nSocket, SHUT_RDWR);
}

int32_t KovaRtspServerInit(KovaRtspServer **ppServer, const char *szAddress, uint32_t nPort,
                           int32_t nMaxClient)
{
    RTSP_SetLogLevel(kInitialLogLevel);
    if (ppServer == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtspServer *pServer = KovaRtspServerCreate(szAddress, nPort, nMaxClient);
    if (pServer == nullptr)
        return KOVA_ERROR_CREATE;
    const int32_t nResult = KovaRtspServerStart(pServer);
    if (nResult != KOVA_OK) {
        KovaRtspServerStop(pServer);
        KovaRtspServerDestroy(pServer);
        return nResult;
    }
    *ppServer = pServer;
    return KOVA_OK;
}

int32_t KovaRtspServerUninit(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtspServerStop(pServer);
    KovaRtspServerDestroy(pServer);
    return KOVA_OK;
}

KovaRtspServer *KovaRtspServerCreate(const char *szAddress, uint32_t nPort, int32_t nMaxClient)
{
    if (szAddress == nullptr || nMaxClient > KOVA_MAX_CLIENTS)
        return nullptr;
    KovaRtspServer *pServer = KovaHeapNew<KovaRtspServer>();
    if (pServer == nullptr)
        return nullptr;
    srand(static_cast<unsigned>(KovaClockSeconds()));
    memcpy(pServer->szAddr, szAddress, sizeof(pServer->szAddr));
    pServer->nPort = static_cast<uint16_t>(nPort);
    pServer->nMaxClient = nMaxClient;
    pServer->nListenSocket = -1;
    KovaMutexInit(&pServer->mtxHandler);
    KovaMutexInit(&pServer->mtxSession);
    KovaMutexInit(&pServer->mtxStreamer);
    KovaMutexInit(&pServer->mtxListen);
    return pServer;
}

int32_t KovaRtspServerDestroy(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    // The streams come first: they wait for the requests that use them, and one of
    // those may set up one more session.
    KovaRtspServerRemoveAllStreamer(pServer);
    KovaRtspServerRemoveAllSession(pServer);
    KovaRtspServerRemoveAllServerHandler(pServer);
    KovaMutexDestroy(&pServer->mtxHandler);
    KovaMutexDestroy(&pServer->mtxSession);
    KovaMutexDestroy(&pServer->mtxStreamer);
    KovaServerCloseListener(pServer);
    KovaMutexDestroy(&pServer->mtxListen);
    free(pServer);
    return KOVA_OK;
}

int32_t KovaRtspServerStart(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    // A start that failed has left its socket open, and another try would forget it.
    if (pServer->nListenState.exchange(kThreadStarting) == kThreadStarting)
        KovaServerCloseListener(pServer);
    const int32_t nResult = OpenListener(pServer);
    if (nResult != KOVA_OK)
        return nResult;
    // Each state is running before its thread exists, and stays so when the
    // thread cannot be made: a stop then waits for it in vain.
    pServer->nListenState = kThreadRunning;
    if (!KovaThreadStart(&pServer->hListenThread, pListenProc, pServer))
        return KOVA_ERROR_THREAD;
    pServer->nMonitorState = kThreadRunning;
    if (!KovaThreadStart(&pServer->hMonitorThread, pMonitorProc, pServer))
        return KOVA_ERROR_THREAD;
    return KOVA_OK;
}

int32_t KovaRtspServerStop(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return KOVA_ERROR_NULL;
    if (KovaThreadRequestStop(pServer->nListenState))
        KovaServerWakeListener(pServer);
    KovaThreadRequestStop(pServer->nMonitorState);
    KovaThreadWaitStopped(pServer->nMonitorState);
    KovaThreadWaitStopped(pServer->nListenState);
    KovaServerCloseListener(pServer);
    return KOVA_OK;
}
