#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/notices.h"

#include "foundation/descriptor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kAcceptsPerEvent = 16;
constexpr char kBusy[] = "RTSP/1.0 503 Service Unavailable\r\nRetry-After: 5\r\n"
                         "Connection: close\r\n\r\n";

KovaLiveLoop *LoopOf(KovaPollItem *pItem)
{
    return reinterpret_cast<KovaLiveLoop *>(reinterpret_cast<char *>(pItem) -
                                            offsetof(KovaLiveLoop, listenItem));
}

KovaLiveLoop *LeastBusy(const KovaLive *pLive)
{
    KovaLiveLoop *pBest = pLive->pLoops[0];
    for (uint32_t nLoop = 1; nLoop < pLive->nLoops; nLoop++) {
        if (pLive->pLoops[nLoop]->nLoad < pBest->nLoad)
            pBest = pLive->pLoops[nLoop];
    }
    return pBest;
}

void Refuse(KovaLiveLoop *pLoop, int nSocket, const sockaddr_in &peer)
{
    KovaMutexAssertHeld(&pLoop->mutex);
    pLoop->figures.nRefused++;
    char szPeer[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &peer.sin_addr, szPeer, sizeof(szPeer));
    KovaNoticeLog(pLoop, KOVA_LIVE_LOG_WARNING, "%s:%u: too many connections", szPeer,
                  ntohs(peer.sin_port));
    const ssize_t nSent = send(nSocket, kBusy, sizeof(kBusy) - 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    (void)nSent;
    shutdown(nSocket, SHUT_WR);
    close(nSocket);
}

void Hand(KovaLiveLoop *pLoop, int nSocket)
{
    KovaLiveLoop *pTaker = LeastBusy(pLoop->pLive);
    pTaker->nLoad++;
    pLoop->pLive->nConnections++;
    if (pTaker == pLoop) {
        KovaConnectionTake(pLoop, nSocket);
    } else if (!KovaLoopPost(pTaker, kOrderConnection, nullptr, nullptr, nSocket)) {
        pTaker->nLoad--;
        pLoop->pLive->nConnections--;
        close(nSocket);
    }
}

/// There are no descriptors: whoever waits is let in by the one that is kept for that, and
/// sent away; otherwise the socket would tell of it without end.
bool SendAway(KovaLiveLoop *pLoop)
{
    if (pLoop->nReserve < 0)
        return false;
    close(pLoop->nReserve);
    const int nSocket =
        accept4(pLoop->listenItem.nDescriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (nSocket >= 0)
        close(nSocket);
    pLoop->nReserve = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return nSocket >= 0;
}

void HandleListener(KovaPollItem *pItem, uint32_t)
{
    KovaLiveLoop *pLoop = LoopOf(pItem);
    for (int nAccept = 0; nAccept < kAcceptsPerEvent; nAccept++) {
        sockaddr_in peer = {};
        socklen_t nLength = sizeof(peer);
        const int nSocket =
            KovaDescriptorRaise(accept4(pItem->nDescriptor, reinterpret_cast<sockaddr *>(&peer),
                                        &nLength, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (nSocket >= 0) {
            if (pLoop->pLive->nConnections >= pLoop->pLive->settings.nMaxConnections)
                Refuse(pLoop, nSocket, peer);
            else
                Hand(pLoop, nSocket);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            KovaNoticeLog(pLoop, KOVA_LIVE_LOG_ERROR, "no connection can be taken: %s",
                          errno == EMFILE || errno == ENFILE ? "no descriptors" : "no memory");
            if (!SendAway(pLoop)) {
                KovaListenerPause(pLoop);
                return;
            }
        } else if (errno != ECONNABORTED && errno != EINTR) {
            return;
        }
    }
}

} // namespace

bool KovaListenerJoin(KovaLiveLoop *pLoop)
{
    pLoop->nReserve = open("/dev/null", O_RDONLY | O_CLOEXEC);
    pLoop->listenItem = {pLoop->pLive->nListener, kPollRead, HandleListener, 0};
    return KovaPollerAdd(pLoop->pPoller, &pLoop->listenItem);
}

void KovaListenerPause(KovaLiveLoop *pLoop)
{
    constexpr uint64_t kPause = 100000;
    KovaPollerWant(pLoop->pPoller, &pLoop->listenItem, 0);
    KovaTimersSet(&pLoop->timers, &pLoop->listenTimer, pLoop->nNow + kPause);
}

void KovaListenerLeave(KovaLiveLoop *pLoop)
{
    KovaPollerRemove(pLoop->pPoller, &pLoop->listenItem);
    if (pLoop->nReserve >= 0)
        close(pLoop->nReserve);
}
