#include "foundation/hex.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "live/rtsp/digest_header.h"
#include "live/rtsp/digest_response.h"
#include "live/rtsp/login.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

// A login over two connections of a server. Nobody passes who has not calculated the response with
// a password; a right answer passes once with each count, on the connection that was given its
// nonce, in its time; whatever else is in a header is a challenge.
//
// Input: steps, each a byte, with what it needs behind it. In texts "@n" stands for the nonce that
// the connection has.

namespace {

constexpr char kUrl[] = "rtsp://10.0.0.2/cam";

struct Run {
    KovaLogin *pLogin = nullptr;
    KovaLoginUsers *pUsers = nullptr;
    KovaLoginState states[2] = {};
    uint64_t nNow = 1000000;
};

KovaLoginVerdict Check(Run *pRun, unsigned nState, const std::string &header, uint32_t nAddress)
{
    // On the heap without a NUL: reading behind it is seen.
    const std::unique_ptr<char[]> pText(new char[header.size()]);
    memcpy(pText.get(), header.data(), header.size());
    KovaRequest request = {};
    request.methodText = "DESCRIBE";
    request.url = kUrl;
    request.nHeaders = 1;
    request.headers[0] = {"Authorization", {pText.get(), header.size()}};
    uint32_t nDelay = 0xFFFFFFFF;
    const KovaLoginVerdict verdict =
        KovaLoginCheck(pRun->pLogin, pRun->pUsers, &pRun->states[nState], request, "cam", nAddress,
                       pRun->nNow, &nDelay);
    KovaRequire(nDelay <= 2000, "nobody waits for more than two seconds");
    KovaRequire(verdict == kLoginSlow || verdict == kLoginChallenge || nDelay == 0,
                "who is right does not wait");
    KovaRequire(verdict != kLoginSlow || nDelay != 0, "who is slow waits");
    return verdict;
}

void Challenge(Run *pRun, unsigned nState, bool bStale, size_t nCapacity)
{
    const std::unique_ptr<char[]> pText(new char[nCapacity]);
    const std::string before = pRun->states[nState].szNonce;
    const bool bFits = KovaLoginChallenge(pRun->pLogin, &pRun->states[nState], bStale, pRun->nNow,
                                          pText.get(), nCapacity);
    KovaRequire(bFits == (before != pRun->states[nState].szNonce), "a challenge is a new nonce");
    if (nCapacity == 0)
        return;
    const size_t nLength = strnlen(pText.get(), nCapacity);
    KovaRequire(nLength < nCapacity, "a challenge is terminated");
    KovaRequire(bFits == (nLength != 0), "a challenge is whole or not there");
}

std::string WithNonce(std::string text, const Run &run, unsigned nState)
{
    for (size_t nAt = text.find("@n"); nAt != std::string::npos; nAt = text.find("@n", nAt + 1))
        text.replace(nAt, 2, run.states[nState].szNonce);
    return text;
}

/// Nobody makes up a right response: the password is not in the input.
void CheckAnything(Run *pRun, unsigned nState, const std::string &text)
{
    const std::string header = WithNonce(text, *pRun, nState);
    const KovaLoginVerdict verdict = Check(pRun, nState, header, nState);
    KovaRequire(verdict == kLoginChallenge || verdict == kLoginSlow, "a guess does not pass");
    KovaDigestHeader parsed;
    if (!KovaDigestHeaderParse(header, &parsed))
        KovaRequire(verdict == kLoginChallenge, "what is no answer is no guess");
}

std::string RightAnswer(const Run &run, unsigned nGiven, uint32_t nCount, bool bSha256)
{
    const KovaHashAlgorithm &algorithm = bSha256 ? kHashSha256 : kHashMd5;
    char count[9];
    snprintf(count, sizeof(count), "%08x", nCount);
    std::string text = "Digest username=\"u\", realm=\"r\", nonce=\"@n\", uri=\"/cam\", algorithm=";
    text += bSha256 ? "SHA-256" : "MD5";
    if (nCount != 0)
        text += std::string(", qop=auth, cnonce=\"c\", nc=") + count;
    text = WithNonce(text, run, nGiven);
    KovaDigestHeader header;
    KovaRequire(KovaDigestHeaderParse(text, &header), "an answer is read");
    uint8_t secret[kHashMaxSize];
    uint8_t response[kHashMaxSize];
    char digits[2 * kHashMaxSize + 1];
    KovaDigestSecret(algorithm, "u", "r", "p", secret);
    KovaDigestResponse(algorithm, secret, "DESCRIBE", header, response);
    KovaHexWrite(digits, response, algorithm.nSize);
    return text + ", response=" + digits;
}

void CheckRight(Run *pRun, unsigned nState, unsigned nGiven, uint32_t nCount, bool bSha256)
{
    const bool bNonce = pRun->states[nGiven].szNonce[0] != '\0';
    const KovaLoginState before = pRun->states[nState];
    const KovaLoginVerdict verdict =
        Check(pRun, nState, RightAnswer(*pRun, nGiven, nCount, bSha256), nState);
    if (!bNonce) {
        KovaRequire(verdict == kLoginChallenge, "no nonce, no answer");
        return;
    }
    const bool bFresh = nState == nGiven && pRun->nNow - before.nGiven < kLoginNonceLifetime &&
                        (nCount == 0 || nCount > before.nCount);
    KovaRequire(verdict == kLoginSlow || verdict == (bFresh ? kLoginPassed : kLoginStale),
                "a right answer passes, or is stale");
    KovaRequire(verdict != kLoginPassed || strcmp(pRun->states[nState].szUser, "u") == 0,
                "who passed is known");
}

void Step(Run *pRun, KovaFuzzInput *pInput)
{
    const uint8_t nStep = pInput->Byte();
    const unsigned nState = nStep >> 7;
    switch (nStep % 4) {
    case 0:
        Challenge(pRun, nState, (nStep & 4) != 0, (nStep & 8) != 0 ? pInput->Below(512) : 512);
        break;
    case 1:
        CheckRight(pRun, nState, nStep >> 6 & 1, nStep >> 2 & 7, (nStep & 32) != 0);
        break;
    case 2:
        CheckAnything(pRun, nState, pInput->Text(pInput->Word() % 1024));
        break;
    default:
        pRun->nNow += uint64_t{pInput->Word()} * 10000;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    const KovaLiveUser user = {"u", "p"};
    Run run;
    run.pLogin = KovaLoginCreate("r");
    KovaRequire(run.pLogin != nullptr, "there is a login");
    KovaRequire(KovaLoginUsersCreate(&user, 1, "r", &run.pUsers) == KOVA_LIVE_OK, "and a user");
    KovaFuzzInput input(pData, nSize);
    while (!input.IsEmpty())
        Step(&run, &input);
    KovaLoginUsersDestroy(run.pUsers);
    KovaLoginDestroy(run.pLogin);
    return 0;
}
