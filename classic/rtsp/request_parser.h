#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/request_info.h"
#include "foundation/export.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The scanner for one request: text to KovaRtspRequestInfo, step by step in the
/// order in which the request handler needs the steps. Pure: no registry, no
/// socket, no output. Positions count bytes from the start of the request.

/// Room for a method with its terminator.
constexpr size_t kMethodSize = 32;

/// A request being scanned, and how far the scan has come.
struct KovaRequestScan {
    int32_t nLength;
    int32_t nSeparator; ///< the blank or tab behind the method
    int32_t nHostEnd;   ///< last byte of the host part
    int32_t nVersion;   ///< the 'R' of "RTSP/"; -1 when there is none
    int32_t nUriEnd;    ///< last byte of the URI
    char szMethod[kMethodSize];
    bool bSetup; ///< the method contains "SETUP"
    /// Private, terminated copy of the chunk. The last field, and not cleared behind
    /// the terminator: of a short request only the beginning takes up memory.
    char szText[kRequestSize + 1];
};

/// What a parameter of the Transport header came to.
enum KovaParameterScan {
    kParameterAbsent,     ///< the name does not occur
    kParameterIncomplete, ///< the name occurs, but '=' or '-' is missing
    kParameterInvalid,    ///< more digits than a number may have
    kParameterFound,
};

/// 1 if the text contains the name of a method that is answered, else 0; 0 for
/// null.
KOVA_API int32_t IsRequestCommandSupport(const char *szMethod);

/// The method that the text contains, tested in a fixed order.
KovaRtspMethod KovaRequestMethodOf(const char *szMethod);

/// Starts a scan of at most kRequestSize bytes.
void KovaRequestScanBegin(KovaRequestScan *pScan, const uint8_t *pBytes, int32_t nCount);

/// Takes the method. False when no blank or tab ends it within 32 positions.
bool KovaRequestScanMethod(KovaRequestScan *pScan);

/// Takes the host behind "rtsp:/" or "rtsp://" in any case, cut to its field.
/// False when there is no such thing.
bool KovaRequestScanHost(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo);

/// Finds "RTSP/" behind the host, the end of the URI before it, and the version
/// behind it. False when it is absent.
bool KovaRequestScanVersion(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo);

/// Takes the track id (two to four digits) off the end of a SETUP's URI. False
/// when there is none; the URI is shortened all the same.
bool KovaRequestScanTrack(KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo);

/// What a stream path came to.
enum KovaPathScan {
    kPathEmpty,   ///< no path of two bytes or more
    kPathTooLong, ///< longer than any stream's
    kPathFound,
};

/// Takes the stream path.
KovaPathScan KovaRequestScanPath(const KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo);

/// Takes the value of "CSeq:" behind "RTSP/". False when either is absent or the
/// value has more than 7 characters or no line end.
bool KovaRequestScanCSeq(const KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo);

/// Finds the first "Session" and what stands between the blank behind it and
/// the end of its line; empty when the line has no blank. False when there is
/// none, or its line does not end.
bool KovaRequestScanSession(const KovaRequestScan *pScan, std::string_view *pSessionId);

/// Takes the first number of "client_port" or "interleaved".
KovaParameterScan KovaRequestScanParameter(const KovaRequestScan *pScan, const char *szName,
                                           uint16_t *pNumber);
