#include "foundation/list_view.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Element {
    int nKey;
};

class ListView : public testing::Test {
protected:
    ~ListView() override
    {
        while (m_pList != nullptr)
            KovaListTakeFirst(&m_pList, nullptr);
    }

    void Add(Element *pElement)
    {
        KovaListPush(&m_pList, pElement);
    }

    std::vector<int> Keys() const
    {
        std::vector<int> keys;
        for (const Element *pElement : KovaListOf<Element>(m_pList))
            keys.push_back(pElement->nKey);
        return keys;
    }

    KovaList *m_pList = nullptr;
    Element m_one = {1};
    Element m_two = {2};
    Element m_three = {3};
};

TEST_F(ListView, AnEmptyListHasNoElements)
{
    EXPECT_TRUE(Keys().empty());
}

TEST_F(ListView, NullEntriesArePassedOver)
{
    Add(nullptr);
    Add(&m_one);
    Add(nullptr);
    Add(nullptr);
    Add(&m_two);
    Add(nullptr);
    EXPECT_EQ(Keys(), (std::vector<int>{1, 2}));
}

TEST_F(ListView, TheBodyMayRemoveTheCurrentElement)
{
    Add(&m_one);
    Add(&m_two);
    Add(&m_three);
    std::vector<int> seen;
    for (Element *pElement : KovaListOf<Element>(m_pList)) {
        seen.push_back(pElement->nKey);
        KovaListTake(&m_pList, nullptr, pElement);
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(m_pList, nullptr);
}

TEST_F(ListView, FindsTheFirstElementWithAField)
{
    Element other = {2};
    Add(nullptr);
    Add(&m_one);
    Add(&m_two);
    Add(&other);
    EXPECT_EQ(KovaListFind(m_pList, &Element::nKey, 2), &m_two);
    EXPECT_EQ(KovaListFind(m_pList, &Element::nKey, 7), nullptr);
    EXPECT_EQ(KovaListFindIf<Element>(m_pList, [](const Element *p) { return p->nKey > 1; }),
              &m_two);
    EXPECT_EQ(KovaListFindIf<Element>(m_pList, [](const Element *) { return false; }), nullptr);
}

TEST_F(ListView, TakesTheFirstElement)
{
    Add(&m_one);
    Add(&m_two);
    EXPECT_EQ(KovaListTakeFirstOf<Element>(m_pList, nullptr), &m_one);
    EXPECT_EQ(Keys(), (std::vector<int>{2}));
}

} // namespace
