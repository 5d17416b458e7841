#include "classic/rtsp/connection_handler.h"

#include "classic/rtp/tcp_channel.h"
#include "classic/rtsp/request_handler.h"
#include "classic/rtsp/server_calls.h"
#include "foundation/clock.h"
#include "foundation/error_text.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/pages.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace {

constexpr char kThreadName[] = "pHandleRequestProc";

/// Arriving data, the peer's end and a stop request wake the thread. The monitor does
/// when somebody has written the state word alone.
constexpr int kNoLimit = -1;

using AddressCall = int (*)(int, sockaddr *, socklen_t *);

/// A connection that is idle fills a hundredth of its buffers.
KovaRtspServerHandler *MakeRecord()
{
    static_assert(std::is_trivially_default_constructible_v<KovaRtspServerHandler>,
                  "zeroed pages are a record");
    return static_cast<KovaRtspServerHandler *>(KovaPagesAlloc(sizeof(KovaRtspServerHandler)));
}

void FreeRecord(KovaRtspServerHandler *pHandler)
{
    KovaPagesFree(pHandler, sizeof(KovaRtspServerHandler));
}

/// Prints one end of the connection and notes it. An end that the system does
/// not tell stays empty.
void NoteAddress(int nSocket, AddressCall pfnAddress, const char *szRole, char *szAddress,
                 uint16_t *pPort)
{
    sockaddr_in address = {};
    socklen_t nLength = sizeof(address);
    if (pfnAddress(nSocket, reinterpret_cast<sockaddr *>(&address), &nLength) != 0)
        return;
    inet_ntop(AF_INET, &address.sin_addr, szAddress, kHostTextSize);
    *pPort = ntohs(address.sin_port);
    printf("Rtsp %s, Addr: %s, Port: %d\n", szRole, szAddress, *pPort);
}

void MakeNonBlocking(int nSocket)
{
    fcntl(nSocket, F_SETFL, fcntl(nSocket, F_GETFL) | O_NONBLOCK);
}

/// Looks first: most of a connection's buffers was never written, and so takes no
/// memory, which a store would change.
void ClearSpare(uint8_t (&buffer)[kRequestSize])
{
    if (buffer[0] != 0 || memcmp(buffer, buffer + 1, sizeof(buffer) - 1) != 0)
        memset(buffer, 0, sizeof(buffer));
}

void HandleChunk(KovaRtspServerHandler *pHandler, int32_t nCount)
{
    TimeLog(kLogThread, "%s, Recv: %.*s, Len: %d\n\n", kThreadName, static_cast<int>(kRequestSize),
            reinterpret_cast<const char *>(pHandler->recvBuf), nCount);
    KovaMutexLock lock(&pHandler->mtxRequest, kRankRequest);
    HandleRtspRequest(pHandler, pHandler->recvBuf, nCount);
    lock.Unlock();
    memset(pHandler->recvBuf, 0, static_cast<size_t>(nCount));
    ClearSpare(pHandler->spareBuf);
    usleep(kPollMicroseconds);
}

/// One read and what follows from it. Returns false when the connection has ended.
bool ReceiveOnce(KovaRtspServerHandler *pHandler)
{
    const ssize_t nCount =
        KovaTcpChannelReceive(pHandler->pChannel, pHandler->recvBuf, sizeof(pHandler->recvBuf));
    if (nCount > 0) {
        HandleChunk(pHandler, static_cast<int32_t>(nCount));
        return true;
    }
    const int nError = errno;
    if (nCount < 0 && (nError == EINTR || nError == EAGAIN)) {
        KovaTcpChannelWaitReadable(pHandler->pChannel, kNoLimit);
        return true;
    }
    if (!KovaThreadRuns(pHandler->nState))
        return false;
    char szError[kErrorTextSize];
    if (nCount < 0)
        TimeLog(kLogFailure, "%s, %d(%s)\n", kThreadName, nError, KovaErrorText(nError, szError));
    else
        TimeLog(kLogFailure, "%s, Client RTSP Handler connection closed !!!\n", kThreadName);
    return false;
}

/// The end of the thread: a stopper owns the handler, and otherwise the thread.
void GiveUpHandler(KovaRtspServerHandler *pHandler)
{
    if (KovaServerReleaseHandler(pHandler->pServer, pHandler))
        KovaRtspServerHandlerDestroy(pHandler);
    else
        pHandler->nState = kThreadStopped;
}

} // namespace

KovaRtspServerHandler *KovaRtspServerHandlerCreate(KovaRtspServer *pServer, int32_t nSocket,
                                                   sockaddr_in peerAddress)
{
    if (pServer == nullptr || nSocket <= 0)
        return nullptr;
    KovaRtspServerHandler *pHandler = MakeRecord();
    if (pHandler == nullptr)
        return nullptr;
    pHandler->nSocket = nSocket;
    pHandler->pChannel = KovaTcpChannelJoin(reinterpret_cast<int *>(&pHandler->nSocket));
    if (pHandler->pChannel == nullptr) {
        FreeRecord(pHandler);
        return nullptr;
    }
    pHandler->pServer = pServer;
    NoteAddress(nSocket, getsockname, "Server", pHandler->szLocalAddr, &pHandler->nLocalPort);
    NoteAddress(nSocket, getpeername, "Client", pHandler->szPeerAddr, &pHandler->nPeerPort);
    pHandler->peerAddr = peerAddress;
    KovaMutexInit(&pHandler->mtxRequest);
    KovaMutexInit(&pHandler->mtxSessionId);
    return pHandler;
}

int32_t KovaRtspServerHandlerStart(KovaRtspServerHandler *pHandler)
{
    if (pHandler == nullptr)
        return KOVA_ERROR_NULL;
    return KovaThreadStartOnce(pHandler->nState, pHandleRequestProc, pHandler) ? KOVA_OK
                                                                               : KOVA_ERROR_FAILED;
}

int32_t KovaRtspServerHandlerStop(KovaRtspServerHandler *pHandler)
{
    if (pHandler == nullptr)
        return KOVA_ERROR_NULL;
    KovaThreadRequestStop(pHandler->nState);
    KovaTcpChannelWakeReader(pHandler->pChannel, kWakeForGood);
    KovaThreadWaitStopped(pHandler->nState);
    KovaTcpChannelClose(pHandler->pChannel);
    return KOVA_OK;
}

int32_t KovaRtspServerHandlerDestroy(KovaRtspServerHandler *pHandler)
{
    if (pHandler == nullptr)
        return KOVA_ERROR_NULL;
    // Interleaved clients may outlive the connection; they keep the channel.
    KovaTcpChannelAbandon(pHandler->pChannel);
    KovaTcpChannelLeave(pHandler->pChannel);
    KovaMutexDestroy(&pHandler->mtxRequest);
    KovaMutexDestroy(&pHandler->mtxSessionId);
    FreeRecord(pHandler);
    return KOVA_OK;
}

void *pHandleRequestProc(void *pArgument)
{
    TimeLog(kLogThread, "%s, Enter thread\n", kThreadName);
    KovaRtspServerHandler *pHandler = static_cast<KovaRtspServerHandler *>(pArgument);
    if (pHandler == nullptr) {
        TimeLog(kLogThread, "%s, Leave thread(pHandler)\n", kThreadName);
        return nullptr;
    }
    if (pHandler->pServer == nullptr) {
        KovaTcpChannelClose(pHandler->pChannel);
        pHandler->nState = kThreadStopped;
        TimeLog(kLogThread, "%s, Leave thread(pServer)\n", kThreadName);
        return nullptr;
    }
    srand(static_cast<unsigned>(KovaClockSeconds()));
    MakeNonBlocking(pHandler->nSocket);
    while (KovaThreadRuns(pHandler->nState) && ReceiveOnce(pHandler)) {
    }
    KovaTcpChannelClose(pHandler->pChannel);
    GiveUpHandler(pHandler);
    TimeLog(kLogThread, "%s, Leave thread\n", kThreadName);
    return nullptr;
}

int32_t RequestResponseSend(KovaRtspServerHandler *pHandler, const char *pBytes, int32_t nCount)
{
    if (pHandler == nullptr || pBytes == nullptr || nCount < 0)
        return 0;
    const KovaResponseProgress progress = KovaTcpChannelSendResponse(
        pHandler->pChannel, reinterpret_cast<const uint8_t *>(pBytes), static_cast<size_t>(nCount));
    char szError[kErrorTextSize];
    if (progress.nError != 0)
        printf("%s, Send Error: %d(%s)\n", "RequestResponseSend", progress.nError,
               KovaErrorText(progress.nError, szError));
    return progress.nLeft == 0 ? 1 : 0;
}

void KovaHandlerSetSessionId(KovaRtspServerHandler *pHandler, const char *szSessionId)
{
    const KovaMutexLock lock(&pHandler->mtxSessionId, kRankLeaf);
    KovaTextCopy(pHandler->szSessionId, sizeof(pHandler->szSessionId), szSessionId);
}

void KovaHandlerGetSessionId(KovaRtspServerHandler *pHandler, char *szSessionId)
{
    const KovaMutexLock lock(&pHandler->mtxSessionId, kRankLeaf);
    KovaTextCopy(szSessionId, kSessionIdSize, pHandler->szSessionId);
}

bool KovaHandlerHasSessionId(KovaRtspServerHandler *pHandler, const char *szSessionId)
{
    const KovaMutexLock lock(&pHandler->mtxSessionId, kRankLeaf);
    return strcmp(pHandler->szSessionId, szSessionId) == 0;
}
