#include "classic/rtp/client_sending.h"

#include "classic/rtp/tcp_channel.h"
#include "foundation/clock.h"
#include "foundation/error_text.h"
#include "foundation/list_view.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"
#include "rtp/rtcp.h"
#include "rtp/rtp_header.h"
#include "rtp/udp_batch.h"
#include "rtp/udp_channel.h"

#include <unistd.h>

#include <cerrno>

namespace {

/// Seconds that must have passed, and then some, between two sender reports.
constexpr int32_t kReportInterval = 5;

/// Whether the client is still a member; by its number, because another one may
/// live at its address by now.
bool IsMember(const KovaRtpSendGroup *pGroup, const KovaRtpClient *pClient, uint32_t nSerial)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    for (const KovaRtpClient *pMember : KovaListOf<KovaRtpClient>(pGroup->pClientList)) {
        if (pMember == pClient)
            return pMember->nSerial == nSerial;
    }
    return false;
}

bool ReportDue(const KovaRtpClient *pClient, int32_t tNow)
{
    return pClient->nLastRtcpTime == 0 ||
           KovaClockSecondsBetween(pClient->nLastRtcpTime, tNow) > kReportInterval;
}

/// The sender's last timestamp is the one of the batch's packets: they come from
/// one push.
uint32_t TimestampOf(const KovaServingPass &pass, const KovaRtpPacket *pPacket)
{
    if (pPacket->pData != nullptr && pPacket->nSize >= kRtpHeaderSize)
        return KovaRtpHeaderTimestamp(pPacket->pData);
    return pass.pContext->pSender->nLastTimestamp.load(std::memory_order_relaxed);
}

KovaSendOutcome SendReportFrame(const KovaRtpClient *pClient, uint8_t *pFrame,
                                KovaFrameProgress *pProgress)
{
    if (pClient->pChannel == nullptr) {
        errno = EBADF;
        return kSendFailed;
    }
    KovaInterleavedHeaderWrite(pFrame, static_cast<uint8_t>(pClient->nRtcpChannel),
                               kRtcpSenderReportSize);
    return KovaTcpChannelSendFrame(pClient->pChannel, pFrame,
                                   kInterleavedHeaderSize + kRtcpSenderReportSize, pProgress);
}

/// Sends the report that is due with the packet, if one is.
void SendReport(const KovaServingPass &pass, KovaRtpClient *pClient, const KovaRtpPacket *pPacket)
{
    const int32_t tNow = KovaClockSeconds();
    if (!ReportDue(pClient, tNow))
        return;
    const KovaSendingContext *pContext = pass.pContext;
    const uint32_t nPts = pPacket->nPts;
    uint8_t frame[kInterleavedHeaderSize + kRtcpSenderReportSize];
    uint8_t *pReport = frame + kInterleavedHeaderSize;
    KovaRtcpSenderReportWrite(
        pReport, {pContext->packer.nSsrc,
                  KovaRtcpNtpSeconds(nPts, KovaStreamCreationTime(pContext->pStreamer)),
                  KovaRtcpNtpFraction(nPts), TimestampOf(pass, pPacket), pClient->nPacketCount,
                  pClient->nOctetCount});
    pClient->nLastRtcpTime = tNow;
    KovaFrameProgress progress = {};
    const KovaSendOutcome outcome = pClient->bInterleaved == 0
                                        ? KovaUdpSend(pClient->nRtcpSocket, pClient->rtcpAddress,
                                                      pReport, kRtcpSenderReportSize)
                                        : SendReportFrame(pClient, frame, &progress);
    // A report that was begun is finished by whoever sends next.
    if (outcome == kSendDone || progress.bBegun)
        return;
    const int nError = errno;
    char szError[kErrorTextSize];
    TimeLog(kLogFailure, "%s, Send RTCP Packet fail, Error: %d(%s)\n", kSendingThread, nError,
            KovaErrorText(nError, szError));
}

/// Runs a call up to the stream without the lock. Returns whether the client is
/// still a member afterwards.
bool RefreshSession(KovaRtpSendGroup *pGroup, KovaServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    char szSessionId[kSessionIdSize];
    KovaTextCopy(szSessionId, sizeof(szSessionId), pClient->szSessionId);
    char szShown[kSessionIdSize];
    TimeLog(kLogThread, "%s, UpdateSession: %s\n", kSendingThread,
            KovaTextPrintable(szShown, sizeof(szShown), szSessionId));
    const uint32_t nSerial = pClient->nSerial;
    pPass->bReleased = true;
    {
        const KovaMutexUnlock unlock(&pGroup->clientMutex, kRankClients);
        KovaStreamRefreshSession(pPass->pContext->pStreamer, szSessionId);
    }
    return IsMember(pGroup, pClient, nSerial);
}

KovaSendOutcome SendDatagrams(const KovaPacketBatch &batch, KovaRtpClient *pClient, uint32_t nFirst,
                              uint32_t nCount, uint32_t *pSent)
{
    KovaUdpDelivery delivery = {};
    delivery.nSocket = pClient->nRtpSocket;
    delivery.pAddress = &pClient->rtpAddress;
    delivery.pRoute = &pClient->route;
    delivery.pPackets = batch.datagrams + nFirst;
    delivery.nPackets = nCount;
    KovaUdpBatchSend(&delivery, 1);
    *pSent = delivery.nSent;
    errno = delivery.nError;
    return delivery.outcome;
}

KovaSendOutcome SendFrames(KovaPacketBatch *pBatch, const KovaRtpClient *pClient, uint32_t nFirst,
                           uint32_t nCount, uint32_t *pSent, KovaFrameProgress *pProgress)
{
    if (pClient->pChannel == nullptr || !KovaFitsInterleaved(pBatch->packets[nFirst])) {
        errno = pClient->pChannel == nullptr ? EBADF : EMSGSIZE;
        return kSendFailed;
    }
    const KovaInterleavedFrame *pFrames =
        KovaPacketBatchFrames(pBatch, static_cast<uint8_t>(pClient->nRtpChannel));
    return KovaTcpChannelSendFrames(pClient->pChannel, pFrames + nFirst, nCount, pSent, pProgress);
}

/// Another error than a full socket. UDP packets are simply lost; a connection
/// that is gone for good is closed, and the client leaves with the next packet.
void HandleSendError(KovaRtpClient *pClient, int nError)
{
    if (pClient->bInterleaved == 0)
        return;
    char szError[kErrorTextSize];
    TimeLog(kLogFailure, "%s, Send RTP Packet fail, Error: %d(%s)\n", kSendingThread, nError,
            KovaErrorText(nError, szError));
    if (nError != ECONNRESET && nError != EBADF)
        return;
    if (pClient->pChannel != nullptr)
        KovaTcpChannelClose(pClient->pChannel);
    pClient->nState = kClientGone;
}

void CountSent(const iovec *pPackets, uint32_t nCount, KovaRtpClient *pClient)
{
    const uint32_t nFraming = pClient->bInterleaved != 0 ? kInterleavedHeaderSize : 0;
    for (uint32_t n = 0; n < nCount; n++) {
        const uint32_t nSize = static_cast<uint32_t>(pPackets[n].iov_len);
        pClient->nMeasureBytes += nSize;
        pClient->nOctetCount += nSize;
        pClient->nPacketCount++;
        const int nSent = static_cast<int>(nSize + nFraming);
        TimeLog(kLogPacket, "%s, Send RTP Packet success size=%d send=%d\n", kSendingThread, nSent,
                nSent);
    }
}

} // namespace

void KovaRestBetweenClients(KovaRtpSendGroup *pGroup, KovaServingPass *pPass)
{
    pPass->bReleased = true;
    const KovaMutexUnlock unlock(&pGroup->clientMutex, kRankClients);
    usleep(kPollMicroseconds);
}

uint32_t KovaSendPackets(KovaRtpSendGroup *pGroup, KovaServingPass *pPass, KovaRtpClient *pClient,
                         uint32_t nFirst)
{
    KovaPacketBatch *pBatch = pPass->pBatch;
    uint32_t nCount = pBatch->nCount - nFirst;
    SendReport(*pPass, pClient, pBatch->packets[nFirst]);
    if (pClient->bInterleaved == 0 && pClient->bRtcpWaits) {
        pClient->bRtcpWaits = KovaUdpTakeOne(pClient->nRtcpSocket);
        if (pClient->bRtcpWaits) {
            nCount = 1; // the next packet looks again
            if (!RefreshSession(pGroup, pPass, pClient))
                return pBatch->nCount;
        }
    }
    const uint32_t nSerial = pClient->nSerial;
    KovaFrameProgress progress = {};
    for (;;) {
        uint32_t nSent = 0;
        const KovaSendOutcome outcome =
            pClient->bInterleaved == 0
                ? SendDatagrams(*pBatch, pClient, nFirst, nCount, &nSent)
                : SendFrames(pBatch, pClient, nFirst, nCount, &nSent, &progress);
        const int nError = errno;
        CountSent(pBatch->datagrams + nFirst, nSent, pClient);
        nFirst += nSent;
        if (outcome == kSendDone)
            return nFirst;
        if (outcome == kSendFailed)
            HandleSendError(pClient, nError);
        if (outcome == kSendFailed || !KovaThreadRuns(pGroup->nState))
            return nFirst + 1;
        KovaRestBetweenClients(pGroup, pPass);
        if (!IsMember(pGroup, pClient, nSerial))
            return pBatch->nCount;
        nCount = 1; // what is due with the next packet may be another matter by now
    }
}
