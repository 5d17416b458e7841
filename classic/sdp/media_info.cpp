#include "classic/sdp/media_info.h"

#include "classic/sdp/media_description.h"
#include "foundation/heap.h"

KovaRtspMediaInfo *KovaRtspMediaInfoCreate(uint32_t nMediaType, uint32_t nPayloadId,
                                           const void *pDescription)
{
    void *pCopy = KovaMediaDescriptionCopy(nMediaType, pDescription);
    if (pCopy == nullptr)
        return nullptr;
    KovaRtspMediaInfo *pMediaInfo = KovaHeapNew<KovaRtspMediaInfo>();
    if (pMediaInfo == nullptr) {
        free(pCopy);
        return nullptr;
    }
    pMediaInfo->nMediaType = nMediaType;
    pMediaInfo->nPayloadId = nPayloadId;
    pMediaInfo->pDescription = pCopy;
    return pMediaInfo;
}

void KovaRtspMediaInfoDestroy(KovaRtspMediaInfo *pMediaInfo)
{
    if (pMediaInfo == nullptr)
        return;
    free(pMediaInfo->pDescription);
    free(pMediaInfo);
}
