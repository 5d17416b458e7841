#pragma once

#include "live/rtsp/request_reader.h"

#include <string_view>

/// The method of a request's first word. Methods are compared with case (RFC 2326, 6.1).
KovaMethod KovaMethodOf(std::string_view word);
