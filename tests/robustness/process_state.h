#pragma once

#include <cstddef>

/// Bytes that the process has allocated and not freed, with and without a
/// sanitizer's allocator.
size_t KovaHeapInUse();

/// Number of threads of the process.
int KovaThreadCount();

/// Number of open descriptors of the process; needs none to tell it.
int KovaDescriptorCount();
