#include "classic/rtsp/transport.h"

#include "foundation/heap.h"

KovaRtspTransport *KovaRtspTransportCreate(uint32_t nFirst, uint32_t nSecond, uint32_t nThird,
                                           uint16_t nFourth, uint16_t nFifth, uint16_t nSixth,
                                           uint16_t nSeventh, uint32_t nEighth, uint32_t nNinth,
                                           uint32_t nTenth, uint32_t nEleventh)
{
    KovaRtspTransport *pTransport = KovaHeapNew<KovaRtspTransport>();
    if (pTransport != nullptr)
        *pTransport = {{nFirst, nSecond, nThird},
                       {nFourth, nFifth, nSixth, nSeventh},
                       {nEighth, nNinth, nTenth, nEleventh}};
    return pTransport;
}

void KovaRtspTransportDestroy(KovaRtspTransport *pTransport)
{
    free(pTransport);
}
