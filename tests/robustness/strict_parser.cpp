#include "tests/robustness/strict_parser.h"

#include "tests/support/rtsp_text.h"

#include <algorithm>

namespace {

constexpr std::string_view kStatusLine = "RTSP/1.0 ";
constexpr size_t kLargestResponse = 8192;
constexpr size_t kLargestFrame = 4 + 65535;
constexpr size_t kLargestRead = 65536;

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
        const size_t nUsed = TakePiece(left);
        if (nUsed == 0)
            break;
        m_nTaken += nUsed;
        left.remove_prefix(nUsed);
    }
    m_input.erase(0, m_input.size() - left.size());
    return m_fault.empty();
}

/// Returns the number of bytes used; 0 when nothing is all there. A '$' or the
/// next response cuts a response.
size_t KovaStrictParser::TakePiece(std::string_view bytes)
{
    const bool bFrame = bytes[0] == '$';
    const size_t nCut =
        bFrame ? std::string_view::npos : std::min(bytes.find('$'), bytes.find(kStatusLine, 1));
    const std::string_view text = bytes.substr(0, nCut);
    if (!bFrame && !KovaBeginsResponse(text)) {
        m_fault =
            "neither frame nor response at byte " + std::to_string(m_nTaken) + ": " + Shown(bytes);
        return 0;
    }
    const KovaRtspPiece piece = KovaFirstPiece(text);
    if (bFrame && piece.nSize != 0)
        onFrame(piece.nChannel, piece.bytes);
    else if (piece.nSize != 0)
        onResponse(piece.bytes, true);
    else if (nCut != std::string_view::npos)
        onResponse(text, false);
    else if (!bFrame && bytes.size() > kLargestResponse)
        m_fault = "a response without an end at byte " + std::to_string(m_nTaken);
    return piece.nSize == 0 && nCut != std::string_view::npos ? nCut : piece.nSize;
}
