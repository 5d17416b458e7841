#pragma once

#include "classic/rtp/rtp_client.h"
#include "classic/rtp/tcp_channel.h"
#include "tests/support/packer_model.h"

#include <netinet/in.h>

#include <memory>
#include <optional>

/// Both ends of one track over UDP on the loopback: the player's two sockets,
/// and the server's two, which the client that is made of them owns.
class KovaUdpEnds {
public:
    KovaUdpEnds();
    ~KovaUdpEnds();
    KovaUdpEnds(const KovaUdpEnds &) = delete;
    KovaUdpEnds &operator=(const KovaUdpEnds &) = delete;

    /// A client of this player; call once.
    KovaRtpClient *Client(const char *szSessionId);

    /// The next datagram at the player's RTP (RTCP) port, nothing if none comes.
    std::optional<KovaBytes> Rtp(int nMilliseconds = 0);
    std::optional<KovaBytes> Rtcp(int nMilliseconds = 0);

    /// Sends RTCP to the server's port; it has arrived on return.
    void SendRtcp(const KovaBytes &bytes);

    int nServerRtp = -1;
    int nServerRtcp = -1;
    uint16_t nRtpPort = 0; ///< the player's
    uint16_t nRtcpPort = 0;

private:
    int m_nRtp = -1;
    int m_nRtcp = -1;
};

/// An accepted RTSP connection on the loopback and the player's end of it.
class KovaTcpEnds {
public:
    KovaTcpEnds();
    ~KovaTcpEnds();
    KovaTcpEnds(const KovaTcpEnds &) = delete;
    KovaTcpEnds &operator=(const KovaTcpEnds &) = delete;

    /// An interleaved client of the connection.
    KovaRtpClient *Client(const char *szSessionId, uint16_t nRtpChannel = 0,
                          uint16_t nRtcpChannel = 1);

    KovaTcpChannel *Channel()
    {
        return m_pChannel;
    }
    int *Field()
    {
        return m_pField.get();
    }
    /// The value of the socket field, whoever writes it just now.
    int Socket();

    /// What the player gets within this time, up to nSize bytes.
    KovaBytes Receive(size_t nSize, int nMilliseconds = 2000);

    /// Fills the server's side until it takes no more; returns the count.
    size_t Fill();

    /// Ends the connection with a reset.
    void Reset();

    /// Ends the server's side as a handler does, its socket field included.
    void EndHandler();

    int nPlayer = -1;

private:
    std::unique_ptr<int> m_pField;
    KovaTcpChannel *m_pChannel = nullptr;
};

/// Whether the descriptor is open.
bool KovaIsOpen(int nDescriptor);
