#include "kova_live.h"

extern "C" const char *KovaLiveErrorText(int32_t nResult)
{
    switch (nResult) {
    case KOVA_LIVE_OK:
        return "no error";
    case KOVA_LIVE_DROPPED:
        return "the unit was dropped";
    case KOVA_LIVE_ERROR_ARGUMENT:
        return "an argument is missing or out of range";
    case KOVA_LIVE_ERROR_MEMORY:
        return "no memory";
    case KOVA_LIVE_ERROR_ADDRESS:
        return "not an IPv4 address of this machine";
    case KOVA_LIVE_ERROR_PORT:
        return "the port is taken, or may not be used";
    case KOVA_LIVE_ERROR_SYSTEM:
        return "no descriptor or no thread could be had";
    case KOVA_LIVE_ERROR_EXISTS:
        return "a stream of that path is there already";
    case KOVA_LIVE_ERROR_NOT_FOUND:
        return "no such player";
    case KOVA_LIVE_ERROR_DATA:
        return "no access unit of this codec and form";
    case KOVA_LIVE_ERROR_TOO_LARGE:
        return "above a limit";
    case KOVA_LIVE_ERROR_IN_CALLBACK:
        return "not to be called in a callback";
    case KOVA_LIVE_ERROR_CODEC:
        return "a codec that is not known";
    default:
        return "an unknown result";
    }
}
