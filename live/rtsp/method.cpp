#include "live/rtsp/method.h"

namespace {

// In the order of KovaMethod, one NUL behind each.
constexpr char kMethods[] = "OPTIONS\0DESCRIBE\0SETUP\0PLAY\0PAUSE\0TEARDOWN\0GET_PARAMETER\0"
                            "SET_PARAMETER\0ANNOUNCE\0RECORD\0REDIRECT";

} // namespace

KovaMethod KovaMethodOf(std::string_view word)
{
    const char *szMethod = kMethods;
    uint8_t nMethod = kMethodOptions;
    while (nMethod < kMethodUnknown) {
        const std::string_view method = szMethod;
        if (word == method)
            break;
        szMethod += method.size() + 1;
        ++nMethod;
    }
    return static_cast<KovaMethod>(nMethod);
}
