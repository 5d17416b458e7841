#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "live/rtsp/answer.h"
#include "live/rtsp/request_reader.h"
#include "live/rtsp/request_url.h"
#include "live/rtsp/transport_header.h"

#include <cstring>
#include <string>
#include <vector>

// The live engine's request reader, and what is made of a request's URL and Transport header. The
// items do not depend on how the stream is cut; every view lies in what was received; nothing
// unfinished holds more memory than twice its bytes.
//
// Input: a seed for the pieces' lengths, two bytes; the stream.

namespace {

/// An item as text, to be compared.
std::string TextOf(const KovaReadItem &item)
{
    std::string text = {static_cast<char>(item.kind), static_cast<char>(item.bFatal),
                        static_cast<char>(item.nChannel)};
    text += std::to_string(item.nStatus);
    if (item.kind == kReadFrame)
        return text.append(item.frame);
    const KovaRequest &request = item.request;
    text += std::to_string(request.method);
    for (const std::string_view part : {request.methodText, request.url, request.version})
        text.append(part).append(1, '\n');
    KovaRequire(request.nHeaders <= kRequestMaxHeaders, "headers are bounded");
    for (uint32_t n = 0; n < request.nHeaders; n++)
        text.append(request.headers[n].name).append(":").append(request.headers[n].value) += '\n';
    return text.append(request.body);
}

void CheckUrl(const KovaRequestUrl &url)
{
    KovaRequire(memchr(url.szPath, 0, sizeof(url.szPath)) != nullptr, "a path is terminated");
    KovaRequire(url.nTrack >= -1, "a track is one or none");
    KovaRequire(url.bValid || (url.nTrack == -1 && url.szPath[0] == '\0'), "invalid is empty");
    char szPath[kLivePathSize];
    if (!KovaLivePathNormalize(url.szPath, szPath))
        return;
    KovaRequire(strcmp(url.szPath, szPath) == 0, "a path comes in its plain form");
    char szEscaped[3 * kLivePathSize];
    KovaRequire(KovaLivePathEscape(szPath, szEscaped, sizeof(szEscaped)), "an escaped path fits");
    const KovaRequestUrl again = KovaRequestUrlParse("rtsp://h/" + std::string(szEscaped));
    KovaRequire(again.bValid && strcmp(again.szPath, szPath) == 0, "an escaped path is the path");
}

void CheckTransport(std::string_view value)
{
    KovaTransportAnswer answer = {};
    answer.offer = KovaTransportHeaderParse(value);
    answer.szSource = "255.255.255.255";
    char szText[160];
    const bool bWritten = KovaTransportHeaderWrite(answer, szText, sizeof(szText));
    const KovaTransportKind kind = answer.offer.kind;
    KovaRequire(bWritten == (kind == kTransportUdp || kind == kTransportInterleaved),
                "an offer that is served is answered");
    KovaRequire(!bWritten || KovaTransportHeaderParse(szText).kind == kind,
                "an answer reads as what it answers");
}

void CheckAnswer(const KovaReadItem &item)
{
    char szText[300];
    KovaAnswer answer = {szText, sizeof(szText), 0, false};
    KovaAnswerBegin(&answer, item.nStatus, item.request, 0, "fuzz");
    KovaRequire(KovaAnswerEnd(&answer, nullptr, {}), "an answer without a body fits");
    KovaRequire(strlen(szText) == answer.nLength, "an answer is text");
}

void CheckItem(const KovaReadItem &item)
{
    if (item.kind == kReadFrame)
        return;
    KovaRequire((item.kind == kReadRequest) == (item.nStatus == 0), "bad items have a status");
    KovaRequire(item.kind == kReadBad || !item.bFatal, "requests are not fatal");
    KovaRequire(item.kind == kReadBad || item.request.url.size() <= kRequestMaxUrl,
                "URLs are bounded");
    CheckUrl(KovaRequestUrlParse(item.request.url));
    CheckTransport(KovaRequestHeaderOf(item.request, "Transport"));
    CheckAnswer(item);
}

class Stream {
public:
    ~Stream()
    {
        KovaRequestReaderClear(&m_reader);
    }
    /// Feeds a piece, in as many rooms as it needs.
    void Feed(const uint8_t *pBytes, size_t nCount)
    {
        while (nCount != 0) {
            size_t nRoom = 0;
            uint8_t *pRoom = KovaRequestReaderRoom(&m_reader, &nRoom);
            KovaRequire(pRoom != nullptr && nRoom != 0, "there is room");
            const size_t nTaken = std::min(nRoom, nCount);
            memcpy(pRoom, pBytes, nTaken);
            KovaRequestReaderTook(&m_reader, nTaken);
            pBytes += nTaken;
            nCount -= nTaken;
            m_nFed += nTaken;
            Drain();
        }
    }
    void Relax()
    {
        KovaRequestReaderRelax(&m_reader);
        KovaRequire(KovaRequestReaderBegun(&m_reader) == (m_reader.pBuffer != nullptr),
                    "an idle reader holds nothing");
    }
    std::vector<std::string> items;

private:
    void Drain()
    {
        KovaReadItem item;
        for (;;) {
            KovaRequestReaderNext(&m_reader, &item);
            if (item.kind == kReadMore)
                break;
            CheckItem(item);
            items.push_back(TextOf(item));
            KovaRequire(items.size() <= m_nFed, "items end");
        }
        KovaRequire(m_reader.nCapacity <= std::max(2 * m_nFed, size_t{2048}),
                    "memory grows with what is there");
    }
    KovaRequestReader m_reader{};
    size_t m_nFed = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    uint32_t nSeed = input.Word();
    const std::vector<uint8_t> bytes = input.Rest();
    Stream whole;
    whole.Feed(bytes.data(), bytes.size());
    Stream cut;
    for (size_t nAt = 0; nAt < bytes.size();) {
        nSeed = nSeed * 1103515245 + 12345;
        const uint32_t nMost = nSeed >> 30 == 0 ? 1000 : 9;
        const size_t nPiece = std::min<size_t>(1 + (nSeed >> 16) % nMost, bytes.size() - nAt);
        cut.Feed(bytes.data() + nAt, nPiece);
        nAt += nPiece;
        if (nSeed >> 31 != 0)
            cut.Relax();
    }
    KovaRequire(whole.items == cut.items, "items do not depend on the pieces");
    return 0;
}
