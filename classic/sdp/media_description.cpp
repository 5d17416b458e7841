#include "classic/sdp/media_description.h"

#include "foundation/heap.h"
#include "kova_rtsp_server.h"

#include <cstring>

namespace {

size_t DescriptionSize(uint32_t nMediaType)
{
    if (nMediaType == KOVA_MEDIA_AUDIO)
        return sizeof(KovaAudioDescription);
    return nMediaType == KOVA_MEDIA_VIDEO ? sizeof(KovaVideoDescription) : 0;
}

} // namespace

void *KovaMediaDescriptionCopy(uint32_t nMediaType, const void *pDescription)
{
    const size_t nSize = DescriptionSize(nMediaType);
    if (pDescription == nullptr || nSize == 0)
        return nullptr;
    void *pCopy = KovaHeapAlloc(nSize);
    if (pCopy != nullptr)
        memcpy(pCopy, pDescription, nSize);
    return pCopy;
}
