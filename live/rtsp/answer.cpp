#include "live/rtsp/answer.h"

#include "live/rtsp/date.h"
#include "live/rtsp/words.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

/// Room for a status line with the longest reason.
constexpr size_t kStatusLineSize = 64;
/// Longer numbers are no CSeq of any player, and would be echoed at any length.
constexpr size_t kMostCSeqDigits = 20;

/// Appends bytes, or notes that they do not fit with the NUL behind them.
void Append(KovaAnswer *pAnswer, std::string_view bytes)
{
    pAnswer->bFits = pAnswer->bFits && bytes.size() < pAnswer->nCapacity - pAnswer->nLength;
    if (!pAnswer->bFits)
        return;
    if (!bytes.empty())
        memcpy(pAnswer->szText + pAnswer->nLength, bytes.data(), bytes.size());
    pAnswer->nLength += bytes.size();
    pAnswer->szText[pAnswer->nLength] = '\0';
}

/// A control byte in a value, which might come from the network, would begin a line of its own:
/// '?' stands for it.
void HideControls(char *pText, size_t nLength)
{
    for (size_t n = 0; n < nLength; ++n) {
        const uint8_t nByte = static_cast<uint8_t>(pText[n]);
        if ((nByte < 0x20 && nByte != '\t') || nByte == 0x7F)
            pText[n] = '?';
    }
}

bool IsCSeq(std::string_view value)
{
    uint32_t nNumber = 0;
    return value.size() <= kMostCSeqDigits && KovaNumberOf(value, UINT32_MAX - 1, &nNumber);
}

} // namespace

void KovaAnswerBegin(KovaAnswer *pAnswer, uint16_t nStatus, const KovaRequest &request,
                     int64_t nSeconds, const char *szServer)
{
    char szStatus[kStatusLineSize];
    snprintf(szStatus, sizeof(szStatus), "RTSP/1.0 %03u %s\r\n",
             static_cast<unsigned>(nStatus) % 1000, KovaAnswerReason(nStatus));
    pAnswer->nLength = 0;
    pAnswer->bFits = pAnswer->nCapacity != 0;
    Append(pAnswer, szStatus);
    const std::string_view cseq = KovaRequestHeaderOf(request, "CSeq");
    if (IsCSeq(cseq))
        KovaAnswerHeader(pAnswer, "CSeq", "%.*s", static_cast<int>(cseq.size()), cseq.data());
    char szDate[kDateSize];
    KovaDateWrite(nSeconds, szDate);
    KovaAnswerHeader(pAnswer, "Date", "%s", szDate);
    if (szServer != nullptr)
        KovaAnswerHeader(pAnswer, "Server", "%s", szServer);
}

void KovaAnswerHeader(KovaAnswer *pAnswer, const char *szName, const char *szFormat, ...)
{
    const size_t nBefore = pAnswer->nLength;
    Append(pAnswer, szName);
    Append(pAnswer, ": ");
    if (pAnswer->bFits) {
        char *szValue = pAnswer->szText + pAnswer->nLength;
        const size_t nRoom = pAnswer->nCapacity - pAnswer->nLength;
        va_list arguments;
        va_start(arguments, szFormat);
        // The analyzer loses sight of va_start() where the call is from this file.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        const int nWritten = vsnprintf(szValue, nRoom, szFormat, arguments);
        va_end(arguments);
        pAnswer->bFits = nWritten >= 0 && static_cast<size_t>(nWritten) < nRoom;
        if (pAnswer->bFits) {
            HideControls(szValue, static_cast<size_t>(nWritten));
            pAnswer->nLength += static_cast<size_t>(nWritten);
        }
    }
    Append(pAnswer, "\r\n");
    if (pAnswer->bFits)
        return;
    // No part of a line stays.
    pAnswer->nLength = nBefore;
    if (pAnswer->nCapacity != 0)
        pAnswer->szText[nBefore] = '\0';
}

void KovaAnswerLines(KovaAnswer *pAnswer, std::string_view lines)
{
    Append(pAnswer, lines);
}

bool KovaAnswerEnd(KovaAnswer *pAnswer, const char *szType, std::string_view body)
{
    if (szType != nullptr) {
        KovaAnswerHeader(pAnswer, "Content-Type", "%s", szType);
        KovaAnswerHeader(pAnswer, "Content-Length", "%zu", body.size());
    }
    Append(pAnswer, "\r\n");
    if (szType != nullptr)
        Append(pAnswer, body);
    return pAnswer->bFits;
}
