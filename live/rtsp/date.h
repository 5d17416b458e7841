#pragma once

#include <cstddef>
#include <cstdint>

/// Room for any date; those of years with four digits have 29 characters.
constexpr size_t kDateSize = 64;

/// Writes a moment as RFC 1123 has it (RFC 2326, 12.18): "Sun, 06 Nov 1994 08:49:37 GMT", in
/// English whatever the locale says. Right as far as the system's calendar reaches.
/// @param szDate  has kDateSize bytes
void KovaDateWrite(int64_t nSeconds, char *szDate);
