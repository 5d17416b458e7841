#include "classic/rtp/tcp_channel_record.h"

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

namespace {

static_assert(sizeof(std::atomic<int>) == sizeof(int), "a socket field is one plain int");
static_assert(alignof(std::atomic<int>) == alignof(int), "a socket field is one plain int");

constexpr int kSendTimeoutMilliseconds = 10000;

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

void CloseLocked(KovaTcpChannel *pChannel)
{
    const int nSocket = pChannel->pSocket->exchange(-1);
    KovaTcpChannelDropTail(pChannel);
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

ssize_t KovaTcpChannelReceive(KovaTcpChannel *pChannel, uint8_t *pBuffer, size_t nSize)
{
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    const int nSocket = KovaTcpChannelSocket(pChannel);
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
    entry.fd = KovaTcpChannelSocket(pChannel);
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
    const int nSocket = KovaTcpChannelSocket(pChannel);
    if (pChannel->bReaderWaits && nSocket > 0)
        shutdown(nSocket, SHUT_RD);
}

void KovaTcpChannelLimitSending(KovaTcpChannel *pChannel)
{
#ifdef TCP_USER_TIMEOUT
    const KovaMutexLock lock(&pChannel->mutex, kRankChannel);
    const int nSocket = KovaTcpChannelSocket(pChannel);
    if (nSocket > 0)
        setsockopt(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &kSendTimeoutMilliseconds,
                   sizeof(kSendTimeoutMilliseconds));
#else
    (void)pChannel;
#endif
}
