#include "classic/server/server.h"
#include "classic/server/stream_registry.h"
#include "kova_rtsp_server.h"

KovaRtspStreamer *KovaRtspServerAddUri(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return nullptr;
    KovaRtspStreamer *pStreamer = KovaRtspStreamerCreate(pServer, szUri);
    if (pStreamer == nullptr)
        return nullptr;
    if (KovaRtspServerAddStreamer(pServer, pStreamer) == KOVA_OK)
        return pStreamer;
    KovaRtspStreamerDestroy(pStreamer);
    return nullptr;
}

int32_t KovaRtspServerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                     uint32_t *pPayloadId, const void *pDescription)
{
    return KovaRtspStreamerAddPayloadType(pStreamer, nMediaType, pPayloadId, pDescription);
}

int32_t KovaRtspServerRemovePayloadType(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    return KovaRtspStreamerRemovePayloadType(pStreamer, nPayloadId);
}

int32_t KovaRtspServerGetStatus(KovaRtspStreamer *pStreamer, KovaRtspStatus *pStatus)
{
    if (pStreamer == nullptr || pStatus == nullptr)
        return KOVA_ERROR_NULL;
    uint64_t nThroughput = 0;
    switch (pStatus->nType) {
    case KOVA_STATUS_CLIENT_COUNT:
        return KovaRtspStreamerGetClientCount(pStreamer, &pStatus->value.nClientCount);
    case KOVA_STATUS_BITRATE:
        KovaRtspStreamerGetAveThroughput(pStreamer, &nThroughput);
        pStatus->value.nBitrateWord[0] = static_cast<uint32_t>(nThroughput);
        pStatus->value.nBitrateWord[1] = static_cast<uint32_t>(nThroughput >> 32);
        return KOVA_OK;
    case KOVA_STATUS_STREAM:
        return KovaRtspStreamerGetServerStatus(pStreamer, &pStatus->value.nStreamStatus);
    default:
        return KOVA_ERROR_NULL;
    }
}
