#include "tests/support/feed.h"

int32_t KovaPush(KovaRtspStreamer *pStream, uint32_t nPayloadId, const std::string &unit,
                 uint32_t nPts)
{
    return KovaRtspServerPushData(pStream, nPayloadId,
                                  reinterpret_cast<const uint8_t *>(unit.data()),
                                  static_cast<uint32_t>(unit.size()), nPts);
}
