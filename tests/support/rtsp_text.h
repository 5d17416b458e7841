#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What a player writes on its RTSP connection and finds on it, as bytes: there
/// is no socket here, and nothing of the library.

/// A request: its line, CSeq, the session unless it is empty, further lines, each
/// with its CR LF, and the empty line.
std::string KovaRequestText(std::string_view method, std::string_view url, int nCSeq,
                            std::string_view session = {}, std::string_view lines = {});

/// Value of a Transport header that asks for two UDP ports, or two channels, from
/// this one on; and the header's line.
std::string KovaUdpTransport(int nRtpPort);
std::string KovaTcpTransport(int nChannel);
std::string KovaTransportLine(std::string_view transport);

/// One response, or what came instead of it.
struct KovaTestResponse {
    bool bComplete = false; ///< a head, and as many body bytes as it announces
    int nStatus = 0;        ///< of the status line; 0 without one
    std::string text;       ///< every byte, head and body
    std::string head;       ///< up to and with the empty line
    std::string body;

    /// Value of the first header line with that name (exact case); empty without one.
    std::string Header(std::string_view name) const;
    /// The id in the Session header, without its parameters; empty without one.
    std::string Session() const;
    /// The server's RTP port in the Transport header; 0 without one.
    uint16_t ServerPort() const;
};

/// Takes the text of one response apart; incomplete when it is not all there.
KovaTestResponse KovaReadResponse(std::string_view text);

/// One interleaved frame (RFC 2326, section 10.12).
struct KovaTestFrame {
    int nChannel = -1;
    std::string payload;
};

/// The bytes of such a frame around a packet.
std::string KovaInterleaved(int nChannel, std::string_view packet);

/// What stands first on a connection: an interleaved frame or a text with its
/// body. Nothing is copied.
struct KovaRtspPiece {
    size_t nSize = 0;       ///< of all its bytes; 0: it is not all there
    int nChannel = -1;      ///< of a frame; -1: a text
    std::string_view bytes; ///< a frame's payload, or the text
};
KovaRtspPiece KovaFirstPiece(std::string_view bytes);

/// Whether bytes begin as a response does, as far as they go.
bool KovaBeginsResponse(std::string_view bytes);

/// An RTCP receiver report with one block (32 bytes; RFC 3550, section 6.4.2).
std::string KovaReceiverReport(uint32_t nSsrc);
