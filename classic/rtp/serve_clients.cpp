#include "classic/rtp/serve_clients.h"
#include "classic/rtp/tcp_channel.h"
#include "foundation/byte_order.h"
#include "foundation/clock.h"
#include "foundation/error_text.h"
#include "foundation/list_view.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"
#include "rtp/rtcp.h"
#include "rtp/udp_channel.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

/// Seconds that must have passed, and then some, between two sender reports.
constexpr int32_t kReportInterval = 5;

/// Longest sleep for waiting clients, microseconds: a stop request wakes the
/// thread; this bounds the wait for a state word that somebody wrote without.
constexpr uint32_t kPayStep = 10000;

/// One packet on its way to all clients of a group.
struct ServingPass {
    KovaSendingContext *pContext;
    const KovaRtpPacket *pPacket;
    bool bReleased;    ///< clientMutex was released, so the walk starts over
    uint32_t nWaiting; ///< clients met that wait
};

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

void WriteInterleavedHeader(uint8_t *pHeader, uint16_t nChannel, uint32_t nSize)
{
    pHeader[0] = '$';
    pHeader[1] = static_cast<uint8_t>(nChannel);
    RtspWriteMB(pHeader + 2, nSize, 16);
}

KovaSendOutcome SendFrame(const KovaRtpClient *pClient, const uint8_t *pFrame, uint32_t nSize,
                          KovaFrameProgress *pProgress)
{
    if (pClient->pChannel == nullptr || nSize == 0) {
        errno = pClient->pChannel == nullptr ? EBADF : EMSGSIZE;
        return kSendFailed;
    }
    return KovaTcpChannelSendFrame(pClient->pChannel, pFrame, nSize, pProgress);
}

bool ReportDue(const KovaRtpClient *pClient, int32_t tNow)
{
    return pClient->nLastRtcpTime == 0 ||
           KovaClockSecondsBetween(pClient->nLastRtcpTime, tNow) > kReportInterval;
}

void SendReport(const ServingPass &pass, KovaRtpClient *pClient)
{
    const int32_t tNow = KovaClockSeconds();
    if (!ReportDue(pClient, tNow))
        return;
    const KovaSendingContext *pContext = pass.pContext;
    const uint32_t nPts = pass.pPacket->nPts;
    uint8_t frame[kInterleavedHeaderSize + kRtcpSenderReportSize];
    uint8_t *pReport = frame + kInterleavedHeaderSize;
    KovaRtcpSenderReportWrite(
        pReport, {pContext->packer.nSsrc,
                  KovaRtcpNtpSeconds(nPts, KovaStreamCreationTime(pContext->pStreamer)),
                  KovaRtcpNtpFraction(nPts),
                  pContext->pSender->nLastTimestamp.load(std::memory_order_relaxed),
                  pClient->nPacketCount, pClient->nOctetCount});
    pClient->nLastRtcpTime = tNow;
    KovaFrameProgress progress = {};
    KovaSendOutcome outcome;
    if (pClient->bInterleaved == 0) {
        outcome =
            KovaUdpSend(pClient->nRtcpSocket, pClient->rtcpAddress, pReport, kRtcpSenderReportSize);
    } else {
        WriteInterleavedHeader(frame, pClient->nRtcpChannel, kRtcpSenderReportSize);
        outcome = SendFrame(pClient, frame, sizeof(frame), &progress);
    }
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
bool RefreshSession(KovaRtpSendGroup *pGroup, ServingPass *pPass, KovaRtpClient *pClient)
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

KovaSendOutcome SendOnce(const ServingPass &pass, KovaRtpClient *pClient,
                         KovaFrameProgress *pProgress)
{
    if (pClient->bInterleaved == 0)
        return KovaUdpSend(pClient->nRtpSocket, pClient->rtpAddress, pass.pPacket->pData,
                           pass.pPacket->nSize);
    KovaSendingContext *pContext = pass.pContext;
    WriteInterleavedHeader(pContext->frame, pClient->nRtpChannel, pass.pPacket->nSize);
    return SendFrame(pClient, pContext->frame, pContext->nFrameSize, pProgress);
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

void CountSent(const ServingPass &pass, KovaRtpClient *pClient)
{
    const uint32_t nSize = pass.pPacket->nSize;
    pClient->nMeasureBytes += nSize;
    pClient->nOctetCount += nSize;
    pClient->nPacketCount++;
    const int nSent =
        static_cast<int>(pClient->bInterleaved != 0 ? nSize + kInterleavedHeaderSize : nSize);
    TimeLog(kLogPacket, "%s, Send RTP Packet success size=%d send=%d\n", kSendingThread, nSent,
            nSent);
}

/// Sends the packet, waiting as long as the player's socket is full: its group
/// waits with it, but nobody who needs the group's lock does. The wait ends
/// with a stop request and with the client's removal.
void SendPacketTo(KovaRtpSendGroup *pGroup, ServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    const uint32_t nSerial = pClient->nSerial;
    KovaFrameProgress progress = {};
    for (;;) {
        const KovaSendOutcome outcome = SendOnce(*pPass, pClient, &progress);
        if (outcome == kSendDone)
            return CountSent(*pPass, pClient);
        if (outcome == kSendFailed)
            return HandleSendError(pClient, errno);
        if (!KovaThreadRuns(pGroup->nState))
            return;
        pPass->bReleased = true;
        {
            const KovaMutexUnlock unlock(&pGroup->clientMutex, kRankClients);
            usleep(kPollMicroseconds);
        }
        if (!IsMember(pGroup, pClient, nSerial))
            return;
    }
}

/// A client whose connection is lost leaves, and its session with it.
void RemoveGone(KovaRtpSendGroup *pGroup, ServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    char szSessionId[kSessionIdSize];
    KovaTextCopy(szSessionId, sizeof(szSessionId), pClient->szSessionId);
    KovaListTake(pGroup->pClientList, nullptr, pClient);
    KovaSessionTally *pTally = pClient->pTally;
    pClient->pTally = nullptr;
    KovaRtpClientDestroy(pClient);
    pPass->bReleased = true;
    const KovaMutexUnlock unlock(&pGroup->clientMutex, kRankClients);
    KovaStreamPlayerLost(pPass->pContext->pStreamer, pTally, szSessionId);
}

void ServeClient(KovaRtpSendGroup *pGroup, ServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    const KovaRtpPacket *pPacket = pPass->pPacket;
    const KovaSendingContext *pContext = pPass->pContext;
    if (pClient->bKeyFrameFound == 0 &&
        (pPacket->nFrameType == kFrameKey || pPacket->nFrameType == kFrameAudio)) {
        TimeLog(kLogThread, "%s, Find Key Frame, ID: %d, Now PTS: %u\n", kSendingThread,
                static_cast<int>(pContext->packer.nPayloadType), pPacket->nPts);
        pClient->bKeyFrameFound = 1;
        pClient->nMeasureStartTime = pContext->nNow;
    }
    if (pClient->nState == kClientPlaying && pClient->bKeyFrameFound != 0) {
        SendReport(*pPass, pClient);
        if (pClient->bInterleaved == 0 && KovaUdpTakeOne(pClient->nRtcpSocket) &&
            !RefreshSession(pGroup, pPass, pClient))
            return;
        SendPacketTo(pGroup, pPass, pClient);
        return;
    }
    printf("Client Waiting !!!\n");
    pPass->nWaiting++;
    if (pClient->nState == kClientGone)
        RemoveGone(pGroup, pPass, pClient);
}

void PrepareFrame(KovaSendingContext *pContext, const KovaRtpPacket *pPacket)
{
    pContext->nFrameSize = 0;
    if (pPacket->nSize > kFrameBufferSize - kInterleavedHeaderSize || pPacket->pData == nullptr)
        return;
    memcpy(pContext->frame + kInterleavedHeaderSize, pPacket->pData, pPacket->nSize);
    pContext->nFrameSize = kInterleavedHeaderSize + pPacket->nSize;
}

/// Each client that waits costs its group a millisecond per packet: the price of a
/// set-up track that never plays. Nobody else pays it, so no lock is held. Nor does
/// a stop: a crowd of them would keep what is queued from going out for minutes.
void PayForWaiting(KovaRtpSendGroup *pGroup, uint32_t nClients)
{
    if (nClients == 0)
        return;
    uint64_t nNow = KovaClockMonotonic();
    const uint64_t nEnd = nNow + uint64_t{nClients} * kPollMicroseconds;
    while (nNow < nEnd && KovaThreadRuns(pGroup->nState)) {
        const uint64_t nLeft = nEnd - nNow;
        KovaEventWait(&pGroup->work,
                      (nLeft < kPayStep ? static_cast<uint32_t>(nLeft) + 999 : kPayStep) / 1000);
        nNow = KovaClockMonotonic();
    }
}

} // namespace

void KovaServeClients(KovaSendingContext *pContext, const KovaRtpPacket *pPacket)
{
    KovaRtpSendGroup *pGroup = pContext->pGroup;
    PrepareFrame(pContext, pPacket);
    KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
    ServingPass pass = {pContext, pPacket, false, 0};
    const uint32_t nPass = ++pGroup->nPass;
    KovaList *pNode = pGroup->pClientList;
    while (pNode != nullptr) {
        KovaRtpClient *pClient = static_cast<KovaRtpClient *>(pNode->data);
        pNode = pNode->next;
        if (pClient == nullptr || pClient->nPass == nPass)
            continue;
        pClient->nPass = nPass;
        pass.bReleased = false;
        ServeClient(pGroup, &pass, pClient);
        if (pass.bReleased)
            pNode = pGroup->pClientList;
    }
    lock.Unlock();
    PayForWaiting(pGroup, pass.nWaiting);
    if (pGroup->nClientWaiters != 0)
        usleep(kPollMicroseconds);
}
