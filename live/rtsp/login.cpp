#include "live/rtsp/login.h"

#include "foundation/heap.h"
#include "foundation/hex.h"
#include "foundation/mutex.h"
#include "foundation/random.h"
#include "foundation/text.h"
#include "foundation/wipe.h"
#include "live/rtsp/digest_header.h"
#include "live/rtsp/digest_response.h"
#include "live/rtsp/login_failures.h"
#include "live/rtsp/login_nonce.h"
#include "live/rtsp/login_users.h"
#include "live/rtsp/request_url.h"
#include "live/rtsp/words.h"

#include <cstdlib>
#include <cstring>

struct KovaLogin {
    char szRealm[kLoginRealmSize];
    uint8_t key[kLoginKeySize];
    bool bKey; ///< false: there was no randomness, and nobody can log in
    KovaMutex mutex;
    KovaLoginFailures failures KOVA_GUARDED_BY(mutex);
    uint64_t nFailed KOVA_GUARDED_BY(mutex); ///< wrong answers of all addresses
};

namespace {

/// Which of the two hashes an answer is made with; null for another.
const KovaHashAlgorithm *AlgorithmOf(const KovaDigestHeader &header)
{
    const std::string_view name = header.values[kDigestAlgorithm];
    if (KovaWordIs(name, "MD5"))
        return &kHashMd5;
    return KovaWordIs(name, "SHA-256") ? &kHashSha256 : nullptr;
}

/// The answer is for this request. Players name the request's URL, or that of the whole
/// stream for a request to one of its tracks, or its path alone.
bool IsUriOf(std::string_view uri, const KovaRequest &request, const char *szPath)
{
    if (KovaDigestValueIs(uri, request.url))
        return true;
    const KovaRequestUrl parsed = KovaRequestUrlParse(uri);
    return szPath != nullptr && parsed.bValid && !parsed.bStar &&
           strcmp(parsed.szPath, szPath) == 0;
}

/// With a qop, count and cnonce are part of the response (RFC 7616, section 3.4.1).
bool IsWhole(const KovaDigestHeader &header)
{
    const bool bQop = (header.nFound & KovaDigestBit(kDigestQop)) != 0;
    unsigned nNeeded = KovaDigestBit(kDigestUserName) | KovaDigestBit(kDigestRealm) |
                       KovaDigestBit(kDigestNonce) | KovaDigestBit(kDigestUri) |
                       KovaDigestBit(kDigestResponse);
    if (bQop)
        nNeeded |= KovaDigestBit(kDigestCnonce) | KovaDigestBit(kDigestCount);
    return (header.nFound & nNeeded) == nNeeded &&
           (!bQop || KovaWordIs(header.values[kDigestQop], "auth"));
}

/// Whether the answer is one to a challenge of this server at all, so that only its
/// response can be wrong. Anything else costs the address nothing.
bool IsAnswer(const KovaLogin &login, const KovaDigestHeader &header, const KovaRequest &request,
              const char *szPath)
{
    return IsWhole(header) && KovaDigestValueIs(header.values[kDigestRealm], login.szRealm) &&
           header.values[kDigestOpaque].empty() &&
           IsUriOf(header.values[kDigestUri], request, szPath) && login.bKey &&
           KovaLoginNonceIsOwn(login.key, header.values[kDigestNonce]);
}

/// A name that nobody has takes as long as a wrong password.
bool IsRight(const KovaLoginUser *pUser, const KovaHashAlgorithm &algorithm,
             const KovaRequest &request, const KovaDigestHeader &header)
{
    static const KovaLoginUser nobody = {};
    const KovaLoginUser &user = pUser != nullptr ? *pUser : nobody;
    const uint8_t *pSecret = &algorithm == &kHashMd5 ? user.md5 : user.sha256;
    uint8_t wanted[kHashMaxSize];
    uint8_t given[kHashMaxSize];
    KovaDigestResponse(algorithm, pSecret, request.methodText, header, wanted);
    const bool bDigits = KovaHexRead(header.values[kDigestResponse], given, algorithm.nSize);
    const bool bSame = bDigits && KovaLoginSame(wanted, given, algorithm.nSize);
    KovaWipe(wanted, sizeof(wanted));
    return bSame && pUser != nullptr;
}

/// Another connection's nonce does not count here: without a memory of all counts, nobody
/// could tell a second use of one from a copied one. Takes note of the count.
bool IsFresh(KovaLoginState *pState, const KovaDigestHeader &header, uint64_t nNow)
{
    if (!KovaDigestValueIs(header.values[kDigestNonce], pState->szNonce) ||
        nNow - pState->nGiven >= kLoginNonceLifetime)
        return false;
    if ((header.nFound & KovaDigestBit(kDigestCount)) == 0)
        return true;
    uint32_t nCount;
    if (!KovaHexNumber(header.values[kDigestCount], &nCount) || nCount <= pState->nCount)
        return false;
    pState->nCount = nCount;
    return true;
}

/// Others behind the same address must not disturb who is in already.
bool IsInAlready(const KovaLoginState &state, const KovaLoginUser *pUser)
{
    return pUser != nullptr && strncmp(state.szUser, pUser->szName, kLoginUserSize - 1) == 0;
}

uint32_t WaitOf(KovaLogin *pLogin, uint32_t nAddress, uint64_t nNow)
{
    const KovaMutexLock lock(&pLogin->mutex, kRankLeaf);
    return KovaLoginFailuresWait(&pLogin->failures, nAddress, nNow);
}

uint32_t Note(KovaLogin *pLogin, uint32_t nAddress, uint64_t nNow, bool bRight)
{
    const KovaMutexLock lock(&pLogin->mutex, kRankLeaf);
    pLogin->nFailed += bRight ? 0 : 1;
    return KovaLoginFailuresNote(&pLogin->failures, nAddress, nNow, bRight);
}

} // namespace

KovaLogin *KovaLoginCreate(const char *szRealm)
{
    if (!KovaLoginRealmAllowed(szRealm))
        return nullptr;
    auto *pLogin = KovaHeapNew<KovaLogin>();
    if (pLogin == nullptr)
        return nullptr;
    KovaTextCopy(pLogin->szRealm, sizeof(pLogin->szRealm), szRealm);
    pLogin->bKey = KovaRandomFill(pLogin->key, sizeof(pLogin->key));
    KovaMutexInit(&pLogin->mutex);
    return pLogin;
}

void KovaLoginDestroy(KovaLogin *pLogin)
{
    if (pLogin == nullptr)
        return;
    KovaMutexDestroy(&pLogin->mutex);
    KovaWipe(pLogin->key, sizeof(pLogin->key));
    free(pLogin);
}

KovaLoginVerdict KovaLoginCheck(KovaLogin *pLogin, const KovaLoginUsers *pUsers,
                                KovaLoginState *pState, const KovaRequest &request,
                                const char *szPath, uint32_t nAddress, uint64_t nNow,
                                uint32_t *pDelayMs)
{
    *pDelayMs = 0;
    if (pUsers == nullptr)
        return kLoginPassed;
    KovaDigestHeader header;
    if (!KovaDigestHeaderParse(KovaRequestHeaderOf(request, "Authorization"), &header) ||
        !IsAnswer(*pLogin, header, request, szPath))
        return kLoginChallenge;
    const KovaHashAlgorithm *pAlgorithm = AlgorithmOf(header);
    if (pAlgorithm == nullptr)
        return kLoginChallenge;
    const KovaLoginUser *pUser = KovaLoginUsersFind(*pUsers, header.values[kDigestUserName]);
    if (!IsInAlready(*pState, pUser)) {
        *pDelayMs = WaitOf(pLogin, nAddress, nNow);
        if (*pDelayMs != 0)
            return kLoginSlow;
    }
    if (!IsRight(pUser, *pAlgorithm, request, header)) {
        pState->szUser[0] = '\0';
        *pDelayMs = Note(pLogin, nAddress, nNow, false);
        return kLoginChallenge;
    }
    if (!IsFresh(pState, header, nNow))
        return kLoginStale;
    KovaTextCopy(pState->szUser, sizeof(pState->szUser), pUser->szName);
    Note(pLogin, nAddress, nNow, true);
    return kLoginPassed;
}

uint64_t KovaLoginFailed(KovaLogin *pLogin)
{
    const KovaMutexLock lock(&pLogin->mutex, kRankLeaf);
    return pLogin->nFailed;
}

bool KovaLoginChallenge(KovaLogin *pLogin, KovaLoginState *pState, bool bStale, uint64_t nNow,
                        char *szText, size_t nCapacity)
{
    if (nCapacity == 0)
        return false;
    szText[0] = '\0';
    char szNonce[kLoginNonceSize];
    if (!pLogin->bKey || !KovaLoginNonceMake(pLogin->key, nNow, szNonce))
        return false;
    size_t nLength = 0;
    // Realm, nonce and stale come first: some players read them by their place. Players
    // that know one algorithm take the last line, those that know both the first.
    static constexpr char kAlgorithms[][8] = {"SHA-256", "MD5"};
    for (const char *szAlgorithm : kAlgorithms) {
        if (!KovaTextAppend(szText, nCapacity, &nLength,
                            "WWW-Authenticate: Digest realm=\"%s\", nonce=\"%s\", %salgorithm=%s, "
                            "qop=\"auth\"\r\n",
                            pLogin->szRealm, szNonce, bStale ? "stale=true, " : "", szAlgorithm)) {
            szText[0] = '\0';
            return false;
        }
    }
    memcpy(pState->szNonce, szNonce, sizeof(szNonce));
    pState->nCount = 0;
    pState->nGiven = nNow;
    return true;
}
