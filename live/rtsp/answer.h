#pragma once

#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// An answer in the making (RFC 2326, sections 7 and 12): bounded text.
struct KovaAnswer {
    char *szText;
    size_t nCapacity;
    size_t nLength;
    bool bFits; ///< false once something did not fit
};

/// The reason phrase of a status (RFC 2326, 7.1.1); "" for an unknown one.
const char *KovaAnswerReason(uint16_t nStatus);

/// Begins an answer: status line, CSeq (left out when the request had none that is a
/// number), Date (RFC 1123, GMT), Server. nSeconds: wall clock, Unix.
/// szServer may be null.
void KovaAnswerBegin(KovaAnswer *pAnswer, uint16_t nStatus, const KovaRequest &request,
                     int64_t nSeconds, const char *szServer);

/// Adds a header line; the value is formatted as printf does.
void KovaAnswerHeader(KovaAnswer *pAnswer, const char *szName, const char *szFormat, ...)
    __attribute__((format(printf, 3, 4)));

/// Ends the head, with Content-Type and Content-Length before the empty line when
/// szType is not null, and the body behind it. Returns whether the whole answer fits.
bool KovaAnswerEnd(KovaAnswer *pAnswer, const char *szType, std::string_view body);
