#pragma once

#include "live/rtsp/request_reader.h"

#include <cstddef>
#include <cstdint>

/// What a head says about its message beside the request itself.
struct KovaHeadFindings {
    uint16_t nStatus; ///< 0: a request that can be served; else the answer
    bool bFatal;      ///< where the message ends is not known
    bool bAnswer;     ///< no request: a player's answer to one of ours
    uint32_t nBody;   ///< bytes of body behind the head
};

/// Reads a head: the first line and the headers (RFC 2326, sections 6 and 7; folded lines
/// as in RFC 2068, 4.2). Folds are replaced in the text itself, so that a header is one
/// view; reading the same head again gives the same request.
/// @param pHead    nLength bytes up to and with the empty line, or as far as a head that
///                 is too long is kept
/// @param bWhole   whether it ends by an empty line; if not, the findings are those of a
///                 head that is too long (413, or 414 for a long URL), and the request
///                 has the headers whose lines are whole
/// @param pRequest filled with what is understood, its body aside
void KovaRequestHeadRead(char *pHead, size_t nLength, bool bWhole, KovaRequest *pRequest,
                         KovaHeadFindings *pFindings);
