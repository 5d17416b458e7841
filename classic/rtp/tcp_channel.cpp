#include "classic/rtp/tcp_channel.h"

#include "classic/rtp/stall_watch.h"
#include "foundation/heap.h"
#include "foundation/keyed_list.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

struct KovaTcpChannel {
    uint32_t nUsers;           // guarded by the registry's mutex, like pSocket's value
    KovaMutex mutex;           // guards everything below and every use of the descriptor
    std::atomic<int> *pSocket; // the socket field; nGone once its owner has left
    std::atomic<int> nGone{-1};
    KovaList *pReferences; // of std::atomic<int *>, all pointing at pSocket
    KovaKeyedList referenceKeys;
    uint8_t *pTail; // rest of a frame that was begun; null when none is
    size_t nTailSize;
    size_t nTailSent;
    uint32_t nFrame; // number of the frame that pTail ends
    bool bReaderWaits;
    bool bReaderWoken;
    int nLeftToClose; // descriptor that the waiting reader closes; 0 when none
    KovaStallWatch stall;
};

namespace {

static_assert(sizeof(std::atomic<int>) == sizeof(int), "a socket field is one plain int");
static_assert(alignof(std::atomic<int>) == alignof(int), "a socket field is one plain int");

constexpr int kSendTimeoutMilliseconds = 10000;
constexpr int kSendFlags = MSG_NOSIGNAL | MSG_DONTWAIT;

/// Channels by the address of their socket field, which they all still have.
KovaMutex g_registryMutex = {PTHREAD_MUTEX_INITIALIZER};
KovaList *g_pChannels = nullptr;
KovaKeyedList g_channelKeys;

bool HasSocket(const void *pData, const void *pSocket)
{
    return static_cast<const KovaTcpChannel *>(pData)->pSocket == pSocket;
}

KovaTcpChannel *FindChannel(const std::atomic<int> *pSocket)
{
    return static_cast<KovaTcpChannel *>(
        KovaKeyedFind(&g_channelKeys, g_pChannels, KovaKeyOfAddress(pSocket), HasSocket, pSocket));
}

/// Nobody finds the channel any more.
void Unregister(KovaTcpChannel *pChannel)
{
    if (pChannel->pSocket != &pChannel->nGone)
        KovaKeyedTake(&g_channelKeys, g_pChannels, KovaKeyOfAddress(pChannel->pSocket), pChannel);
}

void FreeChannel(KovaTcpChannel *pChannel)
{
    free(pChannel->pTail);
    KovaMutexDestroy(&pChannel->mutex);
    free(pChannel);
}

KovaTcpChannel *MakeChannel(std::atomic<int> *pSocket)
{
    KovaOwner<KovaTcpChannel, FreeChannel> channel(KovaHeapNew<KovaTcpChannel>());
    if (!channel)
        return nullptr;
    channel->pSocket = pSocket;
    KovaMutexInit(&channel->mutex);
    return KovaKeyedPush(&g_channelKeys, g_pChannels, KovaKeyOfAddress(pSocket), channel.Get())
               ? channel.Release()
               : nullptr;
}

/// The descriptor; -1 once it is closed. Under the channel's mutex, which orders it.
int SocketOf(const KovaTcpChannel *pChannel)
{
    return pChannel->pSocket->load(std::memory_order_relaxed);
}

/// Leaves errno as it is: it tells why the tail is dropped.
void DropTail(KovaTcpChannel *pChannel)
{
    const int nError = errno;
    free(pChannel->pTail);
    pChannel->pTail = nullptr;
    errno = nError;
}

void CloseLocked(KovaTcpChannel *pChannel)
{
    const int nSocket = pChannel->pSocket->exchange(-1);
    DropTail(pChannel);
    if (nSocket <= 0)
        return;
    if (pChannel->bReaderWaits) {
        // The reader is polling this number: it closes it once it is back.
        pChannel->nLeftToClose = nSocket;
        shutdown(nSocket, SHUT_RDWR);
    } else {
        close(nSocket);
    }
}

/// One send on the open descriptor; -1 and EBADF when it is closed.
ssize_t SendLocked(KovaTcpChannel *pChannel, const uint8_t *pBytes, size_t nSize)
{
    const int nSocket = SocketOf(pChannel);
    if (nSocket < 0) {
        errno = EBADF;
        return -1;
    }
    const ssize_t nSent = send(nSocket, pBytes, nSize, kSendFlags);
    if (nSent > 0)
        KovaStallWatchTaken(&pChannel->stall);
    return nSent;
}

/// The rest of the frame that was begun will not go out. Whatever followed would
/// be taken for it, so the connection ends. Leaves errno as it is.
void GiveUpTail(KovaTcpChannel *pChannel)
{
    const int nError = errno;
    shutdown(SocketOf(pChannel), SHUT_RDWR);
    DropTail(pChannel);
    errno = nError;
}

/// Sends what is left of the frame that was begun.
KovaSendOutcome FlushTail(KovaTcpChannel *pChannel)
{
    while (pChannel->pTail != nullptr) {
        const ssize_t nSent = SendLocked(pChannel, pChannel->pTail + pChannel->nTailSent,
                                         pChannel->nTailSize - pChannel->nTailSent);
        if (nSent < 0) {
            const KovaSendOutcome outcome = KovaSendOutcomeOfError(errno);
            if (outcome == kSendFailed)
                GiveUpTail(pChannel);
            return outcome;
        }
        if (nSent == 0) {
            errno = EAGAIN;
            return kSendAgain;
        }
        pChannel->nTailSent += static_cast<size_t>(nSent);
        if (pChannel->nTailSent == pChannel->nTailSize)
            DropTail(pChannel);
    }
    return kSendDone;
}

/// Keeps a frame of which nSent bytes are out, and goes on with it. Without memory the
/// byte stream cannot be kept whole any more, so the connection ends instead.
KovaSendOutcome KeepFrame(KovaTcpChannel *pChannel, const iovec &head, const iovec &packet,
                          size_t nSent, KovaFrameProgress *pProgress)
{
    pChannel->pTail = static_cast<uint8_t *>(KovaHeapAlloc(head.iov_len + packet.iov_len));
    if (pChannel->pTail == nullptr) {
        shutdown(SocketOf(pChannel), SHUT_RDWR);
        errno = ENOMEM;
        return kSendFailed;
    }
    memcpy(pChannel->pTail, head.iov_base, head.iov_len);
    memcpy(pChannel->pTail + head.iov_len, packet.iov_base, packet.iov_len);
    pChannel->nTailSize = head.iov_len + packet.iov_len;
    pChannel->nTailSent = nSent;
    pProgress->bBegun = true;
    pProgress->nFrame = ++pChannel->nFrame;
    return FlushTail(pChannel);
}

KovaSendOutcome ContinueFrame(KovaTcpChannel *pChannel, const KovaFrameProgress &progress)
{
    if (pChannel->pTail == nullptr || pChannel->nFrame != progress.nFrame)
        return kSendDone;
    return FlushTail(pChannel);
}

KovaSendOutcome BeginFrame(KovaTcpChannel *pChannel, const uint8_t *pFrame, size_t nSize,
                           KovaFrameProgress *pProgress)
{
    const KovaSendOutcome flushed = FlushTail(pChannel);
    if (flushed != kSendDone)
        return flushed;
    const ssize_t nSent = SendLocked(pChannel, pFrame, nSize);
    if (nSent < 0)
        return KovaSendOutcomeOfError(errno);
    if (nSent == 0) {
        errno = EAGAIN;
        return kSendAgain;
    }
    const size_t nTaken = static_cast<size_t>(nSent);
    const iovec frame = {const_cast<uint8_t *>(pFrame), nSize};
    return nTaken >= nSize ? kSendDone
                           : KeepFrame(pChannel, frame, {frame.iov_base, 0}, nTaken, pProgress);
}

/// Writes frames, none of which was begun, until one goes out in part only.
KovaSendOutcome WriteFrames(KovaTcpChannel *pChannel, const KovaInterleavedFrame *pFrames,
                            uint32_t nCount, uint32_t *pSent, KovaFrameProgress *pProgress)
{
    const KovaSendOutcome flushed = FlushTail(pChannel);
    if (flushed != kSendDone)
        return flushed;
    const KovaInterleavedProgress written =
        KovaInterleavedSend(SocketOf(pChannel), pFrames, nCount, 0);
    *pSent += written.nFrames;
    if (written.nFrames != 0 || written.nBytes != 0)
        KovaStallWatchTaken(&pChannel->stall);
    errno = written.nError;
    if (written.nBytes == 0)
        return written.outcome;
    const KovaInterleavedFrame &frame = pFrames[written.nFrames];
    uint8_t header[kInterleavedHeaderSize];
    KovaInterleavedHeaderWrite(header, frame.nChannel, frame.nSize);
    return KeepFrame(pChannel, {header, sizeof(header)},
                     {const_cast<uint8_t *>(frame.pPacket), frame.nSize}, written.nBytes,
                     pProgress);
}

KovaSendOutcome SendFramesLocked(KovaTcpChannel *pChannel, const KovaInterleavedFrame *pFrames,
                                 uint32_t nCount, uint32_t *pSent, KovaFrameProgress *pProgress)
{
    KovaSendOutcome outcome = kSendDone;
    if (pProgress->bBegun)
        outcome = ContinueFrame(pChannel, *pProgress);
    while (outcome == kSendDone) {
        if (pProgress->bBegun)
            ++*pSent;
        pProgress->bBegun = false;
        if (*pSent == nCount)
            break;
        outcome = WriteFrames(pChannel, pFrames + *pSent, nCount - *pSent, pSent, pProgress);
    }
    return outcome;
}

/// Takes a connection that has refused every byte for too long for broken.
KovaSendOutcome WatchStall(KovaTcpChannel *pChannel, KovaSendOutcome outcome)
{
    if (outcome != kSendAgain || !KovaStallWatchRefused(&pChannel->stall, SocketOf(pChannel)))
        return outcome;
    errno = ECONNRESET;
    return kSendFailed;
}

} // namespace

KovaTcpChannel *KovaTcpChannelJoin(int *pSocket)
{
    if (pSocket == nullptr)
        return nullptr;
    std::atomic<int> *pField = reinterpret_cast<std::atomic<int> *>(pSocket);
    const KovaMutexLock lock(&g_registryMutex, kRankChannels);
    KovaTcpChannel *pChannel = FindChannel(pField);
    if (pChannel == nullptr)
        pChannel = MakeChannel(pField);
    if (pChannel != nullptr)
        pChannel->nUsers++;
    return pChannel;
}

void KovaTcpChannelLeave(KovaTcpChannel *pChannel)
{
    if (pChannel == nullptr)
        return;
    KovaMutexLock lock(&g_registryMutex, kRankChannels);
    if (--pChannel->nUsers != 0)
        return;
    Unregister(pChannel);
    lock.Unlock();
    FreeChannel(pChannel);
}

bool KovaTcpChannelFollow(KovaTcpChannel *pChannel, std::atomic<int *> *ppReference)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    ppReference->store(reinterpret_cast<int *>(pChannel->pSocket));
    return KovaKeyedPush(&pChannel->referenceKeys, pChannel->pReferences,
                         KovaKeyOfAddress(ppReference), ppReference);
}

void KovaTcpChannelUnfollow(KovaTcpChannel *pChannel, std::atomic<int *> *ppReference)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    KovaKeyedTake(&pChannel->referenceKeys, pChannel->pReferences, KovaKeyOfAddress(ppReference),
                  ppReference);
}

void KovaTcpChannelAbandon(KovaTcpChannel *pChannel)
{
    const KovaMutexLock registryLock(&g_registryMutex, kRankChannels);
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    CloseLocked(pChannel);
    Unregister(pChannel);
    pChannel->pSocket = &pChannel->nGone;
    for (auto *ppReference : KovaListOf<std::atomic<int *>>(pChannel->pReferences))
        ppReference->store(reinterpret_cast<int *>(&pChannel->nGone));
}

void KovaTcpChannelClose(KovaTcpChannel *pChannel)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    CloseLocked(pChannel);
}

KovaSendOutcome KovaTcpChannelSendFrame(KovaTcpChannel *pChannel, const uint8_t *pFrame,
                                        size_t nSize, KovaFrameProgress *pProgress)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    const KovaSendOutcome outcome = pProgress->bBegun
                                        ? ContinueFrame(pChannel, *pProgress)
                                        : BeginFrame(pChannel, pFrame, nSize, pProgress);
    return WatchStall(pChannel, outcome);
}

KovaSendOutcome KovaTcpChannelSendFrames(KovaTcpChannel *pChannel,
                                         const KovaInterleavedFrame *pFrames, uint32_t nCount,
                                         uint32_t *pSent, KovaFrameProgress *pProgress)
{
    *pSent = 0;
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    return WatchStall(pChannel, SendFramesLocked(pChannel, pFrames, nCount, pSent, pProgress));
}

KovaResponseProgress KovaTcpChannelSendResponse(KovaTcpChannel *pChannel, const uint8_t *pBytes,
                                                size_t nSize)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    KovaResponseProgress progress = {nSize, 0};
    if (FlushTail(pChannel) != kSendDone) {
        progress.nError = errno;
        return progress;
    }
    while (progress.nLeft != 0) {
        const ssize_t nSent = SendLocked(pChannel, pBytes + nSize - progress.nLeft, progress.nLeft);
        if (nSent < 0)
            progress.nError = errno;
        if (nSent <= 0)
            break;
        progress.nLeft -= static_cast<size_t>(nSent);
    }
    return progress;
}

ssize_t KovaTcpChannelReceive(KovaTcpChannel *pChannel, uint8_t *pBuffer, size_t nSize)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    const int nSocket = SocketOf(pChannel);
    if (nSocket < 0) {
        errno = EBADF;
        return -1;
    }
    return recv(nSocket, pBuffer, nSize, MSG_DONTWAIT);
}

void KovaTcpChannelWaitReadable(KovaTcpChannel *pChannel, int nMilliseconds)
{
    KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    struct pollfd entry = {};
    entry.fd = SocketOf(pChannel);
    entry.events = POLLIN;
    if (entry.fd < 0 || pChannel->bReaderWoken)
        return;
    pChannel->bReaderWaits = true;
    lock.Unlock();
    poll(&entry, 1, nMilliseconds);
    lock.Lock();
    pChannel->bReaderWaits = false;
    if (pChannel->nLeftToClose != 0) {
        close(pChannel->nLeftToClose);
        pChannel->nLeftToClose = 0;
    }
}

void KovaTcpChannelWakeReader(KovaTcpChannel *pChannel, KovaReaderWake wake)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    if (wake == kWakeForGood)
        pChannel->bReaderWoken = true;
    const int nSocket = SocketOf(pChannel);
    if (pChannel->bReaderWaits && nSocket > 0)
        shutdown(nSocket, SHUT_RD);
}

void KovaTcpChannelLimitSending(KovaTcpChannel *pChannel)
{
#ifdef TCP_USER_TIMEOUT
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    const int nSocket = SocketOf(pChannel);
    if (nSocket > 0)
        setsockopt(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &kSendTimeoutMilliseconds,
                   sizeof(kSendTimeoutMilliseconds));
#else
    (void)pChannel;
#endif
}
