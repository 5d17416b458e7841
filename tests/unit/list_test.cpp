#include "foundation/list.h"
#include "tests/support/failing_heap.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Data = std::vector<void *>;

/// Three elements to point at.
struct ListTest : testing::Test {
    int values[4] = {};
    void *a = &values[0];
    void *b = &values[1];
    void *c = &values[2];
    KovaList *pList = nullptr;

    void Fill(const Data &data)
    {
        for (void *pData : data)
            pList = KovaListAppend(pList, pData);
    }

    ~ListTest() override
    {
        for (int n = 0; n < 100 && pList != nullptr; n++)
            pList = KovaListRemove(pList, pList->data);
    }

    /// The data in order; checks every link back and that the ends are ends.
    static Data Walk(KovaList *pFirst)
    {
        Data data;
        const KovaList *pBefore = nullptr;
        for (KovaList *pNode = pFirst; pNode != nullptr && data.size() < 100; pNode = pNode->next) {
            EXPECT_EQ(pNode->prev, pBefore);
            data.push_back(pNode->data);
            pBefore = pNode;
        }
        return data;
    }
};

TEST_F(ListTest, NewNodeIsEmpty)
{
    KovaList *pNode = KovaListAlloc();
    ASSERT_NE(pNode, nullptr);
    EXPECT_EQ(pNode->data, nullptr);
    EXPECT_EQ(pNode->prev, nullptr);
    EXPECT_EQ(pNode->next, nullptr);
    KovaListFree(pNode);
}

TEST_F(ListTest, AllocGivesNullWithoutMemory)
{
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaListAlloc(), nullptr);
    EXPECT_EQ(heap.Failed(), 1);
}

TEST_F(ListTest, NullIsTheEmptyListEverywhere)
{
    KovaListFree(nullptr);
    EXPECT_EQ(KovaListFirst(nullptr), nullptr);
    EXPECT_EQ(KovaListLast(nullptr), nullptr);
    EXPECT_EQ(KovaListNext(nullptr), nullptr);
    EXPECT_EQ(KovaListPrevious(nullptr), nullptr);
    EXPECT_EQ(KovaListLength(nullptr), 0U);
    EXPECT_EQ(KovaListRemove(nullptr, a), nullptr);
    EXPECT_EQ(KovaListRemoveLink(nullptr, nullptr), nullptr);
}

TEST_F(ListTest, AppendKeepsOrderAndFirstNode)
{
    KovaList *pFirst = KovaListAppend(nullptr, a);
    ASSERT_NE(pFirst, nullptr);
    pList = pFirst;
    EXPECT_EQ(KovaListAppend(pFirst, b), pFirst);
    EXPECT_EQ(KovaListAppend(pFirst, nullptr), pFirst);
    EXPECT_EQ(Walk(pFirst), (Data{a, b, nullptr}));
}

TEST_F(ListTest, NavigatesFromAnyNode)
{
    Fill({a, b, c});
    KovaList *pSecond = KovaListNext(pList);
    KovaList *pThird = KovaListNext(pSecond);
    EXPECT_EQ(KovaListLength(pList), 3U);
    EXPECT_EQ(KovaListLength(pSecond), 2U);
    EXPECT_EQ(KovaListFirst(pThird), pList);
    EXPECT_EQ(KovaListFirst(pSecond), pList);
    EXPECT_EQ(KovaListFirst(pList), pList);
    EXPECT_EQ(KovaListLast(pList), pThird);
    EXPECT_EQ(KovaListLast(pThird), pThird);
    EXPECT_EQ(KovaListPrevious(pThird), pSecond);
    EXPECT_EQ(KovaListPrevious(pList), nullptr);
    EXPECT_EQ(KovaListNext(pThird), nullptr);
}

TEST_F(ListTest, AppendTailMovesTheCallersTail)
{
    KovaList *pTail = nullptr;
    pList = KovaListAppendTail(nullptr, &pTail, a);
    ASSERT_NE(pList, nullptr);
    EXPECT_EQ(pTail, pList);
    EXPECT_EQ(KovaListAppendTail(pList, &pTail, b), pList);
    EXPECT_EQ(pTail, KovaListLast(pList));
    EXPECT_EQ(pTail->data, b);
    EXPECT_EQ(KovaListAppendTail(pList, &pTail, c), pList);
    EXPECT_EQ(pTail->data, c);
    EXPECT_EQ(Walk(pList), (Data{a, b, c}));
}

TEST_F(ListTest, AppendWithoutMemoryLeavesTheListAsItWas)
{
    Fill({a});
    KovaList *pTail = pList;
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(KovaListAppend(pList, b), pList);
        EXPECT_EQ(KovaListAppendTail(pList, &pTail, b), pList);
        EXPECT_FALSE(KovaListPush(&pList, b));
        EXPECT_FALSE(KovaListPushTail(&pList, &pTail, b));
        EXPECT_EQ(KovaListAppend(nullptr, b), nullptr);
        EXPECT_EQ(heap.Failed(), 5);
    }
    EXPECT_EQ(pTail, pList);
    EXPECT_EQ(Walk(pList), Data{a});
}

TEST_F(ListTest, RemovingTheOnlyNodeYieldsTheEmptyList)
{
    Fill({a});
    pList = KovaListRemove(pList, a);
    EXPECT_EQ(pList, nullptr);
}

TEST_F(ListTest, RemovingTheFirstReturnsTheFormerSecond)
{
    Fill({a, b, c});
    KovaList *pSecond = pList->next;
    pList = KovaListRemove(pList, a);
    EXPECT_EQ(pList, pSecond);
    EXPECT_EQ(pList->prev, nullptr);
    EXPECT_EQ(Walk(pList), (Data{b, c}));
}

TEST_F(ListTest, RemovingInTheMiddleAndAtTheEndKeepsTheFirst)
{
    Fill({a, b, c});
    KovaList *pFirst = pList;
    EXPECT_EQ(KovaListRemove(pList, b), pFirst);
    EXPECT_EQ(Walk(pList), (Data{a, c}));
    EXPECT_EQ(KovaListRemove(pList, c), pFirst);
    EXPECT_EQ(Walk(pList), Data{a});
}

TEST_F(ListTest, RemoveTakesOnlyTheFirstOccurrence)
{
    Fill({a, b, a, c});
    pList = KovaListRemove(pList, a);
    EXPECT_EQ(Walk(pList), (Data{b, a, c}));
}

TEST_F(ListTest, RemoveFindsTheNullElement)
{
    Fill({a, nullptr, c});
    pList = KovaListRemove(pList, nullptr);
    EXPECT_EQ(Walk(pList), (Data{a, c}));
}

TEST_F(ListTest, RemoveOfAMissingElementChangesNothing)
{
    Fill({a, b});
    KovaList *pFirst = pList;
    EXPECT_EQ(KovaListRemove(pList, c), pFirst);
    EXPECT_EQ(Walk(pList), (Data{a, b}));
}

TEST_F(ListTest, RemoveLinkUnlinksWithoutFreeing)
{
    KovaStdoutCapture capture;
    Fill({a, b, c});
    KovaList *pSecond = pList->next;
    EXPECT_EQ(KovaListRemoveLink(pList, pSecond), pList);
    EXPECT_EQ(pSecond->data, b);
    EXPECT_EQ(pSecond->prev, nullptr);
    EXPECT_EQ(pSecond->next, nullptr);
    EXPECT_EQ(Walk(pList), (Data{a, c}));

    KovaList *pFirst = pList;
    pList = KovaListRemoveLink(pList, pFirst);
    EXPECT_EQ(pFirst->next, nullptr);
    EXPECT_EQ(Walk(pList), Data{c});
    EXPECT_EQ(KovaListRemoveLink(pList, nullptr), pList);
    EXPECT_EQ(capture.Text(), "");
    KovaListFree(pFirst);
    KovaListFree(pSecond);
}

/// Four nodes that are not on the heap, linked by hand.
struct CorruptedListTest : testing::Test {
    KovaList nodes[3] = {{nullptr, nullptr, &nodes[1]},
                         {nullptr, &nodes[0], &nodes[2]},
                         {nullptr, &nodes[1], nullptr}};
    KovaStdoutCapture capture;
};

TEST_F(CorruptedListTest, WrongLinkOfThePreviousNodeIsReportedAndLeft)
{
    KovaList stranger = {};
    nodes[0].next = &stranger;
    EXPECT_EQ(KovaListRemoveLink(&nodes[0], &nodes[1]), &nodes[0]);
    EXPECT_EQ(capture.Text(), "corrupted double-linked list detected");
    EXPECT_EQ(nodes[0].next, &stranger);
    EXPECT_EQ(nodes[2].prev, &nodes[0]);
    EXPECT_EQ(nodes[1].prev, nullptr);
    EXPECT_EQ(nodes[1].next, nullptr);
}

TEST_F(CorruptedListTest, WrongLinkOfTheNextNodeIsReportedAndLeft)
{
    KovaList stranger = {};
    nodes[2].prev = &stranger;
    EXPECT_EQ(KovaListRemoveLink(&nodes[0], &nodes[1]), &nodes[0]);
    EXPECT_EQ(capture.Text(), "corrupted double-linked list detected");
    EXPECT_EQ(nodes[0].next, &nodes[2]);
    EXPECT_EQ(nodes[2].prev, &stranger);
    EXPECT_EQ(nodes[1].prev, nullptr);
    EXPECT_EQ(nodes[1].next, nullptr);
}

TEST_F(CorruptedListTest, BothNeighboursAreReportedOneByOne)
{
    nodes[0].next = nullptr;
    nodes[2].prev = nullptr;
    EXPECT_EQ(KovaListRemoveLink(&nodes[0], &nodes[1]), &nodes[0]);
    EXPECT_EQ(capture.Text(), "corrupted double-linked list detected"
                              "corrupted double-linked list detected");
    EXPECT_EQ(nodes[1].prev, nullptr);
    EXPECT_EQ(nodes[1].next, nullptr);
}

TEST_F(CorruptedListTest, FirstNodeWithAWrongNeighbourStillMovesTheFirst)
{
    nodes[1].prev = nullptr;
    EXPECT_EQ(KovaListRemoveLink(&nodes[0], &nodes[0]), &nodes[1]);
    EXPECT_EQ(capture.Text(), "corrupted double-linked list detected");
    EXPECT_EQ(nodes[0].next, nullptr);
}

TEST_F(ListTest, TakeKeepsTheTailOnALiveNode)
{
    KovaList *pTail = nullptr;
    for (void *pData : Data{a, b, c})
        ASSERT_TRUE(KovaListPushTail(&pList, &pTail, pData));
    EXPECT_FALSE(KovaListTake(&pList, &pTail, &values[3]));
    EXPECT_TRUE(KovaListTake(&pList, &pTail, c));
    EXPECT_EQ(pTail, KovaListLast(pList));
    EXPECT_TRUE(KovaListTake(&pList, &pTail, a));
    EXPECT_EQ(pTail, pList);
    EXPECT_EQ(Walk(pList), Data{b});
    EXPECT_TRUE(KovaListTake(&pList, &pTail, b));
    EXPECT_EQ(pList, nullptr);
    EXPECT_EQ(pTail, nullptr);
    EXPECT_TRUE(KovaListPushTail(&pList, &pTail, c));
    EXPECT_EQ(pTail, pList);
}

TEST_F(ListTest, TakeFirstEmptiesInOrder)
{
    KovaList *pTail = nullptr;
    for (void *pData : Data{a, b})
        ASSERT_TRUE(KovaListPushTail(&pList, &pTail, pData));
    EXPECT_EQ(KovaListTakeFirst(&pList, &pTail), a);
    EXPECT_EQ(pTail, pList);
    EXPECT_EQ(KovaListTakeFirst(&pList, &pTail), b);
    EXPECT_EQ(pTail, nullptr);
    EXPECT_EQ(KovaListTakeFirst(&pList, &pTail), nullptr);
    ASSERT_TRUE(KovaListPush(&pList, c));
    EXPECT_EQ(KovaListTakeFirst(&pList, nullptr), c);
    EXPECT_EQ(pList, nullptr);
}

} // namespace
