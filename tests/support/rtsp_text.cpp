#include "tests/support/rtsp_text.h"

#include <cstdlib>

namespace {

constexpr std::string_view kStatusLine = "RTSP/1.0 ";
constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr size_t kFrameHead = 4;

std::string_view HeaderValue(std::string_view head, std::string_view name)
{
    for (size_t nAt = head.find(name); nAt != std::string_view::npos;
         nAt = head.find(name, nAt + 1)) {
        const std::string_view rest = head.substr(nAt + name.size());
        if (nAt >= 2 && head.substr(nAt - 2, 2) == "\r\n" && rest.substr(0, 2) == ": ")
            return rest.substr(2, rest.find("\r\n") - 2);
    }
    return {};
}

std::string Pair(int nFirst)
{
    return std::to_string(nFirst) + "-" + std::to_string(nFirst + 1);
}

KovaRtspPiece Frame(std::string_view bytes)
{
    if (bytes.size() < kFrameHead)
        return {};
    const size_t nLength =
        static_cast<size_t>(static_cast<uint8_t>(bytes[2]) << 8 | static_cast<uint8_t>(bytes[3]));
    if (bytes.size() < kFrameHead + nLength)
        return {};
    return {kFrameHead + nLength, static_cast<uint8_t>(bytes[1]),
            bytes.substr(kFrameHead, nLength)};
}

KovaRtspPiece Text(std::string_view bytes)
{
    const size_t nEnd = bytes.find(kHeadEnd);
    if (nEnd == std::string_view::npos)
        return {};
    const size_t nHead = nEnd + kHeadEnd.size();
    const std::string length(HeaderValue(bytes.substr(0, nHead), "Content-Length"));
    const size_t nBody = static_cast<size_t>(std::strtoul(length.c_str(), nullptr, 10));
    if (bytes.size() - nHead < nBody)
        return {};
    return {nHead + nBody, -1, bytes.substr(0, nHead + nBody)};
}

} // namespace

std::string KovaRequestText(std::string_view method, std::string_view url, int nCSeq,
                            std::string_view session, std::string_view lines)
{
    std::string text = std::string(method) + " " + std::string(url) +
                       " RTSP/1.0\r\nCSeq: " + std::to_string(nCSeq) + "\r\n";
    if (!session.empty())
        text += "Session: " + std::string(session) + "\r\n";
    return text + std::string(lines) + "\r\n";
}

std::string KovaUdpTransport(int nRtpPort)
{
    return "RTP/AVP;unicast;client_port=" + Pair(nRtpPort);
}

std::string KovaTcpTransport(int nChannel)
{
    return "RTP/AVP/TCP;unicast;interleaved=" + Pair(nChannel);
}

std::string KovaTransportLine(std::string_view transport)
{
    return "Transport: " + std::string(transport) + "\r\n";
}

std::string KovaTestResponse::Header(std::string_view name) const
{
    return std::string(HeaderValue(head, name));
}

std::string KovaTestResponse::Session() const
{
    const std::string value = Header("Session");
    return value.substr(0, value.find(';'));
}

uint16_t KovaTestResponse::ServerPort() const
{
    const std::string_view key = "server_port=";
    const std::string transport = Header("Transport");
    const size_t nAt = transport.find(key);
    return nAt == std::string::npos
               ? uint16_t{0}
               : static_cast<uint16_t>(std::atoi(transport.c_str() + nAt + key.size()));
}

KovaTestResponse KovaReadResponse(std::string_view text)
{
    KovaTestResponse response;
    const KovaRtspPiece piece = KovaFirstPiece(text);
    response.bComplete = piece.nSize != 0 && piece.nChannel < 0;
    response.text = response.bComplete ? piece.bytes : text;
    const size_t nEnd = response.text.find(kHeadEnd);
    if (nEnd == std::string::npos || response.text[0] == '$')
        return response;
    response.head = response.text.substr(0, nEnd + kHeadEnd.size());
    if (response.head.compare(0, kStatusLine.size(), kStatusLine) == 0)
        response.nStatus = std::atoi(response.head.c_str() + kStatusLine.size());
    if (response.bComplete)
        response.body = response.text.substr(response.head.size());
    return response;
}

std::string KovaInterleaved(int nChannel, std::string_view packet)
{
    std::string frame = "$";
    frame += static_cast<char>(nChannel);
    frame += static_cast<char>(packet.size() >> 8);
    frame += static_cast<char>(packet.size() & 0xff);
    return frame + std::string(packet);
}

KovaRtspPiece KovaFirstPiece(std::string_view bytes)
{
    if (bytes.empty())
        return {};
    return bytes[0] == '$' ? Frame(bytes) : Text(bytes);
}

bool KovaBeginsResponse(std::string_view bytes)
{
    return bytes.substr(0, kStatusLine.size()) == kStatusLine.substr(0, bytes.size());
}

std::string KovaReceiverReport(uint32_t nSsrc)
{
    std::string packet("\x81\xc9\x00\x07\x11\x22\x33\x44", 8);
    for (int nShift = 24; nShift >= 0; nShift -= 8)
        packet += static_cast<char>(nSsrc >> nShift & 0xff);
    return packet.append(20, '\0');
}
