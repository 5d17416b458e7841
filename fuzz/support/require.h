#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the run as a finding when a property does not hold.
inline void KovaRequire(bool bHolds, const char *szProperty)
{
    if (bHolds)
        return;
    fprintf(stderr, "property violated: %s\n", szProperty);
    abort();
}
