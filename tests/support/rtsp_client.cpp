#include "tests/support/rtsp_client.h"

#include "tests/support/sockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point In(int nMilliseconds)
{
    return Clock::now() + std::chrono::milliseconds(nMilliseconds);
}

int Left(Clock::time_point end)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

int OpenUdp(uint16_t nPort)
{
    const int nSocket = KovaBind(SOCK_DGRAM, nPort);
    // A key frame fills what the system gives by itself, and a test that does not get the
    // processor for a while must not lose packets.
    const int nBuffer = 4 << 20;
    if (setsockopt(nSocket, SOL_SOCKET, SO_RCVBUFFORCE, &nBuffer, sizeof(nBuffer)) != 0)
        setsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &nBuffer, sizeof(nBuffer));
    return nSocket;
}

bool ReceiveFrom(int nSocket, std::string *pPacket, int nMilliseconds)
{
    if (!KovaWaitReadable(nSocket, nMilliseconds))
        return false;
    pPacket->resize(65536);
    const ssize_t nGot = recv(nSocket, pPacket->data(), pPacket->size(), MSG_DONTWAIT);
    pPacket->resize(static_cast<size_t>(std::max<ssize_t>(nGot, 0)));
    return nGot >= 0;
}

bool SendTo(int nSocket, uint16_t nPort, std::string_view bytes)
{
    return sendto(nSocket, bytes.data(), bytes.size(), 0, KovaPlain(KovaLoopback(nPort)),
                  sizeof(sockaddr_in)) == static_cast<ssize_t>(bytes.size());
}

} // namespace

KovaRtspTestClient::~KovaRtspTestClient()
{
    Close();
}

bool KovaRtspTestClient::Connect(uint16_t nPort, int nReceiveBuffer)
{
    Adopt(KovaConnect(nPort, {nReceiveBuffer, 0}));
    return m_nSocket >= 0;
}

void KovaRtspTestClient::Adopt(int nSocket)
{
    Close();
    m_nSocket = nSocket;
}

void KovaRtspTestClient::Close(bool bReset)
{
    if (m_nSocket >= 0) {
        if (m_onExchange)
            m_onExchange();
        KovaCloseSocket(m_nSocket, bReset);
    }
    m_nSocket = -1;
    m_onExchange = nullptr;
    m_input.clear();
    m_frames.clear();
}

uint16_t KovaRtspTestClient::LocalPort() const
{
    return KovaPortOf(m_nSocket);
}

bool KovaRtspTestClient::Send(std::string_view bytes)
{
    if (m_onExchange)
        m_onExchange();
    while (!bytes.empty()) {
        const ssize_t nSent = send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (nSent <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(nSent));
    }
    return true;
}

bool KovaRtspTestClient::Fill(int nMilliseconds)
{
    if (m_nSocket < 0 || !KovaWaitReadable(m_nSocket, nMilliseconds))
        return false;
    char chunk[65536];
    const ssize_t nGot = recv(m_nSocket, chunk, sizeof(chunk), MSG_DONTWAIT);
    if (nGot <= 0)
        return false;
    m_input.append(chunk, static_cast<size_t>(nGot));
    return true;
}

void KovaRtspTestClient::TakeFrames()
{
    for (;;) {
        const KovaRtspPiece piece = KovaFirstPiece(m_input);
        if (piece.nSize == 0 || piece.nChannel < 0)
            return;
        m_frames.push_back({piece.nChannel, std::string(piece.bytes)});
        m_input.erase(0, piece.nSize);
    }
}

KovaTestResponse KovaRtspTestClient::Receive(int nMilliseconds)
{
    const Clock::time_point end = In(nMilliseconds);
    do {
        TakeFrames();
        KovaTestResponse response = KovaReadResponse(m_input);
        if (!response.bComplete)
            continue;
        m_input.erase(0, response.text.size());
        return response;
    } while (Left(end) > 0 && Fill(Left(end)));
    return KovaReadResponse(m_input);
}

KovaTestResponse KovaRtspTestClient::Exchange(std::string_view bytes)
{
    if (!Send(bytes))
        return {};
    const KovaTestResponse response = Receive();
    if (m_onExchange)
        m_onExchange();
    return response;
}

bool KovaRtspTestClient::NextFrame(KovaTestFrame *pFrame, int nMilliseconds)
{
    const Clock::time_point end = In(nMilliseconds);
    TakeFrames();
    while (m_frames.empty() && Left(end) > 0 && Fill(Left(end)))
        TakeFrames();
    if (m_frames.empty())
        return false;
    *pFrame = m_frames.front();
    m_frames.pop_front();
    return true;
}

bool KovaRtspTestClient::IsSilent(int nMilliseconds)
{
    TakeFrames();
    return m_input.empty() && m_frames.empty() && !KovaWaitReadable(m_nSocket, nMilliseconds);
}

bool KovaRtspTestClient::WaitClosed(int nMilliseconds)
{
    const Clock::time_point end = In(nMilliseconds);
    while (Left(end) > 0 && KovaWaitReadable(m_nSocket, Left(end))) {
        char chunk[65536];
        if (recv(m_nSocket, chunk, sizeof(chunk), MSG_DONTWAIT) <= 0)
            return true;
    }
    return false;
}

std::string KovaRtspTestClient::Format(std::string_view method, std::string_view path,
                                       std::string_view lines)
{
    return KovaRequestText(method, "rtsp://127.0.0.1/" + std::string(path), ++m_nCSeq, m_session,
                           lines);
}

KovaTestResponse KovaRtspTestClient::Options(std::string_view stream, std::string_view lines)
{
    return Exchange(Format("OPTIONS", stream, lines));
}

KovaTestResponse KovaRtspTestClient::Describe(std::string_view stream, std::string_view lines)
{
    return Exchange(Format("DESCRIBE", stream, lines));
}

KovaTestResponse KovaRtspTestClient::SetupUdp(std::string_view stream, int nTrack,
                                              uint16_t nRtpPort)
{
    return Setup(stream, nTrack, KovaUdpTransport(nRtpPort));
}

KovaTestResponse KovaRtspTestClient::SetupTcp(std::string_view stream, int nTrack, int nChannel)
{
    return Setup(stream, nTrack, KovaTcpTransport(nChannel));
}

KovaTestResponse KovaRtspTestClient::Setup(std::string_view stream, int nTrack,
                                           std::string_view transport)
{
    const KovaTestResponse response =
        Exchange(Format("SETUP", std::string(stream) + "/trackID=" + std::to_string(nTrack),
                        KovaTransportLine(transport)));
    if (response.nStatus == 200)
        m_session = response.Session();
    return response;
}

KovaTestResponse KovaRtspTestClient::Play(std::string_view stream, std::string_view lines)
{
    return Exchange(Format("PLAY", stream, lines));
}

KovaTestResponse KovaRtspTestClient::GetParameter(std::string_view stream, std::string_view lines)
{
    return Exchange(Format("GET_PARAMETER", stream, lines));
}

KovaTestResponse KovaRtspTestClient::Teardown(std::string_view stream, std::string_view lines)
{
    return Exchange(Format("TEARDOWN", stream, lines));
}

KovaUdpPair::KovaUdpPair()
{
    // Away from the ports that servers and the system give out.
    static std::atomic<unsigned> nNext{static_cast<unsigned>(getpid()) % 10000};
    for (int i = 0; i < 500 && m_nPort == 0; i++) {
        const uint16_t nPort = static_cast<uint16_t>(12000 + nNext++ % 10000 * 2);
        m_nRtp = OpenUdp(nPort);
        m_nRtcp = m_nRtp < 0 ? -1 : OpenUdp(static_cast<uint16_t>(nPort + 1));
        if (m_nRtcp >= 0)
            m_nPort = nPort;
        else if (m_nRtp >= 0)
            close(m_nRtp);
    }
}

KovaUdpPair::~KovaUdpPair()
{
    if (m_nPort == 0)
        return;
    close(m_nRtp);
    close(m_nRtcp);
}

bool KovaUdpPair::ReceiveRtp(std::string *pPacket, int nMilliseconds)
{
    return ReceiveFrom(m_nRtp, pPacket, nMilliseconds);
}

bool KovaUdpPair::ReceiveRtcp(std::string *pPacket, int nMilliseconds)
{
    return ReceiveFrom(m_nRtcp, pPacket, nMilliseconds);
}

bool KovaUdpPair::SendRtcp(uint16_t nPort, std::string_view bytes)
{
    return SendTo(m_nRtcp, nPort, bytes);
}

bool KovaUdpPair::SendRtp(uint16_t nPort, std::string_view bytes)
{
    return SendTo(m_nRtp, nPort, bytes);
}
