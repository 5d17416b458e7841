#include "foundation/error_text.h"

#include <cstring>

namespace {

/// strerror_r() returns the text with one C library and a code with another.
[[maybe_unused]] const char *TextOf(const char *szResult, const char *)
{
    return szResult;
}

[[maybe_unused]] const char *TextOf(int, const char *szBuffer)
{
    return szBuffer;
}

} // namespace

const char *KovaErrorText(int nError, char *szBuffer)
{
    szBuffer[0] = '\0';
    return TextOf(strerror_r(nError, szBuffer, kErrorTextSize), szBuffer);
}
