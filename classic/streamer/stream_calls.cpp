#include "classic/rtp/stream_calls.h"

#include "classic/streamer/server_calls.h"
#include "classic/streamer/streamer.h"
#include "foundation/scope_guard.h"

bool KovaStreamFindPacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                          KovaPackerIdentity *pIdentity)
{
    const KovaMutexLock lock(&pStreamer->packerMutex);
    for (KovaList *pNode = pStreamer->pPackerList; pNode != nullptr; pNode = pNode->next) {
        const KovaRtpPacker *pPacker = static_cast<KovaRtpPacker *>(pNode->data);
        if (pPacker != nullptr && pPacker->nPayloadType == nPayloadId) {
            *pIdentity = {pPacker->nPayloadType, pPacker->nSsrc};
            return true;
        }
    }
    return false;
}

bool KovaStreamFirstSend(KovaRtspStreamer *pStreamer, uint64_t nTime, uint32_t nPts,
                         KovaFirstSend *pRecord)
{
    const KovaMutexLock lock(&pStreamer->firstSendMutex);
    const bool bMissing = pStreamer->nFirstSendTime == 0 || pStreamer->nFirstRtpTimestamp == 0;
    if (bMissing) {
        pStreamer->nFirstSendTime = nTime;
        pStreamer->nFirstRtpTimestamp = nPts;
    }
    *pRecord = {pStreamer->nFirstRtpTimestamp, pStreamer->nFirstSendTime};
    return bMissing;
}

uint32_t KovaStreamCreationTime(KovaRtspStreamer *pStreamer)
{
    return pStreamer->tCreated;
}

void KovaStreamRefreshSession(KovaRtspStreamer *pStreamer, const char *szSessionId)
{
    KovaRtspStreamerUpdateSession(pStreamer->pServer, szSessionId);
}

void KovaStreamEndSession(KovaRtspStreamer *pStreamer, const char *szSessionId)
{
    KovaServerEndSession(pStreamer->pServer, szSessionId, true);
}

void KovaStreamLowerClientCount(KovaRtspStreamer *pStreamer)
{
    pStreamer->nClientCount--;
}
