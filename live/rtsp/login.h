#pragma once

#include "kova_live.h"
#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <cstdint>

/// Users of a server or a stream: names and the two digests of name, realm and
/// password; no password. Immutable once made.
struct KovaLoginUsers;

/// Null users and 0 count: *ppUsers is null and the result OK: nobody needs a login.
/// @return KOVA_LIVE_OK, ERROR_ARGUMENT (a name with ':' or '"', empty, or null), ERROR_MEMORY
int32_t KovaLoginUsersCreate(const KovaLiveUser *pUsers, uint32_t nCount, const char *szRealm,
                             KovaLoginUsers **ppUsers);
void KovaLoginUsersDestroy(KovaLoginUsers *pUsers);

/// One server's secret for nonces, and who failed how often. Used by any thread.
struct KovaLogin;
KovaLogin *KovaLoginCreate(const char *szRealm);
void KovaLoginDestroy(KovaLogin *pLogin);

constexpr size_t kLoginNonceSize = 65;
constexpr size_t kLoginUserSize = 48;

/// What one connection has of a login. Zeroed at the beginning.
struct KovaLoginState {
    char szNonce[kLoginNonceSize]; ///< the last one that it was given
    uint32_t nCount;               ///< highest nonce count seen with it
    uint64_t nGiven;               ///< µs, monotonic
    char szUser[kLoginUserSize];   ///< who passed; "" before
};

enum KovaLoginVerdict : uint8_t {
    kLoginPassed,
    kLoginChallenge, ///< 401: no Authorization, wrong, or unknown user
    kLoginStale,     ///< 401 with stale=true: right but with an old nonce or a replayed count
    kLoginSlow,      ///< too many failures of that address lately: answer 401 later (nDelayMs)
};

/// Checks a request (RFC 7616). Comparison takes the same time wherever texts differ.
/// @param nAddress  the peer's IPv4 address, for counting failures (bounded table)
/// @param szPath    the stream's path: the `uri` of the answer may be the request's URL or the
///                  stream's base with or without host
/// @param nNow      µs, monotonic
/// @param pDelayMs  kLoginSlow, kLoginChallenge after a wrong answer: milliseconds to wait
KovaLoginVerdict KovaLoginCheck(KovaLogin *pLogin, const KovaLoginUsers *pUsers,
                                KovaLoginState *pState, const KovaRequest &request,
                                const char *szPath, uint32_t nAddress, uint64_t nNow,
                                uint32_t *pDelayMs);

/// Writes the two WWW-Authenticate lines (SHA-256 first, MD5 last, one nonce) with their
/// line ends, and gives the connection a new nonce. False when they do not fit or there
/// is no randomness.
bool KovaLoginChallenge(KovaLogin *pLogin, KovaLoginState *pState, bool bStale, uint64_t nNow,
                        char *szText, size_t nCapacity);
