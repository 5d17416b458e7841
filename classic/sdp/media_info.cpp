#include "classic/sdp/media_info.h"

#include "classic/sdp/media_description.h"
#include "foundation/heap.h"
#include "foundation/owner.h"

KovaRtspMediaInfo *KovaRtspMediaInfoCreate(uint32_t nMediaType, uint32_t nPayloadId,
                                           const void *pDescription)
{
    KovaOwner<void, free> copy(KovaMediaDescriptionCopy(nMediaType, pDescription));
    KovaRtspMediaInfo *pMediaInfo = copy ? KovaHeapNew<KovaRtspMediaInfo>() : nullptr;
    if (pMediaInfo == nullptr)
        return nullptr;
    pMediaInfo->nMediaType = nMediaType;
    pMediaInfo->nPayloadId = nPayloadId;
    pMediaInfo->pDescription = copy.Release();
    return pMediaInfo;
}

void KovaRtspMediaInfoDestroy(KovaRtspMediaInfo *pMediaInfo)
{
    if (pMediaInfo == nullptr)
        return;
    free(pMediaInfo->pDescription);
    free(pMediaInfo);
}
