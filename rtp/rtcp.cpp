#include "rtp/rtcp.h"

#include "foundation/byte_order.h"

void KovaRtcpSenderReportWrite(uint8_t *pBuffer, const KovaRtcpSenderReport &report)
{
    pBuffer[0] = kRtcpNoBlock;
    pBuffer[1] = kRtcpSenderReport;
    RtspWriteMB(pBuffer + 2, kRtcpSenderReportSize / 4 - 1, 16);
    RtspWriteMB(pBuffer + 4, report.nSsrc, 32);
    RtspWriteMB(pBuffer + 8, report.nNtpSeconds, 32);
    RtspWriteMB(pBuffer + 12, report.nNtpFraction, 32);
    RtspWriteMB(pBuffer + 16, report.nRtpTimestamp, 32);
    RtspWriteMB(pBuffer + 20, report.nPacketCount, 32);
    RtspWriteMB(pBuffer + 24, report.nOctetCount, 32);
}

uint32_t KovaRtcpNtpSeconds(uint32_t nPts, uint32_t nUnixSeconds)
{
    return nPts / 1000 + nUnixSeconds + kNtpUnixOffset;
}

uint32_t KovaRtcpNtpFraction(uint32_t nPts)
{
    // Whole numbers instead of milliseconds * 4294967.296: the same result for
    // each of the thousand values, and the boards have no floating-point unit.
    const uint32_t nMilliseconds = nPts % 1000;
    return nMilliseconds * 4294967U + nMilliseconds * 296U / 1000;
}
