#include "tests/support/ready_stream.h"

#include "tests/support/media.h"

namespace {

void Tell(KovaRtspStreamer *pStreamer, uint32_t nPayloadId, uint32_t nKind,
          const std::string &bytes)
{
    KovaRtspSdpGeneratorSetMediaInfo(pStreamer->pSdpGenerator, nPayloadId, nKind,
                                     KovaUnitBytes(bytes), static_cast<uint32_t>(bytes.size()));
}

} // namespace

KovaRtspStreamer *KovaPublishAudioVideo(KovaRtspServer *pServer, const std::string &uri)
{
    const KovaAudioDescription audio = {64, 44100, 2};
    const KovaVideoDescription video = {2000};
    uint32_t nAudioId = 0;
    uint32_t nVideoId = 0;
    KovaRtspStreamer *pStreamer = KovaRtspServerAddUri(pServer, uri.c_str());
    if (pStreamer == nullptr)
        return nullptr;
    KovaRtspServerAddPayloadType(pStreamer, KOVA_MEDIA_AUDIO, &nAudioId, &audio);
    KovaRtspServerAddPayloadType(pStreamer, KOVA_MEDIA_VIDEO, &nVideoId, &video);
    if (nAudioId == KOVA_PAYLOAD_ID_AUDIO && nVideoId == KOVA_PAYLOAD_ID_VIDEO)
        return pStreamer;
    KovaRtspServerRemoveUri(pServer, uri.c_str());
    return nullptr;
}

void KovaMakeReady(KovaRtspStreamer *pStreamer)
{
    Tell(pStreamer, KOVA_PAYLOAD_ID_AUDIO, kInfoAacConfig, std::string("\x12\x10", 2));
    Tell(pStreamer, KOVA_PAYLOAD_ID_VIDEO, kInfoSps, KovaTestSps());
    Tell(pStreamer, KOVA_PAYLOAD_ID_VIDEO, kInfoPps, KovaTestPps());
}
