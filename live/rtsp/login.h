#pragma once

#include "kova_live.h"
#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <cstdint>

/// Users of a server or a stream: names and the two digests of name, realm and
/// password; no password. Immutable once made.
struct KovaLoginUsers;

constexpr uint32_t kLoginMaxUsers = 65535;
constexpr size_t kLoginRealmSize = 128; ///< characters with the NUL

/// Whether text can be a realm: 1 to 127 bytes, without control bytes, '"' and '\\'.
bool KovaLoginRealmAllowed(const char *szRealm);

/// 0 count: *ppUsers is null and the result OK: nobody needs a login. Of several users of
/// one name the first one counts. Passwords are not kept.
/// @return KOVA_LIVE_OK, ERROR_MEMORY, ERROR_ARGUMENT (null; too many; a name that is empty or has
///         ':', '"' or control bytes; a realm that is not allowed)
int32_t KovaLoginUsersCreate(const KovaLiveUser *pUsers, uint32_t nCount, const char *szRealm,
                             KovaLoginUsers **ppUsers);
/// Null is ignored.
void KovaLoginUsersDestroy(KovaLoginUsers *pUsers);

/// One server's secret for nonces, and who failed how often. Used by any thread.
struct KovaLogin;

/// Null without memory, or for a realm that is not allowed.
KovaLogin *KovaLoginCreate(const char *szRealm);
/// Nobody may be using it any more. Null is ignored.
void KovaLoginDestroy(KovaLogin *pLogin);

constexpr size_t kLoginNonceSize = 65;
constexpr uint64_t kLoginNonceLifetime = 300 * 1000000U; ///< µs; a nonce is stale then
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
    kLoginSlow,      ///< too many failures of that address lately: answer 401 later (nDelayMs);
                     ///< with stale=true, as the answer was not looked at: a player whose
                     ///< password is right tries again by itself then
};

/// Checks a request (RFC 7616). Comparison takes the same time wherever texts differ.
/// An answer counts with the nonce that this connection was given last, within its
/// lifetime; with a nonce count each time a higher one. A right answer with another nonce
/// of this server is stale. With one that is not this server's, for another URL, realm or
/// algorithm, it is no failure: a challenge without delay.
/// Who has passed on this connection is never slow, until an answer of his is wrong.
/// @param nAddress  the peer's IPv4 address, for counting failures (bounded table)
/// @param szPath    the stream's path: the `uri` of the answer may be the request's URL or the
///                  stream's base with or without host
/// @param nNow      µs, monotonic
/// @param pUsers    null: passed
/// @param pDelayMs  kLoginSlow, kLoginChallenge after a wrong answer: milliseconds to wait
KovaLoginVerdict KovaLoginCheck(KovaLogin *pLogin, const KovaLoginUsers *pUsers,
                                KovaLoginState *pState, const KovaRequest &request,
                                const char *szPath, uint32_t nAddress, uint64_t nNow,
                                uint32_t *pDelayMs);

/// How many answers were wrong so far: those that KovaLoginCheck did not look at, that were stale,
/// or not meant for this server are none of them.
uint64_t KovaLoginFailed(KovaLogin *pLogin);

/// Writes the two WWW-Authenticate lines (SHA-256 first, MD5 last, one nonce) with their
/// line ends, and gives the connection a new nonce. False when they do not fit or there
/// is no randomness.
bool KovaLoginChallenge(KovaLogin *pLogin, KovaLoginState *pState, bool bStale, uint64_t nNow,
                        char *szText, size_t nCapacity);
