#pragma once

#include "classic/server/server.h"
#include "tests/support/feed.h"
#include "tests/support/media.h"
#include "tests/support/ready_stream.h"
#include "tests/support/rtsp_client.h"
#include "tests/support/wait_until.h"

#include <cstdint>
#include <string>
#include <vector>

/// How a test server is made.
struct KovaTestServerOptions {
    std::string uri = "live"; ///< of the first stream; empty: no stream
    int32_t nMaxClient = 64;
    /// false: neither listener nor monitor run; Connect() hands the connections
    /// over itself. Nothing expires then, and the end takes no second.
    bool bStart = true;
};

/// A server on a free loopback port with one stream (audio 96, video 97), gone
/// with this object. Its records are open to the test.
class KovaTestServer {
public:
    explicit KovaTestServer(const KovaTestServerOptions &options = {});
    ~KovaTestServer();
    KovaTestServer(const KovaTestServer &) = delete;
    KovaTestServer &operator=(const KovaTestServer &) = delete;

    /// Whether everything could be made.
    bool IsUp() const
    {
        return m_pServer != nullptr;
    }
    KovaRtspServer *Server() const
    {
        return m_pServer;
    }
    uint16_t Port() const
    {
        return m_nPort;
    }
    /// The first stream; null once it is removed.
    KovaRtspStreamer *Stream() const
    {
        return m_pStream;
    }

    /// Publishes a further stream with both payload types; null when refused.
    KovaRtspStreamer *AddStream(const std::string &uri);
    /// Withdraws the first stream.
    void RemoveStream();

    /// Gives the stream its parameter sets and AAC configuration directly.
    void MakeReady()
    {
        MakeReady(m_pStream);
    }
    static void MakeReady(KovaRtspStreamer *pStream)
    {
        KovaMakeReady(pStream);
    }
    /// The same by pushing a key frame and an AAC frame; waits until they are
    /// known. The time stamps are nTimestamp.
    bool PushReady(uint32_t nTimestamp = 0);

    /// Connects a client, in either way of running.
    bool Connect(KovaRtspTestClient *pClient, int nReceiveBuffer = 0);
    /// The handler of a connected client; null when there is none.
    KovaRtspServerHandler *Handler(const KovaRtspTestClient &client);
    /// Waits until the client's last request is done with, not only answered. What
    /// the request did is visible to the caller then, and what the caller did to
    /// the next request. A server that is not started does so at each exchange.
    void Settle(const KovaRtspTestClient &client);
    /// Waits until so many connections are registered.
    bool WaitHandlers(unsigned nCount, int nMilliseconds);

    unsigned HandlerCount();
    unsigned SessionCount();
    /// Expiry instant of a session; 0 when there is none.
    int32_t Expiry(const std::string &session);
    /// The clients of the stream's track, as copies.
    struct Client {
        std::string session;
        int32_t nState;
        int32_t nRtpSocket;
        int32_t nRtcpSocket;
        uint16_t nClientRtpPort;
        uint16_t nClientRtcpPort;
        int32_t bInterleaved;
        int *pTcpSocket;    ///< its reference; follow it only while the connection stays
        int32_t nTcpSocket; ///< the socket of its connection; -1 without one
        uint16_t nRtpChannel;
        uint16_t nRtcpChannel;
        uint16_t nStartSequence;
        uint32_t nStartTimestamp;
        sockaddr_in rtpAddress;
        sockaddr_in rtcpAddress;
    };
    std::vector<Client> Clients(uint32_t nPayloadId)
    {
        return Clients(m_pStream, nPayloadId);
    }
    static std::vector<Client> Clients(KovaRtspStreamer *pStream, uint32_t nPayloadId);
    /// SSRC of the stream's track.
    uint32_t Ssrc(uint32_t nPayloadId) const;

private:
    KovaRtspServer *m_pServer = nullptr;
    KovaRtspStreamer *m_pStream = nullptr;
    std::string m_uri;
    uint16_t m_nPort = 0;
    int m_nListener = -1;
};

/// A free TCP port of the loopback address.
uint16_t KovaFreeTcpPort();

/// Number of open descriptors of the process.
int KovaOpenDescriptors();
