#include "kova_live.h"

#include <cstddef>

namespace {

/// By the result with its sign turned.
constexpr char kErrors[][44] = {
    "no error",
    "an argument is missing or out of range",
    "no memory",
    "not an IPv4 address of this machine",
    "the port is taken, or may not be used",
    "no descriptor or no thread could be had",
    "a stream of that path is there already",
    "no such player",
    "no access unit of this codec and form",
    "above a limit",
    "not to be called in a callback",
    "a codec that is not known",
};
static_assert(sizeof(kErrors) / sizeof(kErrors[0]) == 1 - KOVA_LIVE_ERROR_CODEC, "one for each");

} // namespace

extern "C" const char *KovaLiveErrorText(int32_t nResult)
{
    if (nResult == KOVA_LIVE_DROPPED)
        return "the unit was dropped";
    const bool bKnown = nResult <= KOVA_LIVE_OK && nResult >= KOVA_LIVE_ERROR_CODEC;
    return bKnown ? kErrors[static_cast<size_t>(-nResult)] : "an unknown result";
}
