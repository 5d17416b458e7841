#include "foundation/text.h"
#include "live/engine/stream.h"

namespace {

/// FNV-1a: tells whether a text has changed.
uint32_t HashOf(const char *szText)
{
    uint32_t nHash = 2166136261U;
    for (; *szText != '\0'; szText++)
        nHash = (nHash ^ static_cast<uint8_t>(*szText)) * 16777619U;
    return nHash;
}

bool WriteHead(const KovaLiveStream *pStream, uint32_t nVersion, const char *szAddress,
               char *szText, size_t nCapacity, size_t *pLength)
{
    const char *szName = pStream->szName != nullptr ? pStream->szName : pStream->szPath;
    *pLength = 0;
    return KovaTextAppend(szText, nCapacity, pLength, "v=0\r\no=- %u %u IN IP4 %s\r\ns=%s\r\n",
                          pStream->nNumber, nVersion, szAddress, szName) &&
           // Where media comes from is agreed on by SETUP (RFC 2326, C.1.7).
           KovaTextAppend(szText, nCapacity, pLength,
                          "c=IN IP4 0.0.0.0\r\nt=0 0\r\na=control:*\r\na=range:npt=now-\r\n");
}

bool WriteTracks(const KovaLiveStream *pStream, char *szText, size_t nCapacity, size_t *pLength)
{
    uint32_t nDescribed = 0;
    const uint32_t nTracks = pStream->nTracks;
    for (uint32_t nTrack = 0; nTrack < nTracks; nTrack++) {
        const KovaTrackMedia *pMedia = pStream->pTracks[nTrack]->pMedia;
        if (!KovaTrackMediaKnown(pMedia))
            continue;
        if (!KovaTrackMediaDescribe(pMedia, szText, nCapacity, pLength))
            return false;
        nDescribed++;
    }
    return nDescribed != 0;
}

/// The version that belongs to a description of that hash (RFC 4566, 5.2): grows with
/// every change that somebody is told.
uint32_t VersionOf(KovaLiveStream *pStream, uint32_t nHash)
{
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    if (nHash != pStream->nDescribedHash || pStream->nVersion == 0) {
        pStream->nDescribedHash = nHash;
        pStream->nVersion++;
    }
    return pStream->nVersion;
}

} // namespace

bool KovaStreamDescribe(KovaLiveStream *pStream, const char *szAddress, char *szText,
                        size_t nCapacity, size_t *pLength)
{
    // The tracks alone tell the version, which stands in front of them.
    *pLength = 0;
    if (!WriteTracks(pStream, szText, nCapacity, pLength))
        return false;
    const uint32_t nVersion = VersionOf(pStream, HashOf(szText));
    return WriteHead(pStream, nVersion, szAddress, szText, nCapacity, pLength) &&
           WriteTracks(pStream, szText, nCapacity, pLength);
}
