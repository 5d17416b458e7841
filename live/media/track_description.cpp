#include "foundation/text.h"
#include "live/media/track_media_record.h"

namespace {

/// Where a text of the description is being put together.
struct Text {
    char *szText;
    size_t nCapacity;
    size_t *pLength;
};

bool AppendHex(const Text &text, const uint8_t *pBytes, uint32_t nSize)
{
    for (uint32_t nIndex = 0; nIndex < nSize; nIndex++)
        if (!KovaTextAppend(text.szText, text.nCapacity, text.pLength, "%02X", pBytes[nIndex]))
            return false;
    return true;
}

/// RFC 6184, 8.2.1.
bool DescribeH264(KovaTrackMedia *pMedia, const Text &text)
{
    const unsigned nType = pMedia->nPayloadType;
    return KovaTextAppend(text.szText, text.nCapacity, text.pLength,
                          "m=video 0 RTP/AVP %u\r\n"
                          "a=rtpmap:%u H264/90000\r\n"
                          "a=fmtp:%u packetization-mode=1;",
                          nType, nType, nType) &&
           KovaParameterSetsDescribe(&pMedia->sets, text.szText, text.nCapacity, text.pLength);
}

KovaAacConfig CopyOfConfig(KovaAacStream *pStream)
{
    KovaMutexLock lock(&pStream->mutex, kRankLeaf);
    return pStream->config;
}

/// RFC 3640, 4.1. One profile-level-id for all: receivers go by the configuration.
bool DescribeAac(KovaTrackMedia *pMedia, const Text &text)
{
    const unsigned nType = pMedia->nPayloadType;
    const KovaAacConfig config = CopyOfConfig(&pMedia->aac);
    return config.nSize != 0 &&
           KovaTextAppend(text.szText, text.nCapacity, text.pLength,
                          "m=audio 0 RTP/AVP %u\r\n"
                          "a=rtpmap:%u mpeg4-generic/%u/%u\r\n"
                          "a=fmtp:%u streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;"
                          "indexlength=3;indexdeltalength=3;config=",
                          nType, nType, static_cast<unsigned>(config.nRate),
                          static_cast<unsigned>(config.nChannels), nType) &&
           AppendHex(text, config.bytes, config.nSize);
}

} // namespace

bool KovaTrackMediaKnown(const KovaTrackMedia *pMedia)
{
    if (pMedia->nCodec == KOVA_LIVE_AAC)
        return pMedia->nClockRate.load() != 0;
    return KovaParameterSetsKnown(const_cast<KovaParameterSets *>(&pMedia->sets));
}

bool KovaTrackMediaDescribe(const KovaTrackMedia *pMedia, char *szText, size_t nCapacity,
                            size_t *pLength)
{
    // The mutexes inside have to be taken, nothing else changes.
    KovaTrackMedia *pOpen = const_cast<KovaTrackMedia *>(pMedia);
    const size_t nBegin = *pLength;
    const Text text = {szText, nCapacity, pLength};
    const bool bFits =
        (pMedia->nCodec == KOVA_LIVE_AAC ? DescribeAac(pOpen, text) : DescribeH264(pOpen, text)) &&
        KovaTextAppend(szText, nCapacity, pLength, "\r\na=control:track%u\r\n",
                       static_cast<unsigned>(pMedia->nTrack + 1));
    if (!bFits && nBegin < nCapacity) {
        szText[nBegin] = '\0';
        *pLength = nBegin;
    }
    return bFits;
}
