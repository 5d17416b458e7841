#pragma once

#include "foundation/export.h"

#include <cstdint>

/// Base64 with the standard alphabet (RFC 4648, section 4), "=" padding, no
/// line breaks. Every output ends with a NUL.

/// Length of the encoding of nLength bytes, its NUL included.
KOVA_API int32_t Base64encode_len(int32_t nLength);

/// Encodes nLength bytes into szText, which has room for Base64encode_len()
/// characters. Returns the number of characters written, NUL included.
KOVA_API int32_t Base64encode(char *szText, const char *pBytes, int32_t nLength);

/// The most bytes that decoding szText can write, a NUL included.
KOVA_API int32_t Base64decode_len(const char *szText);

/// Decodes up to the first character outside the alphabet (padding included)
/// and writes a NUL behind the bytes. Returns the number of bytes.
KOVA_API int32_t Base64decode(char *pBytes, const char *szText);
