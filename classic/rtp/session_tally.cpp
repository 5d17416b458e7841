#include "classic/rtp/session_tally.h"

#include "classic/rtp/rtp_client.h"
#include "foundation/heap.h"
#include "foundation/keyed_list.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"
#include "foundation/text.h"

#include <cstdint>
#include <cstring>

struct KovaSessionTally {
    const void *pStream;
    char szSessionId[kSessionIdSize];
    uint32_t nClients;
    uint32_t nHolders; // who are no clients
    bool bRaised;      // a PLAY has counted the session
    bool bTaken;       // somebody has lowered the count, or is about to
};

namespace {

KovaMutex g_tallyMutex = {PTHREAD_MUTEX_INITIALIZER}; // guards the list and its members
KovaList *g_pTallies = nullptr;
KovaKeyedList g_tallyKeys; // by session id

/// A null stream is any.
struct Wanted {
    const void *pStream;
    const char *szSessionId;
};

bool IsWanted(const void *pData, const void *pContext)
{
    const KovaSessionTally *pTally = static_cast<const KovaSessionTally *>(pData);
    const Wanted *pWanted = static_cast<const Wanted *>(pContext);
    return (pWanted->pStream == nullptr || pTally->pStream == pWanted->pStream) &&
           strcmp(pTally->szSessionId, pWanted->szSessionId) == 0;
}

KovaSessionTally *FindTally(const Wanted &wanted)
{
    return static_cast<KovaSessionTally *>(KovaKeyedFind(
        &g_tallyKeys, g_pTallies, KovaKeyOfText(wanted.szSessionId), IsWanted, &wanted));
}

KovaSessionTally *MakeTally(const void *pStream, const char *szSessionId)
{
    KovaOwner<KovaSessionTally, free> tally(KovaHeapNew<KovaSessionTally>());
    if (!tally)
        return nullptr;
    tally->pStream = pStream;
    KovaTextCopy(tally->szSessionId, sizeof(tally->szSessionId), szSessionId);
    return KovaKeyedPush(&g_tallyKeys, g_pTallies, KovaKeyOfText(tally->szSessionId), tally.Get())
               ? tally.Release()
               : nullptr;
}

KovaSessionTally *FindOrMake(const void *pStream, const char *szSessionId)
{
    KovaSessionTally *pTally = FindTally({pStream, szSessionId});
    return pTally != nullptr ? pTally : MakeTally(pStream, szSessionId);
}

void FreeUnused(KovaSessionTally *pTally)
{
    if (pTally->nClients != 0 || pTally->nHolders != 0)
        return;
    KovaKeyedTake(&g_tallyKeys, g_pTallies, KovaKeyOfText(pTally->szSessionId), pTally);
    free(pTally);
}

bool Take(KovaSessionTally *pTally)
{
    const bool bFirst = !pTally->bTaken;
    pTally->bTaken = true;
    return bFirst;
}

} // namespace

KovaSessionTally *KovaSessionTallyJoin(const void *pStream, const char *szSessionId)
{
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    KovaSessionTally *pTally = FindOrMake(pStream, szSessionId);
    if (pTally != nullptr)
        pTally->nClients++;
    return pTally;
}

void KovaSessionTallyLeave(KovaSessionTally *pTally)
{
    if (pTally == nullptr)
        return;
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    pTally->nClients--;
    FreeUnused(pTally);
}

KovaSessionTally *KovaSessionTallyHold(const void *pStream, const char *szSessionId)
{
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    KovaSessionTally *pTally = FindOrMake(pStream, szSessionId);
    if (pTally != nullptr)
        pTally->nHolders++;
    return pTally;
}

void KovaSessionTallyRelease(KovaSessionTally *pTally)
{
    if (pTally == nullptr)
        return;
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    pTally->nHolders--;
    FreeUnused(pTally);
}

void KovaSessionTallyRaised(KovaSessionTally *pTally)
{
    if (pTally == nullptr)
        return;
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    pTally->bRaised = true;
    pTally->bTaken = false;
}

bool KovaSessionTallyTake(KovaSessionTally *pTally)
{
    return KovaSessionTallyTakePlaying(pTally, true);
}

bool KovaSessionTallyTakePlaying(KovaSessionTally *pTally, bool bPlays)
{
    if (pTally == nullptr)
        return bPlays;
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    return (bPlays || pTally->bRaised) && Take(pTally);
}

bool KovaSessionTallyLeaveLast(KovaSessionTally *pTally, bool bPlays)
{
    if (pTally == nullptr)
        return bPlays;
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    const bool bLast = --pTally->nClients == 0;
    const bool bTakes = bLast && (bPlays || pTally->bRaised) && Take(pTally);
    FreeUnused(pTally);
    return bTakes;
}

bool KovaSessionTallyExists(const char *szSessionId)
{
    const KovaMutexLock lock(&g_tallyMutex, kRankLeaf);
    return FindTally({nullptr, szSessionId}) != nullptr;
}
