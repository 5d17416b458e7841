#pragma once

#include "tests/support/rtsp_text.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

/// A player's RTSP connection. Responses and interleaved frames that come mixed
/// are told apart. Every wait is bounded. One thread at a time.
class KovaRtspTestClient {
public:
    KovaRtspTestClient() = default;
    ~KovaRtspTestClient();
    KovaRtspTestClient(const KovaRtspTestClient &) = delete;
    KovaRtspTestClient &operator=(const KovaRtspTestClient &) = delete;

    /// Connects to a port on the loopback address. nReceiveBuffer > 0 limits what
    /// the system takes before the test reads.
    bool Connect(uint16_t nPort, int nReceiveBuffer = 0);
    /// Takes over a connected socket.
    void Adopt(int nSocket);
    /// Ends the connection; with a reset instead of an orderly end if bReset.
    void Close(bool bReset = false);
    /// Called before bytes are sent, behind each Exchange() and before the end.
    void OnExchange(std::function<void()> action)
    {
        m_onExchange = std::move(action);
    }
    int Socket() const
    {
        return m_nSocket;
    }
    /// The client's own port.
    uint16_t LocalPort() const;

    /// Sends bytes as they are.
    bool Send(std::string_view bytes);
    /// Reads one response with its body; interleaved frames go into the queue.
    KovaTestResponse Receive(int nMilliseconds = 5000);
    /// Both.
    KovaTestResponse Exchange(std::string_view bytes);
    /// The next interleaved frame; false when none came in time.
    bool NextFrame(KovaTestFrame *pFrame, int nMilliseconds);
    /// Whether nothing comes (no byte, no end) for that long.
    bool IsSilent(int nMilliseconds);
    /// Whether the server ends the connection in that time; frames are read on.
    bool WaitClosed(int nMilliseconds);

    /// Requests on a stream, with the next CSeq, the session that a SETUP gave
    /// (if any) and the given lines, each with its CR LF. Setup remembers the id.
    KovaTestResponse Options(std::string_view stream, std::string_view lines = {});
    KovaTestResponse Describe(std::string_view stream, std::string_view lines = {});
    KovaTestResponse SetupUdp(std::string_view stream, int nTrack, uint16_t nRtpPort);
    KovaTestResponse SetupTcp(std::string_view stream, int nTrack, int nChannel);
    KovaTestResponse Setup(std::string_view stream, int nTrack, std::string_view transport);
    KovaTestResponse Play(std::string_view stream, std::string_view lines = {});
    KovaTestResponse GetParameter(std::string_view stream, std::string_view lines = {});
    KovaTestResponse Teardown(std::string_view stream, std::string_view lines = {});
    /// The text of such a request; the path is what follows "rtsp://host/".
    std::string Format(std::string_view method, std::string_view path, std::string_view lines);

    /// CSeq of the last request.
    int LastCSeq() const
    {
        return m_nCSeq;
    }
    std::string Session() const
    {
        return m_session;
    }
    void SetSession(std::string_view session)
    {
        m_session = session;
    }

private:
    bool Fill(int nMilliseconds);
    void TakeFrames();

    int m_nSocket = -1;
    int m_nCSeq = 0;
    std::string m_session;
    std::string m_input;
    std::deque<KovaTestFrame> m_frames;
    std::function<void()> m_onExchange;
};

/// A player's two UDP ports on the loopback address: an even one and the next. They may be made
/// in any thread.
class KovaUdpPair {
public:
    KovaUdpPair();
    ~KovaUdpPair();
    KovaUdpPair(const KovaUdpPair &) = delete;
    KovaUdpPair &operator=(const KovaUdpPair &) = delete;

    bool IsOpen() const
    {
        return m_nPort != 0;
    }
    uint16_t RtpPort() const
    {
        return m_nPort;
    }
    uint16_t RtcpPort() const
    {
        return static_cast<uint16_t>(m_nPort + 1);
    }

    /// The next packet; false when none came in time.
    bool ReceiveRtp(std::string *pPacket, int nMilliseconds);
    bool ReceiveRtcp(std::string *pPacket, int nMilliseconds);
    /// Sends from the RTCP (or RTP) port to a port on the loopback address.
    bool SendRtcp(uint16_t nPort, std::string_view bytes);
    bool SendRtp(uint16_t nPort, std::string_view bytes);

private:
    uint16_t m_nPort = 0;
    int m_nRtp = -1;
    int m_nRtcp = -1;
};
