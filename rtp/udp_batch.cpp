#include "rtp/udp_batch.h"

#include "rtp/udp_channel.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

constexpr int kUdpSegment = 103; // UDP_SEGMENT, which older headers lack
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

// What the system takes at once: UDP_MAX_SEGMENTS, and less than a datagram's
// largest size, which the headers are a part of.
constexpr uint32_t kMostSegments = 64;
constexpr size_t kMostRunBytes = 65000;
constexpr uint32_t kMostMessages = 64;

constexpr uint32_t kNotAsked = 0;

/// The best way that the system has, plus 1.
std::atomic<uint32_t> g_nSystem{kNotAsked};

/// The size at which the system is to cut a message.
struct SegmentSize {
    alignas(cmsghdr) uint8_t bytes[CMSG_SPACE(sizeof(uint16_t))];
};

/// What goes out with one call.
struct Window {
    mmsghdr messages[kMostMessages];
    SegmentSize sizes[kMostMessages];
    uint32_t nCount;
};

/// A delivery that the system has refused something of.
struct Trouble {
    KovaUdpWay simplest; ///< nothing better is tried for the rest of it
    int nError;          ///< why; 0: nothing was refused
};

KovaUdpWay Simpler(KovaUdpWay left, KovaUdpWay right)
{
    return left > right ? left : right;
}

/// An unknown message of control is ignored by old systems, which would send one
/// giant datagram: only an option that can be read is one that they know.
KovaUdpWay SystemWay(int nSocket)
{
    uint32_t nKnown = g_nSystem.load(std::memory_order_relaxed);
    if (nKnown == kNotAsked) {
        int nSize = 0;
        socklen_t nLength = sizeof(nSize);
        const bool bHas = getsockopt(nSocket, IPPROTO_UDP, kUdpSegment, &nSize, &nLength) == 0;
        if (!bHas && (errno == EBADF || errno == ENOTSOCK))
            return kUdpMany; // says nothing of the system
        const uint32_t nFound = (bHas ? kUdpSegmented : kUdpMany) + 1;
        if (g_nSystem.compare_exchange_strong(nKnown, nFound, std::memory_order_relaxed))
            nKnown = nFound;
    }
    return static_cast<KovaUdpWay>(nKnown - 1);
}

/// Reasons that say nothing of what a destination allows.
bool Passes(int nError)
{
    return nError == ENOBUFS || nError == ENOMEM || nError == ECONNREFUSED ||
           nError == EHOSTUNREACH || nError == ENETUNREACH || nError == ENETDOWN;
}

bool IsOver(const KovaUdpDelivery &delivery)
{
    return delivery.outcome != kSendDone || delivery.nSent == delivery.nPackets;
}

bool HasNeighbour(const KovaUdpDelivery *pDelivery, const KovaUdpDelivery *pEnd)
{
    return pDelivery + 1 != pEnd && pDelivery[1].nSocket == pDelivery->nSocket;
}

/// One packet by itself needs no more than a plain call.
KovaUdpWay WayOf(const KovaUdpDelivery *pDelivery, const KovaUdpDelivery *pEnd)
{
    const bool bOne = pDelivery->nPackets - pDelivery->nSent == 1 && !HasNeighbour(pDelivery, pEnd);
    if (bOne || pDelivery->nSocket <= 0 || pDelivery->pRoute->bSingly)
        return kUdpSingly;
    return Simpler(SystemWay(pDelivery->nSocket), pDelivery->pRoute->way);
}

/// How many packets the system can cut out of one: of the same size, but for the
/// last one, which may be smaller.
uint32_t RunLength(const iovec *pPackets, uint32_t nPackets)
{
    const size_t nSize = pPackets[0].iov_len;
    size_t nBytes = nSize;
    uint32_t nRun = 1;
    bool bOpen = true;
    while (bOpen && nRun < nPackets && nRun < kMostSegments) {
        const size_t nNext = pPackets[nRun].iov_len;
        if (nNext == 0 || nNext > nSize || nBytes + nNext > kMostRunBytes)
            break;
        bOpen = nNext == nSize;
        nBytes += nNext;
        nRun++;
    }
    return nRun;
}

void CutAt(msghdr *pMessage, SegmentSize *pSize, size_t nSegment)
{
    const uint16_t nSize = static_cast<uint16_t>(nSegment);
    *pSize = {};
    pMessage->msg_control = pSize->bytes;
    pMessage->msg_controllen = sizeof(pSize->bytes);
    cmsghdr *pControl = CMSG_FIRSTHDR(pMessage);
    pControl->cmsg_level = IPPROTO_UDP;
    pControl->cmsg_type = kUdpSegment;
    pControl->cmsg_len = CMSG_LEN(sizeof(nSize));
    memcpy(CMSG_DATA(pControl), &nSize, sizeof(nSize));
}

/// Adds what is left of a delivery, as far as there is room.
void AddTo(Window *pWindow, const KovaUdpDelivery &delivery, KovaUdpWay way)
{
    uint32_t nRun;
    for (uint32_t nAt = delivery.nSent; nAt < delivery.nPackets; nAt += nRun) {
        if (pWindow->nCount == kMostMessages)
            return;
        const iovec *pPackets = delivery.pPackets + nAt;
        nRun = way == kUdpSegmented ? RunLength(pPackets, delivery.nPackets - nAt) : 1;
        msghdr *pMessage = &pWindow->messages[pWindow->nCount].msg_hdr;
        *pMessage = {};
        pMessage->msg_name = const_cast<sockaddr_in *>(delivery.pAddress);
        pMessage->msg_namelen = sizeof(*delivery.pAddress);
        pMessage->msg_iov = const_cast<iovec *>(pPackets);
        pMessage->msg_iovlen = nRun;
        if (nRun > 1)
            CutAt(pMessage, &pWindow->sizes[pWindow->nCount], pPackets[0].iov_len);
        pWindow->nCount++;
    }
}

/// Notes messages that the system has taken: of the first delivery on, in order.
void NoteTaken(const Window &window, int nTaken, KovaUdpDelivery *pDelivery)
{
    for (int n = 0; n < nTaken; n++) {
        while (pDelivery->nSent == pDelivery->nPackets)
            pDelivery++;
        pDelivery->nSent += static_cast<uint32_t>(window.messages[n].msg_hdr.msg_iovlen);
    }
}

/// Everybody whose packets go through a full socket has to wait.
void NoteFull(KovaUdpDelivery *pDelivery, const KovaUdpDelivery *pEnd, int nError)
{
    const int nSocket = pDelivery->nSocket;
    for (; pDelivery != pEnd && pDelivery->nSocket == nSocket; pDelivery++) {
        if (IsOver(*pDelivery))
            continue;
        pDelivery->outcome = kSendAgain;
        pDelivery->nError = nError;
    }
}

void SendSingly(KovaUdpDelivery *pDelivery, const KovaUdpDelivery *pEnd)
{
    KovaSendOutcome outcome = kSendDone;
    while (pDelivery->nSent < pDelivery->nPackets) {
        const iovec &packet = pDelivery->pPackets[pDelivery->nSent];
        outcome = KovaUdpSend(pDelivery->nSocket, *pDelivery->pAddress,
                              static_cast<const uint8_t *>(packet.iov_base), packet.iov_len);
        if (outcome != kSendDone)
            break;
        pDelivery->nSent++;
    }
    // What refuses one packet is likely to refuse the next: no detours for that.
    pDelivery->pRoute->bSingly =
        outcome == kSendFailed && pDelivery->nSent + 1 < pDelivery->nPackets;
    if (outcome == kSendAgain)
        return NoteFull(pDelivery, pEnd, errno);
    pDelivery->outcome = outcome;
    pDelivery->nError = outcome == kSendDone ? 0 : errno;
}

/// Sends what is left of the first delivery, and of those behind it that share its
/// socket and do not go by plain calls. It is told of trouble with the first only.
void SendTogether(KovaUdpDelivery *pDelivery, const KovaUdpDelivery *pEnd, KovaUdpWay way,
                  Trouble *pTrouble)
{
    Window window;
    window.nCount = 0;
    AddTo(&window, *pDelivery, way);
    const KovaUdpDelivery *pMore = pDelivery;
    while (HasNeighbour(pMore, pEnd) && window.nCount < kMostMessages) {
        const KovaUdpRoute &route = *(++pMore)->pRoute;
        if (route.bSingly || route.way == kUdpSingly)
            break;
        AddTo(&window, *pMore, Simpler(SystemWay(pMore->nSocket), route.way));
    }
    const int nTaken = sendmmsg(pDelivery->nSocket, window.messages, window.nCount, kSendFlags);
    if (nTaken > 0)
        return NoteTaken(window, nTaken, pDelivery);
    const int nError = nTaken < 0 ? errno : EAGAIN;
    if (KovaSendOutcomeOfError(nError) == kSendAgain)
        return NoteFull(pDelivery, pEnd, nError);
    if (nError == ENOSYS)
        g_nSystem.store(kUdpSingly + 1, std::memory_order_relaxed);
    *pTrouble = {way == kUdpSegmented ? kUdpMany : kUdpSingly, nError};
}

} // namespace

void KovaUdpBatchSend(KovaUdpDelivery *pDeliveries, uint32_t nCount)
{
    KovaUdpDelivery *const pEnd = pDeliveries + nCount;
    for (KovaUdpDelivery *pDelivery = pDeliveries; pDelivery != pEnd; pDelivery++) {
        pDelivery->nSent = 0;
        pDelivery->outcome = kSendDone;
        pDelivery->nError = 0;
    }
    for (KovaUdpDelivery *pDelivery = pDeliveries; pDelivery != pEnd; pDelivery++) {
        Trouble trouble = {};
        while (!IsOver(*pDelivery)) {
            const uint32_t nBefore = pDelivery->nSent;
            const KovaUdpWay way = Simpler(WayOf(pDelivery, pEnd), trouble.simplest);
            if (way == kUdpSingly)
                SendSingly(pDelivery, pEnd);
            else
                SendTogether(pDelivery, pEnd, way, &trouble);
            if (pDelivery->nSent != nBefore && trouble.nError != 0 && !Passes(trouble.nError))
                pDelivery->pRoute->way = Simpler(pDelivery->pRoute->way, trouble.simplest);
        }
    }
}

void KovaUdpBatchForget()
{
    g_nSystem.store(kNotAsked, std::memory_order_relaxed);
}
