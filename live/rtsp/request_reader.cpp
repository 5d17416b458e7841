#include "live/rtsp/request_reader.h"

#include "live/rtsp/request_head.h"
#include "live/rtsp/words.h"

#include <cstdlib>
#include <cstring>

namespace {

// Most requests fit the first room; one that stays unfinished costs no more.
constexpr size_t kFirstCapacity = 2048;
// The longest message, with an LF that follows the CR at the end of its head: no interleaved
// frame is longer.
constexpr size_t kMostCapacity = kRequestMaxHead + 1 + kRequestMaxBody;
constexpr size_t kFrameHead = 4;
constexpr uint8_t kFrameMark = '$';
static_assert(kMostCapacity >= kFrameHead + UINT16_MAX, "a frame fits");

bool IsLineEnd(uint8_t nByte)
{
    return nByte == '\r' || nByte == '\n';
}

size_t WaitingBytes(const KovaRequestReader *pReader)
{
    return pReader->nEnd - pReader->nBegin;
}

/// What waits is moved to the front. It came in with the last piece, as everything
/// before it was used up only then: a piece is moved once at most.
void MoveToFront(KovaRequestReader *pReader)
{
    if (pReader->nBegin == 0)
        return;
    const size_t nWaiting = WaitingBytes(pReader);
    if (nWaiting != 0)
        memmove(pReader->pBuffer, pReader->pBuffer + pReader->nBegin, nWaiting);
    pReader->nScanned =
        pReader->nScanned > pReader->nBegin ? pReader->nScanned - pReader->nBegin : 0;
    pReader->nBegin = 0;
    pReader->nEnd = nWaiting;
}

bool Grow(KovaRequestReader *pReader)
{
    size_t nCapacity = pReader->nCapacity * 2;
    if (nCapacity == 0)
        nCapacity = kFirstCapacity;
    if (nCapacity > kMostCapacity)
        nCapacity = kMostCapacity;
    if (nCapacity == pReader->nCapacity)
        return false;
    void *pBuffer = realloc(pReader->pBuffer, nCapacity);
    if (pBuffer == nullptr)
        return false;
    pReader->pBuffer = static_cast<uint8_t *>(pBuffer);
    pReader->nCapacity = nCapacity;
    return true;
}

/// Ends a message: nLength bytes are used up.
void Use(KovaRequestReader *pReader, size_t nLength)
{
    pReader->nBegin += nLength;
    pReader->nScanned = pReader->nBegin;
    pReader->nNeeded = 0;
}

/// Empty lines before a message (RFC 2326, section 4, by RFC 2068, 4.1). The LF of a
/// line end whose CR ended the message before is one of them.
void SkipEmptyLines(KovaRequestReader *pReader)
{
    while (pReader->nBegin < pReader->nEnd && IsLineEnd(pReader->pBuffer[pReader->nBegin]))
        Use(pReader, 1);
}

/// Looks for the empty line that ends a head, from where the last look stopped. Each
/// line ends by CRLF, LF or CR; a head begins with neither, so one byte back tells
/// all: a second line end that is not the LF of a CRLF makes an empty line. A CR that
/// is the last byte there ends it too, nothing need follow.
/// @param pLength  receives the head's length, a CR's LF not counted
bool FindHeadEnd(KovaRequestReader *pReader, size_t *pLength)
{
    const uint8_t *pBuffer = pReader->pBuffer;
    size_t nLimit = pReader->nEnd;
    if (nLimit - pReader->nBegin > kRequestMaxHead)
        nLimit = pReader->nBegin + kRequestMaxHead;
    size_t nAt = pReader->nScanned;
    if (nAt <= pReader->nBegin)
        nAt = pReader->nBegin + 1;
    for (; nAt < nLimit; ++nAt) {
        if (!IsLineEnd(pBuffer[nAt]) || !IsLineEnd(pBuffer[nAt - 1]))
            continue;
        if (pBuffer[nAt - 1] == '\r' && pBuffer[nAt] == '\n')
            continue;
        pReader->nScanned = nAt;
        *pLength = nAt + 1 - pReader->nBegin;
        return true;
    }
    pReader->nScanned = nAt;
    return false;
}

std::string_view BytesAt(const KovaRequestReader *pReader, size_t nOffset, size_t nLength)
{
    return {reinterpret_cast<const char *>(pReader->pBuffer + pReader->nBegin + nOffset), nLength};
}

/// An interleaved frame: '$', the channel, two bytes of length (RFC 2326, 10.12).
bool ReadFrame(KovaRequestReader *pReader, KovaReadItem *pItem)
{
    const uint8_t *pFrame = pReader->pBuffer + pReader->nBegin;
    if (WaitingBytes(pReader) < kFrameHead)
        return false;
    const size_t nLength = static_cast<size_t>(pFrame[2] << 8 | pFrame[3]);
    if (WaitingBytes(pReader) < kFrameHead + nLength) {
        pReader->nNeeded = kFrameHead + nLength;
        return false;
    }
    pItem->kind = kReadFrame;
    pItem->nChannel = pFrame[1];
    pItem->frame = BytesAt(pReader, kFrameHead, nLength);
    Use(pReader, kFrameHead + nLength);
    return true;
}

/// The stream cannot be followed behind this message: whatever comes is dropped.
void Break(KovaRequestReader *pReader, KovaReadItem *pItem, uint16_t nStatus)
{
    pItem->kind = kReadBad;
    pItem->bFatal = true;
    pItem->nStatus = nStatus;
    pReader->bBroken = true;
}

/// Whether the body is there, too. The LF of the CR that ended the head belongs to
/// the head: to tell whether it comes needs no waiting, as a body is waited for anyway.
bool HasBody(KovaRequestReader *pReader, size_t *pHead, size_t nBody)
{
    if (nBody == 0)
        return true;
    const uint8_t *pMessage = pReader->pBuffer + pReader->nBegin;
    if (*pHead < WaitingBytes(pReader) && pMessage[*pHead - 1] == '\r' && pMessage[*pHead] == '\n')
        ++*pHead;
    pReader->nNeeded = *pHead + nBody;
    return WaitingBytes(pReader) >= pReader->nNeeded;
}

enum Progress : uint8_t {
    kUnfinished, ///< more bytes are needed
    kPassed,     ///< a message that is nobody's business
    kItem,
};

Progress ReadMessage(KovaRequestReader *pReader, KovaReadItem *pItem)
{
    size_t nHead = kRequestMaxHead;
    const bool bWhole = FindHeadEnd(pReader, &nHead);
    if (!bWhole && WaitingBytes(pReader) < kRequestMaxHead)
        return kUnfinished;
    KovaHeadFindings findings;
    char *pHead = reinterpret_cast<char *>(pReader->pBuffer + pReader->nBegin);
    KovaRequestHeadRead(pHead, nHead, bWhole, &pItem->request, &findings);
    if (findings.bFatal) {
        Break(pReader, pItem, findings.nStatus);
        return kItem;
    }
    if (!HasBody(pReader, &nHead, findings.nBody))
        return kUnfinished;
    pItem->request.body = BytesAt(pReader, nHead, findings.nBody);
    Use(pReader, nHead + findings.nBody);
    if (findings.bAnswer)
        return kPassed;
    pItem->nStatus = findings.nStatus;
    pItem->kind = findings.nStatus == 0 ? kReadRequest : kReadBad;
    return kItem;
}

} // namespace

uint8_t *KovaRequestReaderRoom(KovaRequestReader *pReader, size_t *pRoom)
{
    if (pReader->bBroken)
        Use(pReader, WaitingBytes(pReader));
    MoveToFront(pReader);
    *pRoom = 0;
    if (pReader->nEnd == pReader->nCapacity && !Grow(pReader))
        return nullptr;
    *pRoom = pReader->nCapacity - pReader->nEnd;
    return pReader->pBuffer + pReader->nEnd;
}

void KovaRequestReaderTook(KovaRequestReader *pReader, size_t nCount)
{
    pReader->nEnd += nCount;
}

void KovaRequestReaderNext(KovaRequestReader *pReader, KovaReadItem *pItem)
{
    pItem->kind = kReadMore;
    pItem->bFatal = false;
    pItem->nStatus = 0;
    pItem->nChannel = 0;
    pItem->frame = std::string_view();
    pItem->request.nHeaders = 0;
    if (pReader->bBroken) {
        Use(pReader, WaitingBytes(pReader));
        return;
    }
    Progress progress = kPassed;
    while (progress == kPassed) {
        SkipEmptyLines(pReader);
        // A message whose length is known is not read again for every byte of it.
        if (WaitingBytes(pReader) == 0 || WaitingBytes(pReader) < pReader->nNeeded)
            return;
        if (pReader->pBuffer[pReader->nBegin] != kFrameMark)
            progress = ReadMessage(pReader, pItem);
        else
            progress = ReadFrame(pReader, pItem) ? kItem : kUnfinished;
    }
}

void KovaRequestReaderReturn(KovaRequestReader *pReader, size_t nBegin)
{
    pReader->nBegin = nBegin;
    pReader->nScanned = nBegin;
}

bool KovaRequestReaderBegun(const KovaRequestReader *pReader)
{
    return WaitingBytes(pReader) != 0 && !pReader->bBroken;
}

void KovaRequestReaderRelax(KovaRequestReader *pReader)
{
    if (KovaRequestReaderBegun(pReader))
        return;
    free(pReader->pBuffer);
    pReader->pBuffer = nullptr;
    pReader->nCapacity = 0;
    pReader->nEnd = pReader->nBegin;
    MoveToFront(pReader);
}

void KovaRequestReaderClear(KovaRequestReader *pReader)
{
    free(pReader->pBuffer);
    *pReader = KovaRequestReader();
}

std::string_view KovaRequestHeaderOf(const KovaRequest &request, std::string_view name)
{
    for (uint32_t n = 0; n < request.nHeaders; ++n)
        if (KovaWordIs(request.headers[n].name, name))
            return request.headers[n].value;
    return {};
}
