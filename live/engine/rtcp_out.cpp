#include "live/engine/rtcp_out.h"

#include "foundation/byte_order.h"
#include "foundation/divide.h"
#include "live/engine/connection.h"
#include "live/engine/udp_ports.h"
#include "rtp/interleaved_batch.h"
#include "rtp/rtcp.h"

#include <sys/socket.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr uint64_t kReportInterval = 5000000;
constexpr uint64_t kFirstReports = 1000000; ///< for those who just began: sound and picture align
constexpr uint8_t kSdesCname = 1;
constexpr uint32_t kCnameSize = 13; ///< "xxxxxxxx@kova"
constexpr uint32_t kSdesSize = 8 + 2 + kCnameSize + 1;
constexpr uint32_t kByeSize = 8;
constexpr uint32_t kMostSize =
    kInterleavedHeaderSize + kRtcpSenderReportSize + kSdesSize + kByeSize;
static_assert(kSdesSize % 4 == 0, "a chunk ends on a word, with at least one zero byte");

/// One name for all tracks of a stream: players pair them by it.
uint32_t NameOf(const KovaLiveStream *pStream)
{
    return KovaTrackMediaSsrc(pStream->pTracks[0]->pMedia);
}

void WriteHead(uint8_t *pPacket, uint8_t nCount, uint8_t nType, uint32_t nSize, uint32_t nSsrc)
{
    pPacket[0] = static_cast<uint8_t>(kRtcpNoBlock | nCount);
    pPacket[1] = nType;
    RtspWriteMB(pPacket + 2, nSize / 4 - 1, 16);
    RtspWriteMB(pPacket + 4, nSsrc, 32);
}

/// Microseconds after which a track's clock, and that of pictures (90 kHz), have made a whole
/// number of steps: players compare the reports of the one with those of the other.
uint32_t WholeSteps(uint32_t nClockRate)
{
    constexpr uint32_t kSecond = 1000000;
    uint32_t nDivisor = kSecond;
    while (nClockRate != 0) {
        const uint32_t nRest = nDivisor % nClockRate;
        nDivisor = nClockRate;
        nClockRate = nRest;
    }
    constexpr uint32_t kPictureSteps = 100;
    const uint32_t nOne = kSecond / nDivisor;
    uint32_t nSteps = nOne;
    while (nSteps % kPictureSteps != 0)
        nSteps += nOne;
    return nSteps;
}

bool WriteReport(uint8_t *pReport, const KovaLiveSession *pSession, const KovaLiveSetup *pSetup)
{
    const KovaTrackMedia *pMedia = pSession->pStream->pTracks[pSetup->nTrack]->pMedia;
    int64_t nPts = 0;
    int64_t nWall = 0;
    if (!KovaStreamClock(pSession->pStream, pSetup->nTrack, pSession->pLoop->nNow, &nPts, &nWall))
        return false;
    // A moment that both clocks tell exactly, at most 40 ms ago: rounded, the times that
    // players work out of one report and of the next would be a step apart.
    uint32_t nRest = 0;
    KovaDivideDown(nPts, WholeSteps(KovaTrackMediaClockRate(pMedia)), &nRest);
    nPts -= nRest;
    nWall -= nRest;
    uint32_t nMicroseconds = 0;
    const int64_t nSeconds = KovaDivideDown(nWall, 1000000, &nMicroseconds);
    const uint64_t nFraction = KovaDivide(uint64_t{nMicroseconds} << 32, 1000000);
    KovaRtcpSenderReportWrite(
        pReport, {KovaTrackMediaSsrc(pMedia), static_cast<uint32_t>(nSeconds) + kNtpUnixOffset,
                  static_cast<uint32_t>(nFraction), KovaTrackMediaTimestamp(pMedia, nPts),
                  pSetup->nPackets, pSetup->nOctets});
    return true;
}

void WriteDescription(uint8_t *pPacket, const KovaLiveSession *pSession, uint32_t nSsrc)
{
    char szName[kCnameSize + 1];
    snprintf(szName, sizeof(szName), "%08x@kova", NameOf(pSession->pStream));
    WriteHead(pPacket, 1, kRtcpSourceDescription, kSdesSize, nSsrc);
    pPacket[8] = kSdesCname;
    pPacket[9] = kCnameSize;
    memcpy(pPacket + 10, szName, kCnameSize);
    pPacket[10 + kCnameSize] = 0;
}

void Send(KovaLiveSession *pSession, const KovaLiveSetup *pSetup, uint8_t *pFrame, uint32_t nSize)
{
    const uint8_t *pPacket = pFrame + kInterleavedHeaderSize;
    if (!pSetup->bInterleaved) {
        sendto(pSession->pPorts->rtcpItem.nDescriptor, pPacket, nSize, MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr *>(&pSetup->rtcpAddress),
               sizeof(pSetup->rtcpAddress));
        return;
    }
    if (pSession->pConnection->bClosing)
        return;
    KovaInterleavedHeaderWrite(pFrame, pSetup->nRtcpChannel, nSize);
    KovaConnectionSend(pSession->pConnection, pFrame, kInterleavedHeaderSize + nSize);
}

} // namespace

void KovaRtcpSendReport(KovaLiveSession *pSession, KovaLiveSetup *pSetup)
{
    uint8_t frame[kMostSize];
    uint8_t *pPacket = frame + kInterleavedHeaderSize;
    const uint64_t nNow = pSession->pLoop->nNow;
    // A report that finds the connection full would only make it fuller. The first one comes
    // in any case: without it a player cannot bring its tracks together.
    const KovaLiveConnection *pConnection = pSession->pConnection;
    const bool bFull = pSetup->bInterleaved && pSetup->nNextReport != 0 &&
                       (pConnection->pBegun != nullptr || pConnection->pending.pBytes != nullptr);
    if (!bFull && WriteReport(pPacket, pSession, pSetup)) {
        const uint32_t nSsrc =
            KovaTrackMediaSsrc(pSession->pStream->pTracks[pSetup->nTrack]->pMedia);
        WriteDescription(pPacket + kRtcpSenderReportSize, pSession, nSsrc);
        Send(pSession, pSetup, frame, kRtcpSenderReportSize + kSdesSize);
    }
    pSetup->nNextReport = nNow + (pSetup->nNextReport == 0 ? kFirstReports : kReportInterval);
}

void KovaRtcpSendBye(KovaLiveSession *pSession, const KovaLiveSetup *pSetup)
{
    uint8_t frame[kMostSize];
    uint8_t *pPacket = frame + kInterleavedHeaderSize;
    const bool bReachable = !pSetup->bInterleaved ||
                            (pSession->pConnection != nullptr && !pSession->pConnection->bEnded);
    if (pSetup->nPackets == 0 || !bReachable || !WriteReport(pPacket, pSession, pSetup))
        return;
    const uint32_t nSsrc = KovaTrackMediaSsrc(pSession->pStream->pTracks[pSetup->nTrack]->pMedia);
    WriteDescription(pPacket + kRtcpSenderReportSize, pSession, nSsrc);
    WriteHead(pPacket + kRtcpSenderReportSize + kSdesSize, 1, kRtcpBye, kByeSize, nSsrc);
    Send(pSession, pSetup, frame, kRtcpSenderReportSize + kSdesSize + kByeSize);
}
