#include "rtp/interleaved_batch.h"

#include "foundation/byte_order.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

namespace {

constexpr uint32_t kMostFrames = 64;
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

/// One system call with as many frames as it takes. Bytes written, or -1 with errno.
ssize_t Write(int nSocket, const KovaInterleavedFrame *pFrames, uint32_t nCount, uint32_t nBegun)
{
    uint8_t headers[kMostFrames][kInterleavedHeaderSize];
    iovec parts[kMostFrames * 2];
    if (nCount > kMostFrames)
        nCount = kMostFrames;
    for (uint32_t n = 0; n < nCount; n++) {
        KovaInterleavedHeaderWrite(headers[n], pFrames[n].nChannel, pFrames[n].nSize);
        parts[n * 2] = {headers[n], kInterleavedHeaderSize};
        parts[n * 2 + 1] = {const_cast<uint8_t *>(pFrames[n].pPacket), pFrames[n].nSize};
    }
    const uint32_t nOfHeader = nBegun < kInterleavedHeaderSize ? nBegun : kInterleavedHeaderSize;
    const uint32_t nOfPacket = nBegun - nOfHeader;
    parts[0] = {headers[0] + nOfHeader, kInterleavedHeaderSize - nOfHeader};
    parts[1] = {const_cast<uint8_t *>(pFrames[0].pPacket) + nOfPacket,
                pFrames[0].nSize - nOfPacket};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = nCount * 2;
    return sendmsg(nSocket, &message, kSendFlags);
}

void NoteWritten(KovaInterleavedProgress *pProgress, const KovaInterleavedFrame *pFrames,
                 size_t nBytes)
{
    while (nBytes != 0) {
        const uint32_t nLeft =
            kInterleavedHeaderSize + pFrames[pProgress->nFrames].nSize - pProgress->nBytes;
        if (nBytes < nLeft) {
            pProgress->nBytes += static_cast<uint32_t>(nBytes);
            return;
        }
        nBytes -= nLeft;
        pProgress->nFrames++;
        pProgress->nBytes = 0;
    }
}

} // namespace

void KovaInterleavedHeaderWrite(uint8_t *pHeader, uint8_t nChannel, uint32_t nSize)
{
    pHeader[0] = '$';
    pHeader[1] = nChannel;
    RtspWriteMB(pHeader + 2, nSize, 16);
}

KovaInterleavedProgress KovaInterleavedSend(int nSocket, const KovaInterleavedFrame *pFrames,
                                            uint32_t nCount, uint32_t nBegun)
{
    KovaInterleavedProgress progress = {kSendDone, 0, nBegun, 0};
    while (progress.nFrames < nCount) {
        const ssize_t nWritten =
            Write(nSocket, pFrames + progress.nFrames, nCount - progress.nFrames, progress.nBytes);
        if (nWritten > 0)
            NoteWritten(&progress, pFrames, static_cast<size_t>(nWritten));
        if (nWritten > 0 && progress.nBytes == 0)
            continue;
        progress.nError = nWritten < 0 ? errno : EAGAIN;
        progress.outcome = KovaSendOutcomeOfError(progress.nError);
        break;
    }
    return progress;
}
