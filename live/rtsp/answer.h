#pragma once

#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// An answer in the making (RFC 2326, sections 7 and 12): bounded text, always with a
/// NUL behind it, for which there must be room too. The caller gives szText and
/// nCapacity; KovaAnswerBegin sets the rest. Once a part did not fit, no more is added,
/// and no part of a line is there.
struct KovaAnswer {
    char *szText;
    size_t nCapacity;
    size_t nLength;
    bool bFits; ///< false once something did not fit
};

/// The reason phrase of a status (RFC 2326, 7.1.1); "" for an unknown one.
const char *KovaAnswerReason(uint16_t nStatus);

/// Begins an answer: status line, CSeq (left out when the request had none that is a
/// number of at most 20 digits), Date (RFC 1123, GMT), Server. nSeconds: wall clock, Unix.
/// szServer may be null.
void KovaAnswerBegin(KovaAnswer *pAnswer, uint16_t nStatus, const KovaRequest &request,
                     int64_t nSeconds, const char *szServer);

/// Adds a header line; the value is formatted as printf does. '?' stands for control
/// bytes in it.
void KovaAnswerHeader(KovaAnswer *pAnswer, const char *szName, const char *szFormat, ...)
    __attribute__((format(printf, 3, 4)));

/// Adds whole header lines with their line ends.
void KovaAnswerLines(KovaAnswer *pAnswer, std::string_view lines);

/// Ends the head, with Content-Type and Content-Length before the empty line when
/// szType is not null, and the body behind it (without szType there is none). Returns
/// whether the whole answer fits.
bool KovaAnswerEnd(KovaAnswer *pAnswer, const char *szType, std::string_view body);
