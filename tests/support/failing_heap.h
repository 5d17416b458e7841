#pragma once

/// Lets calloc() and mmap(), from which the library takes all its records and packets,
/// fail in the calling thread while this object lives. Other threads, and what
/// the tests allocate themselves, are not touched. One object per thread.
class KovaFailingHeap {
public:
    /// The first nGood allocations still succeed, and those behind the next nBad ones.
    explicit KovaFailingHeap(int nGood = 0, int nBad = 1000000);
    ~KovaFailingHeap();
    KovaFailingHeap(const KovaFailingHeap &) = delete;
    KovaFailingHeap &operator=(const KovaFailingHeap &) = delete;

    /// How many allocations have failed so far.
    int Failed() const;
};
