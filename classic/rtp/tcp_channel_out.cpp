#include "classic/rtp/tcp_channel_record.h"
#include "foundation/heap.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kSendFlags = MSG_NOSIGNAL | MSG_DONTWAIT;

/// One send on the open descriptor; -1 and EBADF when it is closed.
ssize_t SendLocked(KovaTcpChannel *pChannel, const uint8_t *pBytes, size_t nSize)
{
    const int nSocket = KovaTcpChannelSocket(pChannel);
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
    shutdown(KovaTcpChannelSocket(pChannel), SHUT_RDWR);
    KovaTcpChannelDropTail(pChannel);
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
            KovaTcpChannelDropTail(pChannel);
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
        shutdown(KovaTcpChannelSocket(pChannel), SHUT_RDWR);
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
        KovaInterleavedSend(KovaTcpChannelSocket(pChannel), pFrames, nCount, 0);
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
    if (outcome != kSendAgain ||
        !KovaStallWatchRefused(&pChannel->stall, KovaTcpChannelSocket(pChannel)))
        return outcome;
    errno = ECONNRESET;
    return kSendFailed;
}

} // namespace

void KovaTcpChannelDropTail(KovaTcpChannel *pChannel)
{
    const int nError = errno;
    free(pChannel->pTail);
    pChannel->pTail = nullptr;
    errno = nError;
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
