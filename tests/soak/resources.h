#pragma once

#include <cstddef>
#include <string>

/// What a process holds at one moment.
struct KovaResources {
    int nDescriptors;
    int nThreads;
    size_t nHeap; ///< bytes that are allocated
};

KovaResources KovaTakeResources();

/// Waits until descriptors and threads are as they were, because threads that
/// have ended need a moment to be gone, and compares. Empty: the heap is within
/// nHeapSlack bytes, too; otherwise what differs.
std::string KovaCompareResources(const KovaResources &before, size_t nHeapSlack,
                                 KovaResources *pAfter);

/// Prints both, in the name of a mode.
void KovaReportResources(const char *szMode, const KovaResources &before,
                         const KovaResources &after);

/// Sets the C library's heap up so that freed memory counts as free: its caches
/// per thread would blur the figure. Runs the program anew if need be.
void KovaUsePlainHeap(char **ppArguments);
