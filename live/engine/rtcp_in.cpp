#include "live/engine/rtcp_in.h"

#include "foundation/byte_order.h"
#include "foundation/divide.h"
#include "live/engine/notices.h"
#include "rtp/rtcp.h"

namespace {

constexpr uint8_t kRtcpPayloadFeedback = 206; ///< RFC 4585, 6.3
constexpr uint8_t kFeedbackPictureLoss = 1;
constexpr uint8_t kFeedbackFullIntra = 4; ///< RFC 5104, 4.3.1
constexpr uint32_t kReportBlockSize = 24;
constexpr uint8_t kLossThatHurts = 8; ///< of 256: 3 % of the packets
constexpr uint64_t kLossKeyInterval = 2000000;
constexpr uint64_t kAskedKeyInterval = 500000;

uint32_t Read32(const uint8_t *pBytes)
{
    uint32_t nValue = 0;
    RtspReadMB(pBytes, &nValue, 32);
    return nValue;
}

uint32_t PacketSize(const uint8_t *pPacket)
{
    return (static_cast<uint32_t>(pPacket[2]) << 8 | pPacket[3]) * 4 + 4;
}

/// Whether a datagram is a compound packet: version 2 throughout, a report first, lengths
/// that add up (RFC 3550, A.2).
bool IsCompound(const uint8_t *pPacket, size_t nSize)
{
    if (nSize < 8 || (pPacket[1] != kRtcpSenderReport && pPacket[1] != kRtcpReceiverReport))
        return false;
    size_t nAt = 0;
    while (nAt + 4 <= nSize) {
        if (pPacket[nAt] >> 6 != 2)
            return false;
        nAt += PacketSize(pPacket + nAt);
    }
    return nAt == nSize;
}

void AskForKey(KovaLiveSession *pSession, const KovaLiveSetup *pSetup, uint64_t nEvery)
{
    KovaLiveLoop *pLoop = pSession->pLoop;
    KovaLiveTrack *pTrack = pSession->pStream->pTracks[pSetup->nTrack];
    if (KovaTrackMediaCodec(pTrack->pMedia) == KOVA_LIVE_H264 &&
        KovaStreamWantsKey(pSession->pStream, pSetup->nTrack, pLoop->nNow, nEvery))
        KovaNoticeStream(pLoop, KOVA_LIVE_EVENT_KEY_FRAME, pSession->pStream, pTrack);
}

/// The middle 32 bits of an NTP time are what a report echoes (RFC 3550, 6.4.1).
void NoteRoundTrip(KovaLiveSession *pSession, KovaLiveSetup *pSetup, uint32_t nEcho,
                   uint32_t nDelay)
{
    int64_t nPts = 0;
    int64_t nWall = 0;
    if (nEcho == 0 ||
        !KovaStreamClock(pSession->pStream, pSetup->nTrack, pSession->pLoop->nNow, &nPts, &nWall))
        return;
    uint32_t nMicroseconds = 0;
    const uint64_t nSeconds = KovaDivide(static_cast<uint64_t>(nWall), 1000000, &nMicroseconds);
    // 65536 / 1000000 is 1024 / 15625, for which 32 bits do.
    const uint32_t nNow =
        ((static_cast<uint32_t>(nSeconds) + kNtpUnixOffset) << 16) + nMicroseconds * 1024 / 15625;
    const uint32_t nTrip = nNow - nEcho - nDelay;
    // A clock that was set, or a report that invents: neither is a trip of a minute.
    if (nTrip < 60U << 16)
        pSetup->nRoundTrip = nTrip / 1024 * 15625 + nTrip % 1024 * 15625 / 1024;
}

void TakeBlocks(KovaLiveSession *pSession, KovaLiveSetup *pSetup, const uint8_t *pBlocks,
                uint32_t nSize, uint32_t nCount)
{
    const uint32_t nSsrc = KovaTrackMediaSsrc(pSession->pStream->pTracks[pSetup->nTrack]->pMedia);
    for (uint32_t nAt = 0; nCount-- != 0 && nAt + kReportBlockSize <= nSize;
         nAt += kReportBlockSize) {
        const uint8_t *pBlock = pBlocks + nAt;
        if (Read32(pBlock) != nSsrc)
            continue;
        pSetup->nLoss = pBlock[4];
        pSetup->nJitter = Read32(pBlock + 12);
        NoteRoundTrip(pSession, pSetup, Read32(pBlock + 16), Read32(pBlock + 20));
        if (pSetup->nLoss >= kLossThatHurts)
            AskForKey(pSession, pSetup, kLossKeyInterval);
    }
}

struct Sender {
    KovaLiveSession *pSession;
    KovaLiveSetup *pSetup;
    bool bSure; ///< by its port, or in its connection
};

/// One packet of a compound.
void TakePacket(const Sender &sender, const uint8_t *pPacket, uint32_t nSize)
{
    KovaLiveSession *pSession = sender.pSession;
    KovaLiveSetup *pSetup = sender.pSetup;
    const uint8_t nCount = pPacket[0] & 0x1F;
    switch (pPacket[1]) {
    case kRtcpSenderReport:
        if (nSize > kRtcpSenderReportSize)
            TakeBlocks(pSession, pSetup, pPacket + kRtcpSenderReportSize,
                       nSize - kRtcpSenderReportSize, nCount);
        break;
    case kRtcpReceiverReport:
        if (nSize > 8)
            TakeBlocks(pSession, pSetup, pPacket + 8, nSize - 8, nCount);
        break;
    case kRtcpBye:
        // Others behind the same address must not end a player.
        pSetup->bBye = pSetup->bBye || sender.bSure;
        break;
    case kRtcpPayloadFeedback:
        if (nCount == kFeedbackPictureLoss || nCount == kFeedbackFullIntra)
            AskForKey(pSession, pSetup, kAskedKeyInterval);
        break;
    default:
        break;
    }
}

void Take(const Sender &sender, const uint8_t *pPacket, size_t nSize)
{
    KovaLiveSession *pSession = sender.pSession;
    KovaSessionHeard(pSession);
    for (size_t nAt = 0; nAt + 4 <= nSize;) {
        const uint32_t nOne = PacketSize(pPacket + nAt);
        TakePacket(sender, pPacket + nAt, nOne);
        nAt += nOne;
    }
    for (const KovaLiveSetup *pOne = pSession->pSetups; pOne != nullptr; pOne = pOne->pNext) {
        if (!pOne->bBye)
            return;
    }
    KovaSessionEnd(pSession, KOVA_LIVE_WENT_BYE);
}

/// Who sent it: the track whose port it came from; else the first track of the only
/// session of that address. Of several with that port the one that this reporter has
/// reported for: another player may name the port too, or a player may have begun again.
Sender SenderOf(const KovaLiveLoop *pLoop, const KovaUdpPorts *pPorts, const sockaddr_in &from,
                uint32_t nReporter) KOVA_REQUIRES(pLoop->mutex)
{
    Sender other = {nullptr, nullptr, false};
    Sender byPort = other;
    bool bSeveral = false;
    for (KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;
         pSession = pSession->pNext) {
        if (pSession->pPorts != pPorts || pSession->nPeer != from.sin_addr.s_addr)
            continue;
        for (KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext) {
            if (pSetup->rtcpAddress.sin_port != from.sin_port)
                continue;
            if (pSetup->nReporter == nReporter)
                return {pSession, pSetup, true};
            // The newest is first; it, if it has none yet.
            if (byPort.pSetup == nullptr ||
                (byPort.pSetup->nReporter != 0 && pSetup->nReporter == 0))
                byPort = {pSession, pSetup, true};
        }
        bSeveral = bSeveral || other.pSession != nullptr;
        other = {pSession, pSession->pSetups, false};
    }
    if (byPort.pSetup != nullptr) {
        byPort.pSetup->nReporter = nReporter;
        return byPort;
    }
    return bSeveral ? Sender{nullptr, nullptr, false} : other;
}

} // namespace

void KovaRtcpFromUdp(KovaLiveLoop *pLoop, KovaUdpPorts *pPorts, const sockaddr_in &from,
                     const uint8_t *pPacket, size_t nSize)
{
    KovaMutexAssertHeld(&pLoop->mutex);
    if (!IsCompound(pPacket, nSize))
        return;
    const Sender sender = SenderOf(pLoop, pPorts, from, Read32(pPacket + 4));
    if (sender.pSetup != nullptr)
        Take(sender, pPacket, nSize);
}

void KovaRtcpFromFrame(KovaLiveConnection *pConnection, uint8_t nChannel, std::string_view frame)
{
    const auto *pPacket = reinterpret_cast<const uint8_t *>(frame.data());
    for (KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn) {
        for (KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext) {
            if (!pSetup->bInterleaved || pSetup->nRtcpChannel != nChannel)
                continue;
            if (IsCompound(pPacket, frame.size()))
                Take({pSession, pSetup, true}, pPacket, frame.size());
            return;
        }
    }
}
