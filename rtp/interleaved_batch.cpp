#include "rtp/interleaved_batch.h"

#include "foundation/byte_order.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

namespace {

constexpr uint32_t kMostFrames = 64;
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

/// Bytes in the order in which they go out, in as few pieces as they lie in.
struct Pieces {
    iovec parts[kMostFrames * 2];
    uint32_t nCount;
    size_t nSkip; ///< bytes at the beginning that are out already
};

void Add(Pieces *pPieces, const uint8_t *pBytes, size_t nSize)
{
    const size_t nSkipped = pPieces->nSkip < nSize ? pPieces->nSkip : nSize;
    pPieces->nSkip -= nSkipped;
    pBytes += nSkipped;
    nSize -= nSkipped;
    if (nSize == 0)
        return;
    if (pPieces->nCount != 0) {
        iovec *pLast = &pPieces->parts[pPieces->nCount - 1];
        if (static_cast<uint8_t *>(pLast->iov_base) + pLast->iov_len == pBytes) {
            pLast->iov_len += nSize;
            return;
        }
    }
    pPieces->parts[pPieces->nCount++] = {const_cast<uint8_t *>(pBytes), nSize};
}

/// One system call with as many frames as it takes. Bytes written, or -1 with errno.
ssize_t Write(int nSocket, const KovaInterleavedFrame *pFrames, uint32_t nCount, uint32_t nBegun)
{
    uint8_t headers[kMostFrames][kInterleavedHeaderSize];
    Pieces pieces;
    pieces.nCount = 0;
    pieces.nSkip = nBegun;
    if (nCount > kMostFrames)
        nCount = kMostFrames;
    for (uint32_t n = 0; n < nCount; n++) {
        const KovaInterleavedFrame &frame = pFrames[n];
        const uint8_t *pHeader = headers[n];
        if (frame.bHeaderInFront)
            pHeader = frame.pPacket - kInterleavedHeaderSize;
        else
            KovaInterleavedHeaderWrite(headers[n], frame.nChannel, frame.nSize);
        Add(&pieces, pHeader, kInterleavedHeaderSize);
        Add(&pieces, frame.pPacket, frame.nSize);
    }
    msghdr message = {};
    message.msg_iov = pieces.parts;
    message.msg_iovlen = pieces.nCount;
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
