#include "live/engine/notices.h"

#include "foundation/heap.h"
#include "foundation/text.h"

#include <arpa/inet.h>

#include <cstdio>

namespace {

constexpr uint32_t kMostNotices = 4096;
constexpr uint32_t kMostLines = 512;
constexpr size_t kLineSize = 256;

/// An event, or a log line behind the record.
struct Notice {
    Notice *pNext;
    uint32_t nType; ///< 0: a line
    int32_t nLevel;
    KovaLiveStream *pStream; ///< with a reference
    KovaLiveTrack *pTrack;
    uint64_t nPlayer;
    uint32_t nReason;
    uint32_t nPlayers;
    uint32_t nPeer;
    uint16_t nPort;
    bool bInterleaved;
};

} // namespace

struct KovaNotices {
    Notice *pFirst;
    Notice **ppEnd;
    uint32_t nCount;
    uint32_t nLost;
};

namespace {

/// Room for one more; null when there is none: then it is not told.
Notice *Append(KovaLiveLoop *pLoop, size_t nText, uint32_t nMost)
{
    if (pLoop->pNotices == nullptr) {
        pLoop->pNotices = KovaHeapNew<KovaNotices>();
        if (pLoop->pNotices == nullptr)
            return nullptr;
        pLoop->pNotices->ppEnd = &pLoop->pNotices->pFirst;
    }
    KovaNotices *pNotices = pLoop->pNotices;
    void *pMemory = pNotices->nCount < nMost ? KovaHeapAlloc(sizeof(Notice) + nText) : nullptr;
    if (pMemory == nullptr) {
        pNotices->nLost++;
        return nullptr;
    }
    Notice *pNotice = new (pMemory) Notice{};
    *pNotices->ppEnd = pNotice;
    pNotices->ppEnd = &pNotice->pNext;
    pNotices->nCount++;
    return pNotice;
}

void TellEvent(const KovaLive *pLive, const Notice &notice)
{
    char szAddress[INET_ADDRSTRLEN] = "";
    if (notice.nPeer != 0) {
        inet_ntop(AF_INET, &notice.nPeer, szAddress, sizeof(szAddress));
    }
    KovaLiveEvent event = {};
    event.size = sizeof(event);
    event.type = notice.nType;
    event.stream = notice.pStream;
    event.track = notice.pTrack;
    event.player = notice.nPlayer;
    event.reason = notice.nReason;
    event.players = notice.nPlayers;
    event.address = szAddress;
    event.port = notice.nPort;
    event.interleaved = notice.bInterleaved ? 1 : 0;
    pLive->settings.pfnEvent(pLive->settings.pContext, &event);
}

void TellLost(const KovaLive *pLive, uint32_t nLost)
{
    char szLine[64];
    snprintf(szLine, sizeof(szLine), "%u events and lines were lost", nLost);
    if (pLive->settings.pfnLog != nullptr)
        pLive->settings.pfnLog(pLive->settings.pContext, KOVA_LIVE_LOG_WARNING, szLine);
}

Notice *AppendEvent(KovaLiveLoop *pLoop, uint32_t nType, KovaLiveStream *pStream)

{
    if (pLoop->pLive->settings.pfnEvent == nullptr)
        return nullptr;
    Notice *pNotice = Append(pLoop, 0, kMostNotices);
    if (pNotice == nullptr)
        return nullptr;
    pNotice->nType = nType;
    pNotice->pStream = pStream;
    KovaStreamAddReference(pStream);
    pNotice->nPlayers = KovaStreamPlayers(pStream);
    return pNotice;
}

} // namespace

void KovaNoticesDestroy(KovaNotices *pNotices)
{
    if (pNotices == nullptr)
        return;
    while (pNotices->pFirst != nullptr) {
        Notice *pNotice = pNotices->pFirst;
        pNotices->pFirst = pNotice->pNext;
        KovaStreamRelease(pNotice->pStream);
        free(pNotice);
    }
    free(pNotices);
}

void KovaNoticePlayer(KovaLiveLoop *pLoop, uint32_t nType, const KovaLiveSession *pSession,
                      uint32_t nReason)
{
    Notice *pNotice = AppendEvent(pLoop, nType, pSession->pStream);
    if (pNotice == nullptr)
        return;
    pNotice->nPlayer = pSession->nPlayer;
    pNotice->nReason = nReason;
    pNotice->nPeer = pSession->nPeer;
    pNotice->nPort = pSession->nPeerPort;
    pNotice->bInterleaved = pSession->bInterleaved;
}

void KovaNoticeStream(KovaLiveLoop *pLoop, uint32_t nType, KovaLiveStream *pStream,
                      KovaLiveTrack *pTrack)
{
    if (Notice *pNotice = AppendEvent(pLoop, nType, pStream))
        pNotice->pTrack = pTrack;
}

void KovaNoticeLog(KovaLiveLoop *pLoop, int32_t nLevel, const char *szFormat, ...)
{
    const KovaLiveSettings &settings = pLoop->pLive->settings;
    if (settings.pfnLog == nullptr || nLevel > settings.nLogLevel)
        return;
    char szLine[kLineSize];
    va_list arguments;
    va_start(arguments, szFormat);
    vsnprintf(szLine, sizeof(szLine), szFormat, arguments);
    va_end(arguments);
    Notice *pNotice = Append(pLoop, sizeof(szLine), kMostLines);
    if (pNotice == nullptr)
        return;
    pNotice->nLevel = nLevel;
    // What players send must not write lines of its own.
    KovaTextPrintable(reinterpret_cast<char *>(pNotice + 1), sizeof(szLine), szLine);
}

void KovaNoticePeer(KovaLiveLoop *pLoop, int32_t nLevel, uint32_t nAddress, uint16_t nPort,
                    const char *szSays, const char *szWhat)
{
    char szAddress[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &nAddress, szAddress, sizeof(szAddress));
    KovaNoticeLog(pLoop, nLevel, "%s:%u%s%s", szAddress, nPort, szSays, szWhat);
}

void KovaNoticesTell(KovaLive *pLive, KovaNotices *pNotices)
{
    for (const Notice *pNotice = pNotices->pFirst; pNotice != nullptr; pNotice = pNotice->pNext) {
        if (pNotice->nType != 0)
            TellEvent(pLive, *pNotice);
        else
            pLive->settings.pfnLog(pLive->settings.pContext, pNotice->nLevel,
                                   reinterpret_cast<const char *>(pNotice + 1));
    }
    if (pNotices->nLost != 0)
        TellLost(pLive, pNotices->nLost);
    KovaNoticesDestroy(pNotices);
}
