#include "classic/server/listener.h"

#include "classic/server/handler_registry.h"
#include "classic/server/server.h"
#include "foundation/descriptor.h"
#include "foundation/error_text.h"
#include "foundation/log.h"
#include "rtp/tcp_options.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr char kThreadName[] = "pListenProc";

/// Connections and a stop request wake the thread; this bounds the wait for a state
/// word that somebody wrote alone.
constexpr int kIdleMilliseconds = 1000;

/// Errors that are over when whoever caused them is gone: a shortage of
/// descriptors, buffers or memory, a connection aborted before it was accepted.
bool IsPassing(int nError)
{
    return nError == EMFILE || nError == ENFILE || nError == ENOBUFS || nError == ENOMEM ||
           nError == ECONNABORTED;
}

void WaitForConnection(const KovaRtspServer *pServer)
{
    struct pollfd entry = {};
    entry.fd = pServer->nListenSocket;
    entry.events = POLLIN;
    poll(&entry, 1, kIdleMilliseconds);
}

/// Descriptor 0 does not count as a connection. It is kept, cut off from its
/// peer, as long as the listener lives: closed, it would come up again each time.
void TakeDescriptorZero(bool *pHoldsZero)
{
    *pHoldsZero = true;
    shutdown(0, SHUT_RDWR);
    usleep(kPollMicroseconds);
}

/// One accept and what follows from it. Returns false when the listener is to end.
bool AcceptOnce(KovaRtspServer *pServer, socklen_t *pLength, bool *pHoldsZero)
{
    sockaddr_in peer = {};
    const int nSocket =
        accept4(pServer->nListenSocket, reinterpret_cast<sockaddr *>(&peer), pLength, SOCK_CLOEXEC);
    if (nSocket > 0) {
        const int nConnection = KovaDescriptorRaise(nSocket);
        KovaTcpPrepare(nConnection);
        AddNewRtspHandler(pServer, nConnection, peer);
        usleep(kPollMicroseconds);
        return true;
    }
    if (nSocket == 0) {
        TakeDescriptorZero(pHoldsZero);
        return true;
    }
    const int nError = errno;
    if (nError == EINTR || nError == EAGAIN) {
        WaitForConnection(pServer);
        return true;
    }
    if (IsPassing(nError)) {
        usleep(kPollMicroseconds);
        return true;
    }
    if (!KovaThreadRuns(pServer->nListenState))
        return false;
    char szError[kErrorTextSize];
    printf("%s, %d(%s)", kThreadName, nError, KovaErrorText(nError, szError));
    return false;
}

} // namespace

void *pListenProc(void *pArgument)
{
    TimeLog(kLogThread, "%s, Enter thread\n", kThreadName);
    KovaRtspServer *pServer = static_cast<KovaRtspServer *>(pArgument);
    if (pServer == nullptr) {
        TimeLog(kLogThread, "%s, Leave thread(pServer)\n", kThreadName);
        return nullptr;
    }
    socklen_t nLength = sizeof(sockaddr_in);
    bool bHoldsZero = false;
    while (KovaThreadRuns(pServer->nListenState) && AcceptOnce(pServer, &nLength, &bHoldsZero)) {
    }
    if (bHoldsZero)
        close(0);
    KovaServerCloseListener(pServer);
    pServer->nListenState = kThreadStopped;
    TimeLog(kLogThread, "%s, Leave thread\n", kThreadName);
    return nullptr;
}

int32_t AddNewRtspHandler(KovaRtspServer *pServer, int32_t nSocket, sockaddr_in peerAddress)
{
    KovaRtspServerHandler *pHandler = KovaRtspServerHandlerCreate(pServer, nSocket, peerAddress);
    if (pHandler == nullptr) {
        if (nSocket > 0)
            close(nSocket);
        return KOVA_ERROR_NULL;
    }
    const int32_t nResult = KovaServerStartHandler(pServer, pHandler);
    if (nResult != KOVA_OK)
        KovaRtspServerHandlerDestroy(pHandler);
    return nResult;
}
