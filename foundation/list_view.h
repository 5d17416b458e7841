#pragma once

#include "foundation/list.h"

/// A KovaList seen as what it holds: for (Client *p : KovaListOf<Client>(pList)).
/// The next node is taken before the body runs, so the body may remove the
/// current element, but no other. Null entries are passed over. Templates because
/// the list stores untyped pointers.
template <typename Element> class KovaListOf {
public:
    explicit KovaListOf(KovaList *pList) : m_pList(pList) {}

    struct End {};

    /// Comes to its element when it is compared with the end, as loops do once a
    /// round: the code that passes over null entries then stands there once.
    class Iterator {
    public:
        explicit Iterator(KovaList *pNode) : m_pNext(pNode) {}
        bool operator!=(End)
        {
            m_pElement = nullptr;
            while (m_pNext != nullptr && m_pElement == nullptr) {
                m_pElement = static_cast<Element *>(m_pNext->data);
                m_pNext = m_pNext->next;
            }
            return m_pElement != nullptr;
        }
        Element *operator*() const
        {
            return m_pElement;
        }
        Iterator &operator++()
        {
            return *this;
        }

    private:
        KovaList *m_pNext;
        Element *m_pElement = nullptr;
    };

    Iterator begin() const
    {
        return Iterator(m_pList);
    }
    End end() const
    {
        return {};
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
/// or when that node held none.
template <typename Element> Element *KovaListTakeFirstOf(KovaList *&pList, KovaList *&pTail)
{
    return static_cast<Element *>(KovaListTakeFirst(&pList, &pTail));
}
template <typename Element> Element *KovaListTakeFirstOf(KovaList *&pList, std::nullptr_t)
{
    return static_cast<Element *>(KovaListTakeFirst(&pList, nullptr));
}
