#include "tests/robustness/strict_parser.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr std::string_view kStatusLine = "RTSP/1.0 ";
constexpr std::string_view kLengthHeader = "\r\nContent-Length: ";
constexpr size_t kLargestResponse = 8192;
constexpr size_t kLargestFrame = 4 + 65535;
constexpr size_t kLargestRead = 65536;

/// Size of the response with its body; npos when it is not all there.
size_t SizeOfResponse(std::string_view text)
{
    const size_t nEnd = text.find("\r\n\r\n");
    if (nEnd == std::string_view::npos)
        return nEnd;
    size_t nSize = nEnd + 4;
    const size_t nHeader = text.substr(0, nEnd).find(kLengthHeader);
    if (nHeader != std::string_view::npos)
        nSize += static_cast<size_t>(
            std::atol(std::string(text.substr(nHeader + kLengthHeader.size(), 6)).c_str()));
    return nSize <= text.size() ? nSize : std::string_view::npos;
}

std::string Shown(std::string_view bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char nByte : bytes.substr(0, 32)) {
        const auto nValue = static_cast<uint8_t>(nByte);
        text += kDigits[nValue >> 4];
        text += kDigits[nValue & 15];
        text += ' ';
    }
    return text;
}

} // namespace

KovaStrictParser::KovaStrictParser()
{
    // What is read in one piece depends on the moment; the heap in use must not.
    m_input.reserve(kLargestFrame + kLargestRead);
}

bool KovaStrictParser::Take(std::string_view bytes)
{
    m_input.append(bytes);
    std::string_view left = m_input;
    while (m_fault.empty() && !left.empty()) {
        const size_t nUsed = left[0] == '$' ? TakeFrame(left) : TakeResponse(left);
        if (nUsed == 0)
            break;
        m_nTaken += nUsed;
        left.remove_prefix(nUsed);
    }
    m_input.erase(0, m_input.size() - left.size());
    return m_fault.empty();
}

/// Returns the number of bytes used; 0 when the frame is not all there.
size_t KovaStrictParser::TakeFrame(std::string_view bytes)
{
    if (bytes.size() < 4)
        return 0;
    const size_t nSize =
        static_cast<size_t>(static_cast<uint8_t>(bytes[2]) << 8 | static_cast<uint8_t>(bytes[3]));
    if (bytes.size() < 4 + nSize)
        return 0;
    onFrame(static_cast<uint8_t>(bytes[1]), bytes.substr(4, nSize));
    return 4 + nSize;
}

/// The same for a response, which a '$' or the next response cuts.
size_t KovaStrictParser::TakeResponse(std::string_view bytes)
{
    const size_t nCut = std::min(bytes.find('$'), bytes.find(kStatusLine, 1));
    const std::string_view text = bytes.substr(0, nCut);
    if (text.substr(0, kStatusLine.size()) != kStatusLine.substr(0, text.size())) {
        m_fault =
            "neither frame nor response at byte " + std::to_string(m_nTaken) + ": " + Shown(bytes);
        return 0;
    }
    const size_t nSize = SizeOfResponse(text);
    if (nSize != std::string_view::npos) {
        onResponse(text.substr(0, nSize), true);
        return nSize;
    }
    if (nCut != std::string_view::npos) {
        onResponse(text, false);
        return nCut;
    }
    if (bytes.size() > kLargestResponse)
        m_fault = "a response without an end at byte " + std::to_string(m_nTaken);
    return 0;
}
