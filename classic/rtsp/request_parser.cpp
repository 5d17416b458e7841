#include "classic/rtsp/request_parser.h"

#include "foundation/text.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

struct MethodName {
    KovaRtspMethod method;
    const char *szName;
};

/// In the order in which they are looked for.
constexpr MethodName kMethods[] = {
    {kMethodOptions, "OPTIONS"},
    {kMethodDescribe, "DESCRIBE"},
    {kMethodSetup, "SETUP"},
    {kMethodPlay, "PLAY"},
    {kMethodGetParameter, "GET_PARAMETER"},
    {kMethodTeardown, "TEARDOWN"},
};

constexpr char kScheme[] = "rtsp:/";
constexpr int32_t kSchemeLength = sizeof(kScheme) - 1;
constexpr int32_t kSchemeMargin = 7; // the scheme and one byte behind it lie before the end
constexpr std::string_view kVersion = "RTSP/";
constexpr std::string_view kCSeq = "CSeq:";
constexpr int32_t kTrackPrefix = 9; // "/trackID=", skipped without a look
constexpr int32_t kTrackDigits = 4;
constexpr size_t kNumberDigits = 5;

bool IsBlank(char nCharacter)
{
    return nCharacter == ' ';
}

bool IsBlankOrTab(char nCharacter)
{
    return nCharacter == ' ' || nCharacter == '\t';
}

bool IsLineEnd(char nCharacter)
{
    return nCharacter == '\r' || nCharacter == '\n';
}

/// Position of a text at or behind nFrom, byte by byte; -1 when it is absent.
int32_t Find(const KovaRequestScan *pScan, std::string_view text, int32_t nFrom)
{
    // memmem: string_view's own search would be a quarter of a KiB in the library.
    if (nFrom > pScan->nLength)
        return -1;
    const void *pFound = memmem(pScan->szText + nFrom, static_cast<size_t>(pScan->nLength - nFrom),
                                text.data(), text.size());
    return pFound != nullptr
               ? static_cast<int32_t>(static_cast<const char *>(pFound) - pScan->szText)
               : -1;
}

bool IsSchemeAt(const KovaRequestScan *pScan, int32_t nPosition)
{
    for (int32_t nIndex = 0; nIndex < kSchemeLength; nIndex++) {
        const char nCharacter = pScan->szText[nPosition + nIndex];
        const char nLower = nCharacter >= 'A' && nCharacter <= 'Z'
                                ? static_cast<char>(nCharacter - 'A' + 'a')
                                : nCharacter;
        if (nLower != kScheme[nIndex])
            return false;
    }
    return true;
}

/// The number that at most kNumberDigits bytes spell.
int NumberOf(const char *pDigits, size_t nCount)
{
    char szDigits[8];
    KovaTextCopy(szDigits, sizeof(szDigits), std::string_view(pDigits, nCount));
    return static_cast<int>(strtol(szDigits, nullptr, 10));
}

} // namespace

int32_t IsRequestCommandSupport(const char *szMethod)
{
    return szMethod != nullptr && KovaRequestMethodOf(szMethod) != kMethodNone ? 1 : 0;
}

KovaRtspMethod KovaRequestMethodOf(const char *szMethod)
{
    for (const MethodName &entry : kMethods) {
        if (strstr(szMethod, entry.szName) != nullptr)
            return entry.method;
    }
    return kMethodNone;
}

void KovaRequestScanBegin(KovaRequestScan *pScan, const uint8_t *pBytes, int32_t nCount)
{
    memset(pScan, 0, offsetof(KovaRequestScan, szText));
    const int32_t nMost = static_cast<int32_t>(kRequestSize);
    pScan->nLength = nCount < 0 ? 0 : nCount > nMost ? nMost : nCount;
    memcpy(pScan->szText, pBytes, static_cast<size_t>(pScan->nLength));
    pScan->szText[pScan->nLength] = '\0';
    pScan->nVersion = -1;
}

bool KovaRequestScanMethod(KovaRequestScan *pScan)
{
    const int32_t nMost = static_cast<int32_t>(kMethodSize);
    for (int32_t nAt = 0; nAt < pScan->nLength && nAt < nMost; nAt++) {
        if (!IsBlankOrTab(pScan->szText[nAt]))
            continue;
        memcpy(pScan->szMethod, pScan->szText, static_cast<size_t>(nAt));
        pScan->nSeparator = nAt;
        pScan->bSetup = strstr(pScan->szMethod, "SETUP") != nullptr;
        return true;
    }
    return false;
}

bool KovaRequestScanHost(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    const char *szText = pScan->szText;
    const int32_t nLimit = pScan->nLength - kSchemeMargin;
    int32_t nAt = pScan->nSeparator;
    while (nAt < nLimit && IsBlankOrTab(szText[nAt]))
        nAt++;
    while (nAt < nLimit && !IsSchemeAt(pScan, nAt))
        nAt++;
    if (nAt >= nLimit)
        return false;
    int32_t nEnd = nAt + kSchemeLength;
    if (szText[nEnd] != '/') {
        pScan->nHostEnd = nEnd - 2; // the position rests on the single slash
        return true;
    }
    const int32_t nBegin = ++nEnd;
    while (nEnd < pScan->nLength && szText[nEnd] != '/' && !IsBlank(szText[nEnd]))
        nEnd++;
    KovaTextCopy(pInfo->szHostPort, sizeof(pInfo->szHostPort),
                 std::string_view(szText + nBegin, static_cast<size_t>(nEnd - nBegin)));
    pScan->nHostEnd = nEnd - 1;
    return true;
}

bool KovaRequestScanVersion(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    pScan->nVersion = Find(pScan, kVersion, pScan->nHostEnd + 1);
    if (pScan->nVersion < 0)
        return false;
    int32_t nEnd = pScan->nVersion - 1;
    while (nEnd > pScan->nHostEnd && IsBlank(pScan->szText[nEnd]))
        nEnd--;
    pScan->nUriEnd = nEnd;
    const char nMajor = pScan->szText[pScan->nVersion + static_cast<int32_t>(kVersion.size())];
    pInfo->nRtspVersion = nMajor == '1' ? 1 : nMajor == '2' ? 2 : 0;
    return true;
}

bool KovaRequestScanTrack(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    const int32_t nEnd = pScan->nUriEnd;
    int32_t nSlash = nEnd;
    while (nSlash > pScan->nHostEnd && pScan->szText[nSlash] != '/')
        nSlash--;
    pScan->nUriEnd = nSlash - 1;
    const int32_t nDigits = nSlash + kTrackPrefix;
    const int32_t nCount = nEnd - nDigits + 1;
    if (nDigits >= nEnd || nCount > kTrackDigits)
        return false;
    pInfo->nTrackId = NumberOf(pScan->szText + nDigits, static_cast<size_t>(nCount));
    return true;
}

KovaPathScan KovaRequestScanPath(const KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    const int32_t nBegin = pScan->nHostEnd + 2;
    if (nBegin >= pScan->nUriEnd)
        return kPathEmpty;
    const size_t nCount = static_cast<size_t>(pScan->nUriEnd - nBegin) + 1;
    if (nCount >= sizeof(pInfo->szUri))
        return kPathTooLong;
    KovaTextCopy(pInfo->szUri, sizeof(pInfo->szUri),
                 std::string_view(pScan->szText + nBegin, nCount));
    return kPathFound;
}

bool KovaRequestScanCSeq(const KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    if (pScan->nVersion < 0)
        return false;
    const int32_t nFound = Find(pScan, kCSeq, pScan->nVersion);
    if (nFound < 0)
        return false;
    int32_t nAt = nFound + static_cast<int32_t>(kCSeq.size());
    while (nAt < pScan->nLength && IsBlankOrTab(pScan->szText[nAt]))
        nAt++;
    const int32_t nBegin = nAt;
    const int32_t nMost = static_cast<int32_t>(sizeof(pInfo->szCSeq)) - 1;
    while (nAt < pScan->nLength && nAt - nBegin <= nMost && !IsLineEnd(pScan->szText[nAt]))
        nAt++;
    if (nAt >= pScan->nLength || nAt - nBegin > nMost)
        return false;
    KovaTextCopy(pInfo->szCSeq, sizeof(pInfo->szCSeq),
                 std::string_view(pScan->szText + nBegin, static_cast<size_t>(nAt - nBegin)));
    return true;
}

bool KovaRequestScanSession(const KovaRequestScan *pScan, std::string_view *pSessionId)
{
    const char *pMatch = strstr(pScan->szText, "Session");
    if (pMatch == nullptr)
        return false;
    const char *pEnd = strchr(pMatch, '\r');
    if (pEnd == nullptr)
        pEnd = strchr(pMatch, '\n');
    if (pEnd == nullptr)
        return false;
    const char *pBlank = strchr(pMatch + 1, ' ');
    *pSessionId = pBlank != nullptr && pBlank < pEnd
                      ? std::string_view(pBlank + 1, static_cast<size_t>(pEnd - pBlank - 1))
                      : std::string_view();
    return true;
}

KovaParameterScan KovaRequestScanParameter(const KovaRequestScan *pScan, const char *szName,
                                           uint16_t *pNumber)
{
    const char *pName = strstr(pScan->szText, szName);
    if (pName == nullptr)
        return kParameterAbsent;
    const char *pEquals = strchr(pName, '=');
    const char *pDash = pEquals != nullptr ? strchr(pEquals, '-') : nullptr;
    if (pDash == nullptr)
        return kParameterIncomplete;
    const size_t nCount = static_cast<size_t>(pDash - pEquals - 1);
    if (nCount > kNumberDigits)
        return kParameterInvalid;
    *pNumber = static_cast<uint16_t>(NumberOf(pEquals + 1, nCount));
    return kParameterFound;
}
