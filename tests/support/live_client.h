#pragma once

#include "tests/support/depacketizer.h"
#include "tests/support/rtsp_client.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// How long anything is waited for by default.
constexpr int kLiveWaitMs = 5000;

/// An RTP packet taken apart.
struct KovaLiveRtp {
    KovaRtpHeaderFields header;
    std::string payload;
    std::string packet; ///< all of it
};

/// An answer with its header lines. The status is -1 without a whole answer.
struct KovaLiveAnswer {
    int nStatus = -1;
    std::string reason;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string text; ///< as it came

    /// Value of the header of that name in any case; "" without one.
    std::string Header(std::string_view name) const;
    /// How many headers have that name.
    int Count(std::string_view name) const;
    /// A parameter of the Transport header ("ssrc", "server_port"); "" without it.
    std::string Transport(std::string_view parameter) const;
};

/// Takes an answer apart. Every line must end by CRLF and be "Name: value"; else status -1.
KovaLiveAnswer KovaReadLiveAnswer(std::string_view text);

/// A strict player of the live interface: a connection to 127.0.0.1, UDP ports for each track that
/// is set up over UDP, and what comes. Every wait is bounded. One thread at a time.
///
///     KovaLiveClient client;
///     ASSERT_TRUE(client.Connect(nPort));
///     EXPECT_EQ(client.Describe("cam").nStatus, 200);
///     EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
///     EXPECT_EQ(client.Play("cam").nStatus, 200);
///     KovaLiveRtp packet;
///     ASSERT_TRUE(client.NextRtp(1, &packet));
class KovaLiveClient {
public:
    KovaLiveClient() = default;
    KovaLiveClient(const KovaLiveClient &) = delete;
    KovaLiveClient &operator=(const KovaLiveClient &) = delete;

    /// Connects; the name in the URLs stays 127.0.0.1:port. nReceiveBuffer > 0 limits what the
    /// system takes before the test reads.
    bool Connect(uint16_t nPort, int nReceiveBuffer = 0);
    void Close(bool bReset = false);

    /// Sends bytes as they are, in pieces of at most nPiece bytes, each a segment of its own.
    bool Send(std::string_view bytes, size_t nPiece = 65536);
    /// The next answer; frames before it are kept for NextRtp and NextRtcp.
    KovaLiveAnswer Receive(int nMilliseconds = kLiveWaitMs);
    /// A request's text with the next CSeq, the session, if any, and further lines, each with its
    /// CRLF. The path stands behind "rtsp://127.0.0.1:port/"; "*" stands alone.
    std::string Text(std::string_view method, std::string_view path, std::string_view lines = {});
    /// Sends one and receives its answer, whose CSeq must be the request's: else status -1.
    KovaLiveAnswer Request(std::string_view method, std::string_view path,
                           std::string_view lines = {});

    KovaLiveAnswer Options(std::string_view path = "*");
    KovaLiveAnswer Describe(std::string_view path);
    /// Tracks are counted from 1, as in "track1". The ports, or channels 2 * n - 2 and 2 * n - 1,
    /// are the client's choice; the session of the answer is remembered.
    KovaLiveAnswer SetupUdp(std::string_view path, int nTrack);
    KovaLiveAnswer SetupTcp(std::string_view path, int nTrack);
    KovaLiveAnswer Setup(std::string_view path, int nTrack, std::string_view transport);
    KovaLiveAnswer Play(std::string_view path, std::string_view lines = {});
    KovaLiveAnswer Pause(std::string_view path);
    KovaLiveAnswer Teardown(std::string_view path);

    /// The next packet of a track, in whichever way it was set up; false when none came in time
    /// or it cannot be read.
    bool NextRtp(int nTrack, KovaLiveRtp *pPacket, int nMilliseconds = kLiveWaitMs);
    bool NextRtcp(int nTrack, std::string *pPacket, int nMilliseconds = kLiveWaitMs);
    /// Sends RTCP of a track: to the server's port, or in its channel.
    bool SendRtcp(int nTrack, std::string_view packet);

    /// Whether the server ends the connection in time.
    bool WaitClosed(int nMilliseconds = kLiveWaitMs)
    {
        return m_rtsp.WaitClosed(nMilliseconds);
    }
    std::string Session() const
    {
        return m_session;
    }
    void SetSession(std::string_view session)
    {
        m_session = session;
    }
    int LastCSeq() const
    {
        return m_nCSeq;
    }
    /// The UDP ports of a track that was set up over UDP.
    KovaUdpPair &Ports(int nTrack);
    KovaRtspTestClient &Rtsp()
    {
        return m_rtsp;
    }

private:
    struct Track {
        std::unique_ptr<KovaUdpPair> ports; ///< null: interleaved
        uint16_t nServerRtcp = 0;
        std::deque<std::string> rtp;
        std::deque<std::string> rtcp;
    };
    Track &TrackOf(int nTrack);
    bool NextInterleaved(int nTrack, bool bRtcp, std::string *pPacket, int nMilliseconds);

    uint16_t m_nPort = 0;
    int m_nCSeq = 0;
    std::string m_session;
    KovaRtspTestClient m_rtsp;
    std::vector<Track> m_tracks;
};
