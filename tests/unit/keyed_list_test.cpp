#include "foundation/keyed_list.h"

#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

/// An element with its key.
struct Element {
    uint32_t nKey;
    std::string name;
};

bool HasName(const void *pData, const void *pWanted)
{
    return static_cast<const Element *>(pData)->name == *static_cast<const std::string *>(pWanted);
}

/// A list with its index, and the same as a vector.
struct KeyedList : testing::Test {
    KovaKeyedList index = {};
    KovaList *pList = nullptr;
    std::vector<Element *> model;

    ~KeyedList() override
    {
        while (pList != nullptr)
            KovaKeyedTakeFirst(&index, &pList);
        EXPECT_EQ(index.ppBuckets, nullptr) << "all buckets are given back";
    }

    void Push(Element *pElement)
    {
        ASSERT_TRUE(KovaKeyedPush(&index, &pList, pElement->nKey, pElement));
        model.push_back(pElement);
    }

    void Take(Element *pElement, uint32_t nKey)
    {
        const auto found = std::find(model.begin(), model.end(), pElement);
        EXPECT_EQ(KovaKeyedTake(&index, &pList, nKey, pElement), found != model.end());
        if (found != model.end())
            model.erase(found);
    }

    const void *Find(const Element &wanted)
    {
        return KovaKeyedFind(&index, pList, wanted.nKey, HasName, &wanted.name);
    }

    const void *Expected(const Element &wanted) const
    {
        for (const Element *pElement : model) {
            if (pElement != nullptr && pElement->name == wanted.name)
                return pElement;
        }
        return nullptr;
    }

    /// Everybody who walks the list sees what was appended, in order, both ways.
    void ExpectListIsModel() const
    {
        std::vector<Element *> seen;
        const KovaList *pBefore = nullptr;
        for (const KovaList *pNode = pList; pNode != nullptr; pNode = pNode->next) {
            ASSERT_EQ(pNode->prev, pBefore);
            pBefore = pNode;
            seen.push_back(static_cast<Element *>(pNode->data));
        }
        ASSERT_EQ(seen, model);
    }
};

TEST_F(KeyedList, FindsTheFirstOfThoseThatMatch)
{
    Element first = {7, "a"};
    Element second = {7, "b"};
    Element third = {7, "a"};
    EXPECT_EQ(Find(first), nullptr);
    for (Element *pElement : {&first, &second, &third})
        Push(pElement);
    EXPECT_EQ(Find({7, "a"}), &first);
    EXPECT_EQ(Find({7, "b"}), &second);
    EXPECT_EQ(Find({7, "c"}), nullptr);
    Take(&first, 7);
    EXPECT_EQ(Find({7, "a"}), &third);
    ExpectListIsModel();
}

TEST_F(KeyedList, OneElementMayStandTwice)
{
    Element element = {3, "a"};
    Element between = {3, "b"};
    for (Element *pElement : {&element, &between, &element})
        Push(pElement);
    Take(&element, 3);
    ExpectListIsModel();
    EXPECT_EQ(Find(element), &element);
    Take(&element, 3);
    EXPECT_EQ(Find(element), nullptr);
    Take(&element, 3);
    ExpectListIsModel();
}

TEST_F(KeyedList, TakesWithAWrongKeyToo)
{
    std::vector<Element> elements(50);
    for (uint32_t n = 0; n < elements.size(); n++) {
        elements[n] = {n, std::to_string(n)};
        Push(&elements[n]);
    }
    Take(&elements[20], 21);
    ExpectListIsModel();
    EXPECT_EQ(Find(elements[20]), nullptr);
    Take(&elements[20], 20);
    for (uint32_t n = 21; n < elements.size(); n++)
        EXPECT_EQ(Find(elements[n]), &elements[n]) << n;
}

TEST_F(KeyedList, KeepsTheOrderOfAListWhileItGrowsAndShrinks)
{
    std::mt19937 random(5);
    std::vector<Element> elements(600);
    for (uint32_t n = 0; n < elements.size(); n++)
        elements[n] = {n % 97, std::to_string(n % 211)};
    for (int nStep = 0; nStep < 6000; nStep++) {
        // Grows for 2000 steps, keeps its length, then shrinks.
        const uint32_t nPushes = nStep < 2000 ? 8 : nStep < 4000 ? 5 : 2;
        Element *pElement = &elements[random() % elements.size()];
        if (random() % 10 < nPushes)
            Push(pElement);
        else
            Take(pElement, pElement->nKey);
        const Element &wanted = elements[random() % elements.size()];
        ASSERT_EQ(Find({wanted.nKey, wanted.name}) == nullptr,
                  std::none_of(model.begin(), model.end(),
                               [&](const Element *p) {
                                   return p->nKey == wanted.nKey && p->name == wanted.name;
                               }))
            << nStep;
        if (nStep % 500 == 0)
            ExpectListIsModel();
    }
    while (!model.empty()) {
        ASSERT_EQ(KovaKeyedTakeFirst(&index, &pList), model.front());
        model.erase(model.begin());
    }
    EXPECT_EQ(KovaKeyedTakeFirst(&index, &pList), nullptr);
}

TEST_F(KeyedList, GivesBucketsBackAsItShrinks)
{
    std::vector<Element> elements(1000);
    for (uint32_t n = 0; n < elements.size(); n++) {
        elements[n] = {n, std::to_string(n)};
        Push(&elements[n]);
        // Never more than four nodes for a bucket, nor buckets for less than one.
        ASSERT_EQ(index.nCount, model.size());
        ASSERT_LE(index.nCount, 4U << index.nBits);
        ASSERT_LE(1U << index.nBits, index.nCount);
    }
    for (uint32_t n = 0; n < elements.size(); n++) {
        Take(&elements[n], n);
        ASSERT_EQ(index.nCount, model.size());
        ASSERT_LE(1U << index.nBits, 2 * index.nCount + 1);
        ASSERT_TRUE(n + 1 == elements.size() || Find(elements.back()) == &elements.back());
    }
    EXPECT_EQ(index.ppBuckets, nullptr);
}

TEST_F(KeyedList, NodesThatSomebodyElseAppendsAreFound)
{
    std::vector<Element> elements(20);
    for (uint32_t n = 0; n < elements.size(); n++)
        elements[n] = {n, std::to_string(n)};
    for (uint32_t n = 0; n < 8; n++)
        Push(&elements[n]);
    for (Element *pElement : {static_cast<Element *>(nullptr), &elements[8], &elements[3]}) {
        pList = KovaListAppend(pList, pElement);
        model.push_back(pElement);
    }
    for (uint32_t n = 9; n < elements.size(); n++)
        Push(&elements[n]);
    ExpectListIsModel();
    for (const Element &element : elements)
        EXPECT_EQ(Find(element), Expected(element)) << element.name;
    Take(&elements[8], 8);
    Take(&elements[3], 3);
    EXPECT_EQ(Find(elements[8]), nullptr);
    EXPECT_EQ(Find(elements[3]), &elements[3]) << "the one that was appended twice";
    Take(&elements[0], 0);
    ExpectListIsModel();
}

TEST_F(KeyedList, NodesThatSomebodyElsePutsInFrontAreFound)
{
    Element own = {1, "own"};
    Element other = {2, "other"};
    Push(&own);
    KovaList *pNode = KovaListAppend(nullptr, &other);
    pNode->next = pList;
    pList->prev = pNode;
    pList = pNode;
    model.insert(model.begin(), &other);
    EXPECT_EQ(Find(own), &own);
    EXPECT_EQ(Find(other), &other);
    EXPECT_EQ(KovaKeyedTakeFirst(&index, &pList), &other);
    EXPECT_EQ(KovaKeyedTakeFirst(&index, &pList), &own);
    model.clear();
    // Empty again, so everything is known again.
    Push(&own);
    EXPECT_EQ(index.nCount, 1U);
    EXPECT_EQ(Find(own), &own);
}

TEST_F(KeyedList, ListThatSomebodyElseHasEmptiedStartsAnew)
{
    Element element = {1, "a"};
    Push(&element);
    pList = KovaListRemove(pList, &element);
    model.clear();
    EXPECT_EQ(Find(element), nullptr);
    Push(&element);
    EXPECT_EQ(Find(element), &element);
    EXPECT_EQ(index.nCount, 1U);
}

TEST_F(KeyedList, WithoutMemoryForMoreBucketsItGoesOnWithThoseItHas)
{
    std::vector<Element> elements(40);
    for (uint32_t n = 0; n < elements.size(); n++) {
        elements[n] = {n, std::to_string(n)};
        const KovaFailingHeap heap(1); // the node alone
        Push(&elements[n]);
    }
    EXPECT_EQ(index.nBits, 0U);
    for (const Element &element : elements)
        ASSERT_EQ(Find(element), &element);
    std::vector<Element> more(40);
    for (uint32_t n = 0; n < more.size(); n++) {
        more[n] = {1000 + n, std::to_string(1000 + n)};
        if (n == 0) {
            Push(&more[n]);
            EXPECT_EQ(index.nBits, 1U);
        } else {
            const KovaFailingHeap heap(1);
            Push(&more[n]);
        }
    }
    EXPECT_EQ(index.nBits, 1U);
    for (const Element &element : more)
        ASSERT_EQ(Find(element), &element);
    for (Element &element : elements)
        Take(&element, element.nKey);
    for (const Element &element : more)
        ASSERT_EQ(Find(element), &element);
    for (Element &element : more)
        Take(&element, element.nKey);
}

TEST_F(KeyedList, WithoutMemoryNothingIsAppendedAndEverythingFound)
{
    std::vector<Element> elements(40);
    for (uint32_t n = 0; n < elements.size(); n++) {
        elements[n] = {n, std::to_string(n)};
        {
            const KovaFailingHeap heap;
            EXPECT_FALSE(KovaKeyedPush(&index, &pList, n, &elements[n]));
        }
        // A node, but never a bucket.
        const KovaFailingHeap heap(1);
        Push(&elements[n]);
    }
    EXPECT_EQ(index.ppBuckets, nullptr);
    ExpectListIsModel();
    for (Element &element : elements)
        EXPECT_EQ(Find(element), &element) << element.name;
    Take(&elements[11], 11);
    ExpectListIsModel();
}

} // namespace
