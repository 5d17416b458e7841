#include "live/rtsp/request_head.h"

#include "live/rtsp/method.h"
#include "live/rtsp/words.h"

namespace {

constexpr uint16_t kBadRequest = 400;
constexpr uint16_t kTooLarge = 413;
constexpr uint16_t kUrlTooLong = 414;
constexpr uint16_t kVersionNotSupported = 505;

/// A head while it is read.
struct HeadText {
    char *pAt;
    char *pEnd;
    bool bWhole;        ///< the head ends by an empty line
    uint32_t nLengths;  ///< Content-Length headers seen
    bool bLengthBad;    ///< one is no number, or two differ
    bool bMalformed;    ///< a line that is no header, or too many
    uint16_t nFirstBad; ///< what the first line is refused with, or 0
    bool bHttp;
};

bool IsLineEnd(char c)
{
    return c == '\r' || c == '\n';
}

/// Takes one line and its end: CRLF, LF or CR. A line that lacks its end was cut: null.
bool TakeLine(HeadText *pHead, std::string_view *pLine)
{
    char *pStart = pHead->pAt;
    char *pAt = pStart;
    while (pAt < pHead->pEnd && !IsLineEnd(*pAt))
        ++pAt;
    *pLine = std::string_view(pStart, static_cast<size_t>(pAt - pStart));
    const bool bEnded = pAt < pHead->pEnd;
    if (bEnded) {
        const bool bReturn = *pAt++ == '\r';
        if (bReturn && pAt < pHead->pEnd && *pAt == '\n')
            ++pAt;
    }
    pHead->pAt = pAt;
    return bEnded;
}

/// Replaces each fold, the blanks around it included, by one blank, and fills what
/// becomes free at the end with blanks, which do not count.
void Unfold(char *pText, size_t nLength)
{
    size_t nTo = 0;
    size_t nFrom = 0;
    while (nFrom < nLength) {
        if (!IsLineEnd(pText[nFrom])) {
            pText[nTo++] = pText[nFrom++];
            continue;
        }
        while (nTo > 0 && KovaIsBlank(pText[nTo - 1]))
            --nTo;
        while (nFrom < nLength && (IsLineEnd(pText[nFrom]) || KovaIsBlank(pText[nFrom])))
            ++nFrom;
        pText[nTo++] = ' ';
    }
    while (nTo < nLength)
        pText[nTo++] = ' ';
}

/// Takes a line with the lines that continue it. False at the empty line, or where a
/// head that is too long was cut.
bool TakeField(HeadText *pHead, std::string_view *pField)
{
    char *pStart = pHead->pAt;
    bool bEnded = TakeLine(pHead, pField);
    if (pField->empty())
        return false;
    bool bFolded = false;
    while (bEnded && pHead->pAt < pHead->pEnd && KovaIsBlank(*pHead->pAt)) {
        std::string_view next;
        bEnded = TakeLine(pHead, &next);
        *pField = std::string_view(pStart, static_cast<size_t>(next.data() + next.size() - pStart));
        bFolded = true;
    }
    // What continues the last line of a cut head may be missing.
    if (!bEnded || (!pHead->bWhole && pHead->pAt == pHead->pEnd))
        return false;
    if (bFolded)
        Unfold(pStart, pField->size());
    return true;
}

void NoteLength(HeadText *pHead, KovaHeadFindings *pFindings, std::string_view value)
{
    uint32_t nLength = 0;
    const bool bNumber = KovaNumberOf(value, kRequestMaxBody, &nLength);
    const bool bSame = pHead->nLengths == 0 || nLength == pFindings->nBody;
    pHead->bLengthBad = pHead->bLengthBad || !bNumber || !bSame;
    pHead->nLengths++;
    pFindings->nBody = nLength;
}

/// Keeps a header. Of too many the CSeq is still kept, for the answer.
void Keep(HeadText *pHead, KovaRequest *pRequest, const KovaRequestHeader &header)
{
    if (pRequest->nHeaders < kRequestMaxHeaders) {
        pRequest->headers[pRequest->nHeaders++] = header;
        return;
    }
    pHead->bMalformed = true;
    if (KovaWordIs(header.name, "CSeq") && KovaRequestHeaderOf(*pRequest, "CSeq").data() == nullptr)
        pRequest->headers[kRequestMaxHeaders - 1] = header;
}

void ReadFields(HeadText *pHead, KovaRequest *pRequest, KovaHeadFindings *pFindings)
{
    std::string_view field;
    while (TakeField(pHead, &field)) {
        const size_t nColon = KovaFind(field, ":");
        KovaRequestHeader header;
        header.name = KovaTrimmed(KovaPart(field, 0, nColon));
        const bool bWord = KovaFind(header.name, " \t") == header.name.size();
        if (nColon == field.size() || header.name.empty() || !bWord) {
            pHead->bMalformed = true;
            continue;
        }
        header.value = KovaTrimmed(KovaPart(field, nColon + 1));
        if (KovaWordIs(header.name, "Content-Length"))
            NoteLength(pHead, pFindings, header.value);
        Keep(pHead, pRequest, header);
    }
}

/// Whether a word is "RTSP/" with a number, a point and a number (RFC 2326, 3.1).
bool IsVersion(std::string_view word)
{
    if (!KovaWordBegins(word, "RTSP/"))
        return false;
    word.remove_prefix(5);
    const std::string_view major = KovaTakePart(&word, '.');
    uint32_t nNumber = 0;
    return KovaNumberOf(major, UINT16_MAX, &nNumber) && KovaNumberOf(word, UINT16_MAX, &nNumber);
}

/// Method, URL and version. A URL may hold blanks, which some players do not escape:
/// the version is the last word.
void ReadFirstLine(HeadText *pHead, KovaRequest *pRequest, KovaHeadFindings *pFindings)
{
    std::string_view line;
    const bool bEnded = TakeLine(pHead, &line);
    line = KovaTrimmed(line);
    const size_t nMethod = KovaFind(line, " \t");
    pRequest->methodText = KovaPart(line, 0, nMethod);
    pRequest->method = KovaMethodOf(pRequest->methodText);
    line = KovaTrimmed(KovaPart(line, nMethod));
    pFindings->bAnswer = KovaWordBegins(pRequest->methodText, "RTSP/");
    size_t nUrl = line.size();
    if (bEnded) {
        while (nUrl > 0 && !KovaIsBlank(line[nUrl - 1]))
            --nUrl;
        pRequest->version = KovaPart(line, nUrl);
    }
    pRequest->url = KovaTrimmed(KovaPart(line, 0, nUrl));
    pHead->bHttp =
        KovaWordBegins(pRequest->version, "HTTP/") || KovaWordBegins(pRequest->methodText, "HTTP/");
    if (pRequest->url.empty() || !IsVersion(pRequest->version))
        pHead->nFirstBad = kBadRequest;
    else if (!KovaWordIs(pRequest->version, "RTSP/1.0"))
        pHead->nFirstBad = kVersionNotSupported;
    // Nothing follows the first line, so nothing can continue it.
    if (pHead->pAt < pHead->pEnd && KovaIsBlank(*pHead->pAt))
        pHead->nFirstBad = kBadRequest;
}

bool HasControl(const char *pText, size_t nLength)
{
    for (size_t n = 0; n < nLength; ++n) {
        const uint8_t nByte = static_cast<uint8_t>(pText[n]);
        if ((nByte < 0x20 && !IsLineEnd(pText[n]) && pText[n] != '\t') || nByte == 0x7F)
            return true;
    }
    return false;
}

/// What the message is refused with. What leaves its end unknown comes first.
void Judge(const HeadText &head, const KovaRequest &request, bool bControl,
           KovaHeadFindings *pFindings)
{
    const bool bLongUrl = request.url.size() > kRequestMaxUrl;
    pFindings->bFatal = true;
    if (!head.bWhole)
        pFindings->nStatus = bLongUrl ? kUrlTooLong : kTooLarge;
    else if (head.bHttp || head.bLengthBad)
        pFindings->nStatus = kBadRequest;
    else if (pFindings->nBody > kRequestMaxBody)
        pFindings->nStatus = kTooLarge;
    else
        pFindings->bFatal = false;
    if (pFindings->bFatal)
        return;
    if (bControl || head.bMalformed)
        pFindings->nStatus = kBadRequest;
    else if (head.nFirstBad != 0)
        pFindings->nStatus = head.nFirstBad;
    else if (bLongUrl)
        pFindings->nStatus = kUrlTooLong;
}

} // namespace

void KovaRequestHeadRead(char *pHead, size_t nLength, bool bWhole, KovaRequest *pRequest,
                         KovaHeadFindings *pFindings)
{
    HeadText head = {};
    head.pAt = pHead;
    head.pEnd = pHead + nLength;
    head.bWhole = bWhole;
    *pFindings = KovaHeadFindings();
    pRequest->nHeaders = 0;
    pRequest->version = pRequest->body = std::string_view();
    // Before folds are replaced: that changes no byte that counts here.
    const bool bControl = HasControl(pHead, nLength);
    ReadFirstLine(&head, pRequest, pFindings);
    ReadFields(&head, pRequest, pFindings);
    Judge(head, *pRequest, bControl, pFindings);
}
