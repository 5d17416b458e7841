#pragma once

#include <string_view>

/// Requires that the text is exactly one of the responses that a server may give.
void KovaCheckResponse(std::string_view text);
