#include "fuzz/support/response.h"

#include "fuzz/support/require.h"

#include <cstdint>
#include <string>

namespace {

constexpr size_t kMostCSeq = 7;
constexpr size_t kSessionDigits = 11;

/// A text that is compared from the front.
class Reader {
public:
    explicit Reader(std::string_view text) : m_rest(text) {}

    bool Take(std::string_view expected)
    {
        if (m_rest.substr(0, expected.size()) != expected)
            return false;
        m_rest.remove_prefix(expected.size());
        return true;
    }
    void Expect(std::string_view expected)
    {
        KovaRequire(Take(expected), "a response has one of the known forms");
    }
    std::string_view Digits()
    {
        const std::string_view digits = m_rest.substr(0, m_rest.find_first_not_of("0123456789"));
        m_rest.remove_prefix(digits.size());
        return digits;
    }
    uint64_t Number(uint64_t nMost)
    {
        const std::string_view digits = Digits();
        KovaRequire(!digits.empty() && digits.size() <= 10, "a number stands in the response");
        const uint64_t nNumber = std::stoull(std::string(digits));
        KovaRequire(nNumber <= nMost, "a number is in its range");
        return nNumber;
    }
    /// Two numbers, the second the next one in 16 bits; or none, which is 0 twice.
    void Pair()
    {
        if (Take("0-0"))
            return;
        const uint64_t nFirst = Number(0xFFFF);
        Expect("-");
        KovaRequire(Number(0xFFFF) == ((nFirst + 1) & 0xFFFF), "the second number is the next");
    }
    std::string_view Until(std::string_view end)
    {
        const size_t nEnd = m_rest.find(end);
        KovaRequire(nEnd != std::string_view::npos, "a line of a response has its end");
        const std::string_view taken = m_rest.substr(0, nEnd);
        m_rest.remove_prefix(nEnd + end.size());
        return taken;
    }
    std::string_view Rest() const
    {
        return m_rest;
    }

private:
    std::string_view m_rest;
};

void CheckAddress(std::string_view address)
{
    KovaRequire(!address.empty() && address.size() <= 15 &&
                    address.find_first_not_of("0123456789.") == std::string_view::npos,
                "an address is a dotted one");
}

void CheckSession(Reader *pReader, bool bRequired)
{
    pReader->Expect("Session: ");
    const size_t nDigits = pReader->Digits().size();
    KovaRequire(nDigits == kSessionDigits || (nDigits == 0 && !bRequired),
                "a session id has eleven digits");
    pReader->Expect(";timeout=60\r\n\r\n");
}

void CheckSetup(Reader *pReader)
{
    if (pReader->Take("UDP;unicast;client_port=")) {
        pReader->Pair();
        pReader->Expect(";server_port=");
        pReader->Pair();
    } else {
        pReader->Expect("TCP;unicast;destination=");
        CheckAddress(pReader->Until(";"));
        pReader->Expect("source=");
        CheckAddress(pReader->Until(";"));
        pReader->Expect("interleaved=");
        pReader->Pair();
    }
    pReader->Expect(";ssrc=");
    pReader->Number(0xFFFFFFFF);
    pReader->Expect("\r\n");
    CheckSession(pReader, true);
}

void CheckDescribe(Reader *pReader)
{
    pReader->Expect("application/sdp\r\nContent-Length: ");
    const uint64_t nLength = pReader->Number(4095);
    pReader->Expect("\r\n\r\n");
    KovaRequire(pReader->Rest().size() == nLength, "a body has its announced length");
    if (nLength == 0)
        return;
    pReader->Expect("v=0\r\no=- ");
    const std::string_view rest = pReader->Rest();
    KovaRequire(rest.find('\0') == std::string_view::npos, "a description is a text");
    KovaRequire(rest.substr(rest.size() - 2) == "\r\n", "a description ends with a line end");
    pReader->Expect(rest);
}

void CheckRtpInfo(Reader *pReader)
{
    do {
        pReader->Expect("url=rtsp://");
        CheckAddress(pReader->Until(":"));
        pReader->Number(0xFFFF);
        pReader->Expect("/");
        pReader->Until("/trackID=");
        const uint64_t nTrack = pReader->Number(97);
        KovaRequire(nTrack == 96 || nTrack == 97, "a track is one of the stream's");
        pReader->Expect(";seq=");
        pReader->Number(0xFFFF);
        pReader->Expect(";rtptime=");
        pReader->Number(0xFFFFFFFF);
    } while (pReader->Take(", "));
    pReader->Expect("\r\n");
    CheckSession(pReader, true);
}

bool IsRefusal(std::string_view text)
{
    return text == "RTSP/1.0 400 Bad Request\r\n\r\n" || text == "RTSP/1.0 403 Forbidden\r\n\r\n" ||
           text == "RTSP/1.0 404 Not Found\r\n\r\n" ||
           text == "RTSP/1.0 454 Session Not Found\r\n\r\n";
}

} // namespace

void KovaCheckResponse(std::string_view text)
{
    if (IsRefusal(text))
        return;
    Reader reader(text);
    reader.Expect("RTSP/1.0 200 OK\r\nCSeq: ");
    const std::string_view cseq = reader.Until("\r\n");
    KovaRequire(cseq.size() <= kMostCSeq && cseq.find('\n') == std::string_view::npos &&
                    cseq.find('\0') == std::string_view::npos,
                "a CSeq fits");
    if (reader.Take("Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n")) {
        // OPTIONS
    } else if (reader.Take("Server: Brisklane/1.0.0.1\r\nCache-Control: no-cache\r\n")) {
        if (reader.Take("Transport: RTP/AVP/"))
            CheckSetup(&reader);
        else if (reader.Take("Content-Type: "))
            CheckDescribe(&reader);
    } else {
        reader.Expect("Cache-Control: no-cache\r\n");
        if (reader.Take("RTP-Info: "))
            CheckRtpInfo(&reader);
        else if (!reader.Take("\r\n")) // TEARDOWN, else GET_PARAMETER or PLAY without tracks
            CheckSession(&reader, false);
    }
    KovaRequire(reader.Rest().empty(), "nothing follows a response");
}
