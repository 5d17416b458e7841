#pragma once

#include "foundation/list.h"

/// A KovaList seen as what it holds: for (Client *p : KovaListOf<Client>(pList)).
/// The next node is taken before the body runs, so the body may remove the
/// current element, but no other. Null entries are passed over. Templates because
/// the list stores untyped pointers.
template <typename Element> class KovaListOf {
public:
    explicit KovaListOf(KovaList *pList) : m_pList(pList) {}

    class Iterator {
    public:
        explicit Iterator(KovaList *pNode)
        {
            Settle(pNode);
        }
        Element *operator*() const
        {
            return static_cast<Element *>(m_pNode->data);
        }
        Iterator &operator++()
        {
            Settle(m_pNext);
            return *this;
        }
        bool operator!=(const Iterator &other) const
        {
            return m_pNode != other.m_pNode;
        }

    private:
        void Settle(KovaList *pNode)
        {
            while (pNode != nullptr && pNode->data == nullptr)
                pNode = pNode->next;
            m_pNode = pNode;
            m_pNext = pNode != nullptr ? pNode->next : nullptr;
        }

        KovaList *m_pNode = nullptr;
        KovaList *m_pNext = nullptr;
    };

    Iterator begin() const
    {
        return Iterator(m_pList);
    }
    Iterator end() const
    {
        return Iterator(nullptr);
    }

private:
    KovaList *m_pList;
};

/// The first element whose field has that value, or null.
template <typename Element, typename Field, typename Value>
Element *KovaListFind(KovaList *pList, Field Element::*pField, const Value &value)
{
    for (Element *pElement : KovaListOf<Element>(pList)) {
        if (pElement->*pField == value)
            return pElement;
    }
    return nullptr;
}

/// The first element that pfnMatches accepts, or null.
template <typename Element, typename Matches>
Element *KovaListFindIf(KovaList *pList, const Matches &pfnMatches)
{
    for (Element *pElement : KovaListOf<Element>(pList)) {
        if (pfnMatches(pElement))
            return pElement;
    }
    return nullptr;
}

/// Removes the first node and returns its element; null when the list is empty,
/// or when that node held none. ppTail may be null.
template <typename Element> Element *KovaListTakeFirstOf(KovaList **ppList, KovaList **ppTail)
{
    return static_cast<Element *>(KovaListTakeFirst(ppList, ppTail));
}
