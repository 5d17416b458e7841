#pragma once

#include <cstdio>
#include <functional>

/// The replies of a server that is measured: a line-buffered copy of standard output, of which
/// nothing else is written, because what libraries print is led to standard error. Null when there
/// is none.
FILE *KovaOpenReplies();

/// Tells where players may come ("port P"), and then obeys lines from standard input, each answered
/// with "ok", until "quit" or its end: "rate K" (kbit/s of each stream; 0 for next to nothing).
/// Closes pReplies.
void KovaObeyLines(FILE *pReplies, unsigned nPort, const std::function<void(unsigned)> &setRate);
