#pragma once

/// Marks a function or a variable as part of the classic interface: C linkage, plain name, visible.
/// Everything else stays hidden, and these do too in a library that is built without that
/// interface: what of them nothing calls there is then left out by the linker.
#ifdef KOVA_WITHOUT_CLASSIC
#define KOVA_API extern "C"
#else
#define KOVA_API extern "C" __attribute__((visibility("default")))
#endif
