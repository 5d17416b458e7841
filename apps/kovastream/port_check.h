#pragma once

#include "options.h"

namespace kovastream {

/// Throws Failure when the TCP port that the server is to listen on cannot be had, with the reason
/// and what to do: servers' own results do not tell one reason from another.
void CheckPort(const Options &options);

} // namespace kovastream
