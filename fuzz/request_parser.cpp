#include "classic/rtsp/request_parser.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"

#include <cstring>
#include <memory>
#include <string>

// The request scanner, step by step. What it takes equals what a plain search over the text finds,
// every field is terminated, and every position lies in the request.
//
// Input: the request.

namespace {

constexpr char kSentinel = 0x7E;

bool IsTerminated(const char *szField, size_t nSize)
{
    return memchr(szField, 0, nSize) != nullptr;
}

/// The first NUL ends what is searched as a text.
std::string AsText(const std::string &bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

void CheckMethod(const std::string &bytes, KovaRequestScan *pScan)
{
    const size_t nEnd = bytes.find_first_of(" \t");
    const bool bExpected = nEnd < kMethodSize;
    KovaRequire(KovaRequestScanMethod(pScan) == bExpected, "a method ends within 32 positions");
    KovaRequire(IsTerminated(pScan->szMethod, kMethodSize), "the method is terminated");
    if (bExpected)
        KovaRequire(AsText(bytes.substr(0, nEnd)) == pScan->szMethod, "the method is the method");
    const std::string method = pScan->szMethod;
    bool bKnown = false;
    for (const char *szName : {"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "GET_PARAMETER", "TEARDOWN"})
        bKnown = bKnown || method.find(szName) != std::string::npos;
    KovaRequire(IsRequestCommandSupport(pScan->szMethod) == (bKnown ? 1 : 0), "methods are known");
}

void CheckCSeq(const std::string &bytes, const KovaRequestScan &scan, KovaRtspRequestInfo *pInfo)
{
    const bool bTaken = KovaRequestScanCSeq(&scan, pInfo);
    KovaRequire(IsTerminated(pInfo->szCSeq, sizeof(pInfo->szCSeq)), "the CSeq is terminated");
    size_t nBegin = std::string::npos;
    if (scan.nVersion >= 0)
        nBegin = bytes.find("CSeq:", static_cast<size_t>(scan.nVersion));
    bool bExpected = nBegin != std::string::npos;
    if (bExpected) {
        nBegin = bytes.find_first_not_of(" \t", nBegin + 5);
        const size_t nEnd = bytes.find_first_of("\r\n", nBegin);
        bExpected = nBegin != std::string::npos && nEnd != std::string::npos && nEnd - nBegin <= 7;
        if (bExpected)
            KovaRequire(AsText(bytes.substr(nBegin, nEnd - nBegin)) == pInfo->szCSeq,
                        "the CSeq is the CSeq");
    }
    KovaRequire(bTaken == bExpected, "a CSeq is found where there is one");
}

void CheckSession(const std::string &text, const KovaRequestScan &scan)
{
    std::string_view id = "untouched";
    const bool bTaken = KovaRequestScanSession(&scan, &id);
    const size_t nName = text.find("Session");
    size_t nEnd = std::string::npos;
    if (nName != std::string::npos) {
        nEnd = text.find('\r', nName);
        if (nEnd == std::string::npos)
            nEnd = text.find('\n', nName);
    }
    KovaRequire(bTaken == (nEnd != std::string::npos), "a session is found where there is one");
    if (!bTaken)
        return;
    const size_t nBlank = text.find(' ', nName + 1);
    const std::string expected =
        nBlank < nEnd ? text.substr(nBlank + 1, nEnd - nBlank - 1) : std::string();
    KovaRequire(id == expected, "the session id is the rest of its line");
}

void CheckParameter(const std::string &text, const KovaRequestScan &scan, const char *szName)
{
    uint16_t nNumber = 0x5555;
    const KovaParameterScan result = KovaRequestScanParameter(&scan, szName, &nNumber);
    const size_t nName = text.find(szName);
    const size_t nEquals = nName == std::string::npos ? nName : text.find('=', nName);
    const size_t nDash = nEquals == std::string::npos ? nEquals : text.find('-', nEquals);
    KovaParameterScan expected = kParameterFound;
    if (nName == std::string::npos)
        expected = kParameterAbsent;
    else if (nDash == std::string::npos)
        expected = kParameterIncomplete;
    else if (nDash - nEquals - 1 > 5)
        expected = kParameterInvalid;
    KovaRequire(result == expected, "a parameter is found where there is one");
    KovaRequire(result == kParameterFound || nNumber == 0x5555, "no number without a parameter");
    if (result == kParameterFound)
        KovaRequire(nNumber == static_cast<uint16_t>(
                                   atoi(text.substr(nEquals + 1, nDash - nEquals - 1).c_str())),
                    "the number is the number");
}

void CheckUri(const std::string &bytes, KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    const int32_t nLength = static_cast<int32_t>(bytes.size());
    if (!KovaRequestScanHost(pScan, pInfo))
        return;
    KovaRequire(IsTerminated(pInfo->szHostPort, sizeof(pInfo->szHostPort)),
                "the host is terminated");
    KovaRequire(pScan->nHostEnd >= 0 && pScan->nHostEnd < nLength, "the host lies in the request");
    if (!KovaRequestScanVersion(pScan, pInfo)) {
        KovaRequire(bytes.find("RTSP/", static_cast<size_t>(pScan->nHostEnd + 1)) ==
                        std::string::npos,
                    "a version is found where there is one");
        return;
    }
    KovaRequire(bytes.compare(static_cast<size_t>(pScan->nVersion), 5, "RTSP/") == 0,
                "the version is a version");
    KovaRequire(pScan->nUriEnd >= pScan->nHostEnd && pScan->nUriEnd < pScan->nVersion,
                "the URI lies between host and version");
    if (pScan->bSetup && KovaRequestScanTrack(pScan, pInfo))
        KovaRequire(pInfo->nTrackId >= -999 && pInfo->nTrackId <= 9999, "a track has four digits");
    KovaRequire(pScan->nUriEnd >= pScan->nHostEnd - 1, "the path does not begin before the host");
    const KovaPathScan path = KovaRequestScanPath(pScan, pInfo);
    KovaRequire(IsTerminated(pInfo->szUri, sizeof(pInfo->szUri)), "the path is terminated");
    if (path == kPathFound) {
        const size_t nBegin = static_cast<size_t>(pScan->nHostEnd + 2);
        KovaRequire(AsText(bytes.substr(nBegin, static_cast<size_t>(pScan->nUriEnd + 1) -
                                                    nBegin)) == pInfo->szUri,
                    "the path is the path");
    } else {
        KovaRequire(pInfo->szUri[0] == '\0', "no path is no text");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    const std::unique_ptr<KovaRequestScan> pScan(new KovaRequestScan);
    const std::unique_ptr<KovaRtspRequestInfo> pInfo(new KovaRtspRequestInfo());
    memset(static_cast<void *>(pScan.get()), kSentinel, sizeof(*pScan));
    KovaRequestScanBegin(pScan.get(), pData, static_cast<int32_t>(nSize));
    const std::string bytes(reinterpret_cast<const char *>(pData),
                            nSize < kRequestSize ? nSize : kRequestSize);
    const std::string text = AsText(bytes);
    KovaRequire(IsTerminated(pScan->szText, sizeof(pScan->szText)), "the copy is terminated");
    CheckMethod(bytes, pScan.get());
    CheckUri(bytes, pScan.get(), pInfo.get());
    CheckCSeq(bytes, *pScan, pInfo.get());
    CheckSession(text, *pScan);
    CheckParameter(text, *pScan, "client_port");
    CheckParameter(text, *pScan, "interleaved");
    return 0;
}
