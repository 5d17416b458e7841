#include "classic/streamer/es_input.h"
#include "foundation/list.h"
#include "foundation/ring_buffer.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <vector>

// Sequences of operations on a ring and on a list, next to a deque and a vector.
//
// Input: the first byte even: ring (its size, then operations and counts); odd: list (operations
// and data).

namespace {

// ---- Ring
// ----------------------------------------------------------------------------------------

struct Ring {
    KovaRingbuffer ring;
    std::deque<uint8_t> model;
    uint8_t nNext; ///< byte to write next
};

void CheckRing(Ring *pRing, int32_t nSize)
{
    const int32_t nHeld = static_cast<int32_t>(pRing->model.size());
    KovaRequire(KovaRingbufferAvail(&pRing->ring) == nHeld, "what is held is available");
    KovaRequire(KovaRingbufferFree(&pRing->ring) == nSize - 1 - nHeld, "the rest is free");
    KovaRequire(KovaRingbufferRmpty(&pRing->ring) == (nHeld == 0 ? 1 : 0), "empty means empty");
    KovaRequire(pRing->ring.nReadPos >= 0 && pRing->ring.nReadPos < nSize &&
                    pRing->ring.nWritePos >= 0 && pRing->ring.nWritePos < nSize,
                "positions lie in the block");
}

void WriteRing(Ring *pRing, int32_t nCount, bool bChecked)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(nCount));
    for (uint8_t &nByte : bytes)
        nByte = pRing->nNext++;
    const int32_t nFree = KovaRingbufferFree(&pRing->ring);
    if (bChecked) {
        const int32_t nExpected = nCount > nFree ? kRingFull : nCount;
        KovaRequire(StreamerRingbufferWrite(&pRing->ring, bytes.data(), nCount) == nExpected,
                    "a checked write is whole or refused");
        if (nExpected < 0)
            return;
    } else {
        nCount = std::min(nCount, nFree);
        bytes.resize(static_cast<size_t>(nCount));
        KovaRequire(KovaRingbufferWrite(&pRing->ring, bytes.data(), nCount) == nCount,
                    "a write takes everything");
    }
    pRing->model.insert(pRing->model.end(), bytes.begin(), bytes.end());
}

void ReadRing(Ring *pRing, int32_t nCount, bool bChecked)
{
    const int32_t nHeld = static_cast<int32_t>(pRing->model.size());
    if (!bChecked)
        nCount = std::min(nCount, nHeld);
    const std::unique_ptr<uint8_t[]> pBytes(new uint8_t[static_cast<size_t>(nCount)]);
    if (bChecked) {
        const int32_t nExpected = nCount > nHeld ? 0 : nCount;
        KovaRequire(StreamerRingbufferRead(&pRing->ring, pBytes.get(), nCount) == nExpected,
                    "a checked read is whole or nothing");
        nCount = nExpected;
    } else {
        KovaRequire(KovaRingbufferRead(&pRing->ring, pBytes.get(), nCount) == nCount,
                    "a read gives everything");
    }
    for (int32_t n = 0; n < nCount; n++) {
        KovaRequire(pBytes[static_cast<size_t>(n)] == pRing->model.front(), "bytes keep order");
        pRing->model.pop_front();
    }
}

void RunRing(KovaFuzzInput *pInput)
{
    const int32_t nSize = 2 + pInput->Byte() % 64;
    const std::unique_ptr<uint8_t[]> pBlock(new uint8_t[static_cast<size_t>(nSize)]);
    Ring ring = {};
    KovaRingbufferInit(&ring.ring, pBlock.get(), nSize);
    while (!pInput->IsEmpty()) {
        const unsigned nOperation = pInput->Byte() % 6;
        if (nOperation < 4) {
            const int32_t nCount = pInput->Byte() % 80;
            if (nOperation % 2 == 0)
                WriteRing(&ring, nCount, nOperation >= 2);
            else
                ReadRing(&ring, nCount, nOperation >= 2);
        } else {
            if (nOperation == 4)
                KovaRequire(KovaRingbufferFlush(&ring.ring) == &ring.ring, "flush gives the ring");
            else
                KovaRequire(KovaRingbufferReset(&ring.ring) == &ring.ring, "reset gives the ring");
            ring.model.clear();
        }
        CheckRing(&ring, nSize);
    }
}

// ---- List
// ----------------------------------------------------------------------------------------

char g_elements[16]; // what the lists point at

struct List {
    KovaList *pList;
    KovaList *pTail;
    std::vector<void *> model;
};

void CheckList(const List &list)
{
    KovaRequire(KovaListLength(list.pList) == list.model.size(), "as many nodes as elements");
    KovaRequire((list.pList == nullptr) == list.model.empty(), "an empty list is null");
    KovaRequire(list.pTail == KovaListLast(list.pList), "the tail is the last node");
    KovaList *pBefore = nullptr;
    KovaList *pNode = list.pList;
    for (void *pData : list.model) {
        KovaRequire(pNode->data == pData, "elements keep their order");
        KovaRequire(KovaListPrevious(pNode) == pBefore, "links lead back");
        KovaRequire(KovaListFirst(pNode) == list.pList, "the first node is found");
        pBefore = pNode;
        pNode = KovaListNext(pNode);
    }
}

KovaList *NodeAt(const List &list, unsigned nIndex)
{
    KovaList *pNode = list.pList;
    for (unsigned n = 0; n < nIndex; n++)
        pNode = pNode->next;
    return pNode;
}

void RemoveLink(List *pList, unsigned nIndex)
{
    if (pList->model.empty())
        return;
    nIndex %= static_cast<unsigned>(pList->model.size());
    KovaList *pNode = NodeAt(*pList, nIndex);
    pList->pList = KovaListRemoveLink(pList->pList, pNode);
    KovaRequire(pNode->prev == nullptr && pNode->next == nullptr, "an unlinked node has no links");
    KovaListFree(pNode);
    pList->pTail = KovaListLast(pList->pList);
    pList->model.erase(pList->model.begin() + nIndex);
}

void Erase(List *pList, const void *pData)
{
    const auto found = std::find(pList->model.begin(), pList->model.end(), pData);
    if (found != pList->model.end())
        pList->model.erase(found);
}

void Operate(List *pList, unsigned nOperation, uint8_t nArgument)
{
    void *pData = &g_elements[nArgument % sizeof(g_elements)];
    const bool bHeld =
        std::find(pList->model.begin(), pList->model.end(), pData) != pList->model.end();
    switch (nOperation % 7) {
    case 0:
        pList->pList = KovaListAppend(pList->pList, pData);
        pList->pTail = KovaListLast(pList->pList);
        pList->model.push_back(pData);
        break;
    case 1:
        pList->pList = KovaListAppendTail(pList->pList, &pList->pTail, pData);
        pList->model.push_back(pData);
        break;
    case 2:
        pList->pList = KovaListRemove(pList->pList, pData);
        pList->pTail = KovaListLast(pList->pList);
        Erase(pList, pData);
        break;
    case 3:
        RemoveLink(pList, nArgument);
        break;
    case 4:
        KovaRequire(KovaListPushTail(&pList->pList, &pList->pTail, pData), "there is memory");
        pList->model.push_back(pData);
        break;
    case 5:
        KovaRequire(KovaListTake(&pList->pList, &pList->pTail, pData) == bHeld,
                    "what is there is taken");
        Erase(pList, pData);
        break;
    default:
        KovaRequire(KovaListTakeFirst(&pList->pList, &pList->pTail) ==
                        (pList->model.empty() ? nullptr : pList->model.front()),
                    "the first is taken first");
        if (!pList->model.empty())
            pList->model.erase(pList->model.begin());
        break;
    }
}

void RunList(KovaFuzzInput *pInput)
{
    List list = {};
    while (!pInput->IsEmpty()) {
        const unsigned nOperation = pInput->Byte();
        Operate(&list, nOperation, pInput->Byte());
        CheckList(list);
    }
    while (list.pList != nullptr)
        KovaListTakeFirst(&list.pList, &list.pTail);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, std::min<size_t>(nSize, 2000));
    if (input.Byte() % 2 == 0)
        RunRing(&input);
    else
        RunList(&input);
    return 0;
}
