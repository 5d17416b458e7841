#pragma once

/// Owns a record until it is released: what leaves a function early frees,
/// unlocks or closes nothing by hand. pfnDestroy takes the record, never null.
/// A template because each record has a destroy operation of its own.
template <typename Record, auto pfnDestroy> class KovaOwner {
public:
    explicit KovaOwner(Record *pRecord) : m_pRecord(pRecord) {}
    ~KovaOwner()
    {
        if (m_pRecord != nullptr)
            pfnDestroy(m_pRecord);
    }
    KovaOwner(const KovaOwner &) = delete;
    KovaOwner &operator=(const KovaOwner &) = delete;

    Record *Get() const
    {
        return m_pRecord;
    }
    Record *operator->() const
    {
        return m_pRecord;
    }
    explicit operator bool() const
    {
        return m_pRecord != nullptr;
    }

    /// Hands the record over to the caller.
    Record *Release()
    {
        Record *pRecord = m_pRecord;
        m_pRecord = nullptr;
        return pRecord;
    }

private:
    Record *m_pRecord;
};
