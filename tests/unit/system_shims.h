#pragma once

#include <atomic>
#include <vector>

/// Lets rand() return these values, over and over, while the object lives.
/// One object at a time.
class KovaFixedRand {
public:
    explicit KovaFixedRand(const std::vector<int> &values);
    ~KovaFixedRand();
    KovaFixedRand(const KovaFixedRand &) = delete;
    KovaFixedRand &operator=(const KovaFixedRand &) = delete;

    /// How many values were drawn so far.
    int Draws() const;
};

/// System calls that a test can let fail.
enum KovaShimmedCall {
    kShimSocket,
    kShimBind,
    kShimSetsockopt,
    kShimListen,
    kShimAccept, ///< accept() and accept4()
    kShimThread, ///< pthread_create()
    kShimCount
};

/// Lets the calls after the next nGood ones fail with an error number, nTimes
/// in a row, in whatever thread they are made. It ends with the object. One
/// object at a time.
class KovaFailingCall {
public:
    KovaFailingCall(KovaShimmedCall call, int nError, int nGood = 0, int nTimes = 1000000);
    ~KovaFailingCall();
    KovaFailingCall(const KovaFailingCall &) = delete;
    KovaFailingCall &operator=(const KovaFailingCall &) = delete;

    /// How many calls have failed so far.
    int Failed() const;
};
