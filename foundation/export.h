#pragma once

/// Marks a function or a variable as part of the library's C interface: C
/// linkage, plain name, visible. Everything else stays hidden.
#define KOVA_API extern "C" __attribute__((visibility("default")))
