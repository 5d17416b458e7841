#include "live/engine/connection.h"
#include "live/engine/loop.h"
#include "live/engine/notices.h"
#include "live/engine/peer_counts.h"

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

/// Counts the connection in, unless it is one too many.
bool CountIn(KovaLive *pLive, const sockaddr_in &peer)
{
    if (pLive->nConnections >= pLive->settings.nMaxConnections ||
        !KovaPeerEnter(pLive, peer.sin_addr.s_addr))
        return false;
    pLive->nConnections++;
    return true;
}

void Refuse(KovaLiveLoop *pLoop, int nSocket, const sockaddr_in &peer)
{
    KovaMutexAssertHeld(&pLoop->mutex);
    pLoop->figures.nRefused++;
    KovaNoticePeer(pLoop, KOVA_LIVE_LOG_WARNING, peer.sin_addr.s_addr, ntohs(peer.sin_port),
                   ": too many connections");
    const ssize_t nSent = send(nSocket, kBusy, sizeof(kBusy) - 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    (void)nSent;
    shutdown(nSocket, SHUT_WR);
    close(nSocket);
}

void Hand(KovaLiveLoop *pLoop, int nSocket, const sockaddr_in &peer)
{
    KovaLiveConnection *pConnection = KovaConnectionCreate(nSocket, peer);
    if (pConnection == nullptr)
        return KovaConnectionForget(pLoop->pLive, nSocket, peer);
    KovaLiveLoop *pTaker = LeastBusy(pLoop->pLive);
    KovaConnectionHand(pConnection, pTaker, pTaker == pLoop);
}

/// accept4(2) is younger than some kernels of boards.
int Accept(int nListener, sockaddr_in *pPeer)
{
    socklen_t nLength = sizeof(*pPeer);
    auto *pAddress = reinterpret_cast<sockaddr *>(pPeer);
    int nSocket = accept4(nListener, pAddress, &nLength, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (nSocket >= 0 || errno != ENOSYS)
        return nSocket;
    nLength = sizeof(*pPeer);
    nSocket = accept(nListener, pAddress, &nLength);
    if (nSocket >= 0) {
        fcntl(nSocket, F_SETFD, FD_CLOEXEC);
        fcntl(nSocket, F_SETFL, O_NONBLOCK);
    }
    return nSocket;
}

int OpenReserve()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

/// There are no descriptors: whoever waits is let in by the one that is kept for that, and
/// sent away; otherwise the socket would tell of it without end.
bool SendAway(KovaLiveLoop *pLoop)
{
    if (pLoop->nReserve < 0)
        return false;
    close(pLoop->nReserve);
    sockaddr_in peer = {};
    const int nSocket = Accept(pLoop->listenItem.nDescriptor, &peer);
    if (nSocket >= 0)
        close(nSocket);
    pLoop->nReserve = OpenReserve();
    return nSocket >= 0;
}

void HandleListener(KovaPollItem *pItem, uint32_t)
{
    KovaLiveLoop *pLoop = LoopOf(pItem);
    for (int nAccept = 0; nAccept < kAcceptsPerEvent; nAccept++) {
        sockaddr_in peer = {};
        const int nSocket = KovaDescriptorRaise(Accept(pItem->nDescriptor, &peer));
        if (nSocket >= 0) {
            if (pLoop->nReserve < 0)
                pLoop->nReserve = OpenReserve();
            if (CountIn(pLoop->pLive, peer))
                Hand(pLoop, nSocket, peer);
            else
                Refuse(pLoop, nSocket, peer);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            KovaNoticeLog(pLoop, KOVA_LIVE_LOG_ERROR, "no connection can be taken: %s",
                          errno == EMFILE || errno == ENFILE ? "no descriptors" : "no memory");
            if (!SendAway(pLoop)) {
                KovaListenerPause(pLoop);
                return;
            }
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != ECONNABORTED && errno != EINTR) {
            // Whatever it is, it is not gone at once: asking again and again would take all time.
            KovaListenerPause(pLoop);
            return;
        }
    }
}

} // namespace

bool KovaListenerJoin(KovaLiveLoop *pLoop)
{
    pLoop->nReserve = OpenReserve();
    pLoop->listenItem = {pLoop->pLive->nListener, kPollRead, HandleListener, 0};
    if (KovaPollerAdd(pLoop->pPoller, &pLoop->listenItem))
        return true;
    if (pLoop->nReserve >= 0)
        close(pLoop->nReserve);
    return false;
}

void KovaListenerResume(KovaLiveLoop *pLoop)
{
    if (pLoop->nReserve < 0)
        pLoop->nReserve = OpenReserve();
    KovaPollerWant(pLoop->pPoller, &pLoop->listenItem, kPollRead);
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
