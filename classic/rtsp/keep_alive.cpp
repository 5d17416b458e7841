#include "classic/rtsp/keep_alive.h"

#include "classic/rtsp/server_calls.h"
#include "kova_rtsp_server.h"
#include "rtp/rtcp.h"

namespace {

constexpr int32_t kSmallestChunk = 4;
constexpr int32_t kSmallestFrame = 16; // '$', channel, length and 12 bytes of report
constexpr int32_t kFrameHeader = 4;
constexpr int32_t kNoKeepAlive = 0;

bool IsReportWithOneBlock(const uint8_t *pRtcp)
{
    return pRtcp[0] == kRtcpOneBlock && pRtcp[1] == kRtcpReceiverReport;
}

bool IsBareRtcp(const uint8_t *pBytes)
{
    return (pBytes[0] == kRtcpNoBlock || pBytes[0] == kRtcpOneBlock) &&
           pBytes[1] >= kRtcpSenderReport && pBytes[1] <= kRtcpSourceDescription;
}

int32_t Refresh(KovaRtspServerHandler *pHandler)
{
    char szSessionId[kSessionIdSize];
    KovaHandlerGetSessionId(pHandler, szSessionId);
    if (szSessionId[0] == '\0')
        return kNoKeepAlive;
    return KovaRtspServerUpdateSession(pHandler->pServer, szSessionId) == KOVA_OK ? kRtcpKeptAlive
                                                                                  : kRtcpTaken;
}

} // namespace

int32_t HandleRtspTcpKeepAlive(KovaRtspServerHandler *pHandler, const uint8_t *pBytes,
                               int32_t nCount)
{
    if (pHandler == nullptr || pHandler->pServer == nullptr)
        return KOVA_ERROR_NULL;
    if (pBytes == nullptr || nCount < kSmallestChunk)
        return kNoKeepAlive;
    if (pBytes[0] == '$') {
        if (nCount < kSmallestFrame || !IsReportWithOneBlock(pBytes + kFrameHeader))
            return kRtcpTaken;
        return Refresh(pHandler);
    }
    if (!IsBareRtcp(pBytes))
        return kNoKeepAlive;
    return IsReportWithOneBlock(pBytes) ? Refresh(pHandler) : kRtcpTaken;
}
