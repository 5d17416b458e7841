#include "classic/rtp/stream_calls.h"

#include "classic/streamer/server_calls.h"
#include "classic/streamer/streamer.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"

bool KovaStreamFindPacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                          KovaPackerIdentity *pIdentity)
{
    const KovaMutexLock lock(&pStreamer->packerMutex, kRankPackers);
    const KovaRtpPacker *pPacker =
        KovaListFind(pStreamer->pPackerList, &KovaRtpPacker::nPayloadType, nPayloadId);
    if (pPacker == nullptr)
        return false;
    *pIdentity = {pPacker->nPayloadType, pPacker->nSsrc};
    return true;
}

bool KovaStreamFirstSend(KovaRtspStreamer *pStreamer, uint64_t nTime, uint32_t nPts,
                         KovaFirstSend *pRecord)
{
    const KovaMutexLock lock(&pStreamer->firstSendMutex, kRankLeaf);
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
