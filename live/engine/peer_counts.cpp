#include "live/engine/peer_counts.h"

#include "foundation/heap.h"

namespace {

constexpr uint32_t kFirstRoom = 16;

KovaPeerCount *Find(KovaPeerCounts *pCounts, uint32_t nAddress)
{
    for (uint32_t nPeer = 0; nPeer < pCounts->nPeers; nPeer++) {
        if (pCounts->pPeers[nPeer].nAddress == nAddress)
            return &pCounts->pPeers[nPeer];
    }
    return nullptr;
}

/// A place for one more address; null without memory.
KovaPeerCount *Append(KovaPeerCounts *pCounts, uint32_t nAddress)
{
    if (pCounts->nPeers == pCounts->nRoom) {
        const uint32_t nRoom = pCounts->nRoom != 0 ? pCounts->nRoom * 2 : kFirstRoom;
        void *pRoom = realloc(pCounts->pPeers, nRoom * sizeof(KovaPeerCount));
        if (pRoom == nullptr)
            return nullptr;
        pCounts->pPeers = static_cast<KovaPeerCount *>(pRoom);
        pCounts->nRoom = nRoom;
    }
    KovaPeerCount *pPeer = &pCounts->pPeers[pCounts->nPeers++];
    *pPeer = {nAddress, 0};
    return pPeer;
}

} // namespace

bool KovaPeerEnter(KovaLive *pLive, uint32_t nAddress)
{
    if (pLive->settings.nMaxPerAddress == 0)
        return true;
    const KovaMutexLock lock(&pLive->numberMutex, kRankLeaf);
    KovaPeerCount *pPeer = Find(&pLive->peers, nAddress);
    if (pPeer == nullptr)
        pPeer = Append(&pLive->peers, nAddress);
    if (pPeer == nullptr || pPeer->nConnections >= pLive->settings.nMaxPerAddress)
        return false;
    pPeer->nConnections++;
    return true;
}

void KovaPeerLeave(KovaLive *pLive, uint32_t nAddress)
{
    if (pLive->settings.nMaxPerAddress == 0)
        return;
    const KovaMutexLock lock(&pLive->numberMutex, kRankLeaf);
    KovaPeerCount *pPeer = Find(&pLive->peers, nAddress);
    if (pPeer != nullptr && --pPeer->nConnections == 0)
        *pPeer = pLive->peers.pPeers[--pLive->peers.nPeers];
}
