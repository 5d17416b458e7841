#pragma once

#include "foundation/export.h"

#include <cstdint>

/// Copies the reason phrase of a status code (RFC 2326, section 7.1.1) to
/// szReason, without a terminator: the buffer (kReasonSize bytes) is cleared
/// beforehand. For a code without a phrase nothing is written.
KOVA_API void ResponseStatusSetting(int32_t nStatus, char *szReason);
