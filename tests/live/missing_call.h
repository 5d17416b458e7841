#pragma once

#include <cstdint>

constexpr uint32_t kAnyLevel = 0xFFFFFFFF;

/// A system call that a kernel lacks.
struct KovaMissingCall {
    const char *szName;
    long nCall;      ///< SYS_...
    uint32_t nLevel; ///< of getsockopt() and setsockopt(): only those of it
    int nError;      ///< what it fails with
};

/// Lets the call fail in this process from now on, whoever makes it. Where the kernel takes no
/// filter (an emulator passes none on), only what the test program's own objects call through the C
/// library fails: the library's calls do. For a child process that ends behind the test.
/// @return false: neither can be done
bool KovaTakeCallAway(const KovaMissingCall &missing);
