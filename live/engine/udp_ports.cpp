#include "live/engine/udp_ports.h"

#include "foundation/descriptor.h"
#include "foundation/heap.h"
#include "foundation/owner.h"
#include "live/engine/media_out.h"
#include "live/engine/rtcp_in.h"
#include "live/engine/session.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>

namespace {

constexpr int kSendBuffer = 1 << 20; ///< a key frame for many players at once
constexpr uint32_t kAnyTries = 64;
constexpr uint32_t kDatagramsPerEvent = 64;

KovaLiveLoop *LoopHeld(KovaUdpPorts *pPorts) KOVA_ASSERT_HELD(pPorts->pLoop->mutex)
{
    KovaMutexAssertHeld(&pPorts->pLoop->mutex);
    return pPorts->pLoop;
}

void HandleRtp(KovaPollItem *pItem, uint32_t nEvents)
{
    KovaUdpPorts *pPorts = reinterpret_cast<KovaUdpPorts *>(pItem);
    KovaLiveLoop *pLoop = LoopHeld(pPorts);
    uint8_t thrown[16];
    for (uint32_t nDatagram = 0; nDatagram < kDatagramsPerEvent; nDatagram++) {
        if (recv(pItem->nDescriptor, thrown, sizeof(thrown), MSG_DONTWAIT) < 0)
            break;
    }
    if ((nEvents & kPollWrite) == 0)
        return;
    pPorts->bFull = false;
    KovaPollerWant(pLoop->pPoller, pItem, kPollRead);
    KovaMediaUdpWritable(pPorts);
}

void HandleRtcp(KovaPollItem *pItem, uint32_t)
{
    static_assert(offsetof(KovaUdpPorts, rtcpItem) == sizeof(KovaPollItem), "the second item");
    KovaUdpPorts *pPorts = reinterpret_cast<KovaUdpPorts *>(pItem - 1);
    KovaLiveLoop *pLoop = LoopHeld(pPorts);
    uint8_t datagram[1500];
    for (uint32_t nDatagram = 0; nDatagram < kDatagramsPerEvent; nDatagram++) {
        sockaddr_in from = {};
        socklen_t nLength = sizeof(from);
        const ssize_t nSize = recvfrom(pItem->nDescriptor, datagram, sizeof(datagram), MSG_DONTWAIT,
                                       reinterpret_cast<sockaddr *>(&from), &nLength);
        if (nSize < 0)
            return;
        KovaRtcpFromUdp(pLoop, pPorts, from, datagram, static_cast<size_t>(nSize));
    }
}

int BoundSocket(uint32_t nAddress, uint16_t nPort)
{
    const int nSocket = KovaDescriptorRaise(
        socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_UDP));
    if (nSocket < 0)
        return -1;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = nAddress;
    address.sin_port = htons(nPort);
    if (bind(nSocket, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return nSocket;
    close(nSocket);
    return -1;
}

uint16_t PortOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nLength = sizeof(address);
    (void)getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nLength);
    return ntohs(address.sin_port);
}

/// An even port and the next one. Closes both unless both could be had.
bool OpenPair(KovaUdpPorts *pPorts, uint16_t nPort)
{
    const int nRtp = BoundSocket(pPorts->nAddress, nPort);
    if (nRtp < 0)
        return false;
    const uint16_t nGot = PortOf(nRtp);
    const int nRtcp =
        nGot % 2 == 0 ? BoundSocket(pPorts->nAddress, static_cast<uint16_t>(nGot + 1)) : -1;
    if (nRtcp < 0) {
        close(nRtp);
        return false;
    }
    setsockopt(nRtp, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
    pPorts->rtpItem = {nRtp, kPollRead, HandleRtp, 0};
    pPorts->rtcpItem = {nRtcp, kPollRead, HandleRtcp, 0};
    pPorts->nRtpPort = nGot;
    pPorts->nRtcpPort = static_cast<uint16_t>(nGot + 1);
    return true;
}

bool FindPair(KovaUdpPorts *pPorts, const KovaLiveSettings &settings)
{
    if (settings.nUdpFirst == 0) {
        for (uint32_t nTry = 0; nTry < kAnyTries; nTry++) {
            if (OpenPair(pPorts, 0))
                return true;
        }
        return false;
    }
    for (uint32_t nPort = (settings.nUdpFirst + 1U) & ~1U; nPort + 1 <= settings.nUdpLast;
         nPort += 2) {
        if (OpenPair(pPorts, static_cast<uint16_t>(nPort)))
            return true;
    }
    return false;
}

void CloseBoth(KovaUdpPorts *pPorts)
{
    close(pPorts->rtpItem.nDescriptor);
    close(pPorts->rtcpItem.nDescriptor);
}

void FreePorts(KovaUdpPorts *pPorts)
{
    free(pPorts);
}

bool Open(KovaLiveLoop *pLoop, KovaUdpPorts *pPorts)
{
    if (!FindPair(pPorts, pLoop->pLive->settings))
        return false;
    if (KovaPollerAdd(pLoop->pPoller, &pPorts->rtpItem)) {
        if (KovaPollerAdd(pLoop->pPoller, &pPorts->rtcpItem))
            return true;
        KovaPollerRemove(pLoop->pPoller, &pPorts->rtpItem);
    }
    CloseBoth(pPorts);
    return false;
}

bool IsUsed(const KovaLiveLoop *pLoop, const KovaUdpPorts *pPorts) KOVA_REQUIRES(pLoop->mutex)
{
    const KovaLiveSession *pSession = pLoop->pSessions;
    while (pSession != nullptr && pSession->pPorts != pPorts)
        pSession = pSession->pNext;
    return pSession != nullptr;
}

/// Closes pairs: all, or those without a session. Addresses come and go, and a machine may have
/// very many: what nobody uses is given back before another pair is opened.
void CloseSome(KovaLiveLoop *pLoop, bool bAll) KOVA_REQUIRES(pLoop->mutex)
{
    for (KovaUdpPorts **ppLink = &pLoop->pUdpPorts; *ppLink != nullptr;) {
        KovaUdpPorts *pPorts = *ppLink;
        if (!bAll && IsUsed(pLoop, pPorts)) {
            ppLink = &pPorts->pNext;
            continue;
        }
        *ppLink = pPorts->pNext;
        KovaPollerRemove(pLoop->pPoller, &pPorts->rtpItem);
        KovaPollerRemove(pLoop->pPoller, &pPorts->rtcpItem);
        CloseBoth(pPorts);
        free(pPorts);
    }
}

} // namespace

KovaUdpPorts *KovaUdpPortsOf(KovaLiveLoop *pLoop, uint32_t nAddress)
{
    KovaMutexAssertHeld(&pLoop->mutex);
    for (KovaUdpPorts *pPorts = pLoop->pUdpPorts; pPorts != nullptr; pPorts = pPorts->pNext) {
        if (pPorts->nAddress == nAddress)
            return pPorts;
    }
    CloseSome(pLoop, false);
    KovaOwner<KovaUdpPorts, FreePorts> ports(KovaHeapNew<KovaUdpPorts>());
    if (!ports)
        return nullptr;
    ports->pLoop = pLoop;
    ports->nAddress = nAddress;
    if (!Open(pLoop, ports.Get()))
        return nullptr;
    ports->pNext = pLoop->pUdpPorts;
    pLoop->pUdpPorts = ports.Get();
    return ports.Release();
}

void KovaUdpPortsClose(KovaLiveLoop *pLoop)
{
    const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    CloseSome(pLoop, true);
}
