#include "live/engine/connection.h"

#include "live/engine/connection_steps.h"
#include "live/engine/rtcp_in.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

/// Reads of one event: the others on this loop get their turn.
constexpr int kReadsPerEvent = 4;

/// What the reader takes for a first message.
constexpr size_t kKeptRoom = 2048;

/// What still comes after the last answer is thrown away, up to the peer's end: a socket
/// that is closed with unread bytes takes the answer away from the peer.
void Drain(KovaLiveConnection *pConnection)
{
    uint8_t thrown[512];
    for (int nRead = 0; nRead < kReadsPerEvent; nRead++) {
        const ssize_t nCount =
            recv(pConnection->item.nDescriptor, thrown, sizeof(thrown), MSG_DONTWAIT);
        if (nCount > 0)
            continue;
        if (nCount == 0 || (errno != EAGAIN && errno != EINTR))
            KovaConnectionFail(pConnection);
        return;
    }
}

} // namespace

void KovaConnectionReceive(KovaLiveConnection *pConnection)
{
    if (pConnection->nDrainUntil != 0) {
        Drain(pConnection);
        return;
    }
    for (int nRead = 0; nRead < kReadsPerEvent; nRead++) {
        size_t nRoom = 0;
        uint8_t *pRoom = KovaRequestReaderRoom(&pConnection->reader, &nRoom);
        if (pRoom == nullptr) {
            KovaConnectionFail(pConnection);
            return;
        }
        const ssize_t nCount = recv(pConnection->item.nDescriptor, pRoom, nRoom, MSG_DONTWAIT);
        if (nCount <= 0) {
            if (nCount == 0 || (errno != EAGAIN && errno != EINTR))
                KovaConnectionFail(pConnection);
            break;
        }
        KovaRequestReaderTook(&pConnection->reader, static_cast<size_t>(nCount));
        KovaConnectionServe(pConnection);
        if (pConnection->bEnded || pConnection->hold != kHoldNone || pConnection->bClosing ||
            static_cast<size_t>(nCount) < nRoom)
            break;
    }
    // Who plays keeps the room for small messages: a shortage of memory does not end its reports.
    if (pConnection->pSessions == nullptr || pConnection->reader.nCapacity > kKeptRoom)
        KovaRequestReaderRelax(&pConnection->reader);
}

void KovaConnectionServe(KovaLiveConnection *pConnection)
{
    KovaReadItem item;
    while (!pConnection->bEnded && !pConnection->bClosing && pConnection->hold == kHoldNone) {
        const size_t nBegin = pConnection->reader.nBegin;
        KovaRequestReaderNext(&pConnection->reader, &item);
        if (item.kind == kReadMore)
            break;
        pConnection->nBegunRequest = 0;
        if (item.kind == kReadFrame) {
            KovaRtcpFromFrame(pConnection, item.nChannel, item.frame);
            continue;
        }
        pConnection->nActive = pConnection->pLoop->nNow;
        if (item.kind == kReadRequest) {
            KovaRequestServe(pConnection, item.request);
            if (pConnection->hold == kHoldMove)
                KovaRequestReaderReturn(&pConnection->reader, nBegin);
        } else {
            pConnection->bClosing = item.bFatal;
            KovaRequestRefuse(pConnection, item.request, item.nStatus);
        }
    }
    if (!KovaRequestReaderBegun(&pConnection->reader))
        pConnection->nBegunRequest = 0;
    else if (pConnection->nBegunRequest == 0)
        pConnection->nBegunRequest = pConnection->pLoop->nNow;
}
