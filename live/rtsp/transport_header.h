#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What a SETUP asks for: the first of its offers that we can serve (RFC 2326, 12.39).
enum KovaTransportKind : uint8_t {
    kTransportNone, ///< 461: multicast, RTP/SAVP, raw RTP ports missing, RECORD mode
    kTransportUdp,
    kTransportInterleaved,
    kTransportBad, ///< 400: cannot be read
};

struct KovaTransportOffer {
    KovaTransportKind kind;
    uint16_t nClientRtp; ///< UDP: ports; RTCP defaults to RTP's plus one
    uint16_t nClientRtcp;
    bool bChannels; ///< interleaved: channels were given
    uint8_t nRtpChannel;
    uint8_t nRtcpChannel;
};

/// Reads a Transport header: offers separated by commas, parameters by semicolons, names
/// in any case, blanks allowed; "RTP/AVP", "RTP/AVP/UDP" and "RTP/AVP/TCP"; mode=PLAY in
/// any case and with or without quotes; "destination" and "source" are not obeyed (media
/// goes only to the address that asked), unknown parameters do not count. Ports 0 and
/// channels above 255 are not served.
KovaTransportOffer KovaTransportHeaderParse(std::string_view value);

/// Values of the answer's Transport header.
struct KovaTransportAnswer {
    KovaTransportOffer offer;
    uint16_t nServerRtp;
    uint16_t nServerRtcp;
    uint32_t nSsrc;
    const char *szSource; ///< the address that the player connected to
};

/// Writes the answer's value (no header name, no line end): "RTP/AVP;unicast;client_port=a-b;
/// source=...;server_port=c-d;ssrc=%08X" or "RTP/AVP/TCP;unicast;interleaved=a-b;ssrc=%08X"
/// and ";mode=\"PLAY\"". False when it does not fit.
bool KovaTransportHeaderWrite(const KovaTransportAnswer &answer, char *szText, size_t nCapacity);
