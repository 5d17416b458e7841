#include "tests/support/live_client.h"

#include "tests/support/rtsp_text.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace {

using Clock = std::chrono::steady_clock;

bool SameName(std::string_view one, std::string_view other)
{
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

/// Takes one line; false when it does not end by CRLF or contains another line end.
bool TakeLine(std::string_view *pText, std::string_view *pLine)
{
    const size_t nEnd = pText->find("\r\n");
    if (nEnd == std::string_view::npos)
        return false;
    *pLine = pText->substr(0, nEnd);
    pText->remove_prefix(nEnd + 2);
    return pLine->find_first_of("\r\n") == std::string_view::npos;
}

bool TakeStatus(std::string_view *pText, KovaLiveAnswer *pAnswer)
{
    std::string_view line;
    constexpr std::string_view kVersion = "RTSP/1.0 ";
    if (!TakeLine(pText, &line) || line.substr(0, kVersion.size()) != kVersion)
        return false;
    line.remove_prefix(kVersion.size());
    if (line.size() < 5 || line[3] != ' ' ||
        line.substr(0, 3).find_first_not_of("0123456789") != std::string_view::npos)
        return false;
    pAnswer->nStatus = atoi(std::string(line.substr(0, 3)).c_str());
    pAnswer->reason = line.substr(4);
    return true;
}

bool TakeHeaders(std::string_view *pText, KovaLiveAnswer *pAnswer)
{
    std::string_view line;
    while (TakeLine(pText, &line)) {
        if (line.empty())
            return true;
        const size_t nColon = line.find(": ");
        if (nColon == 0 || nColon == std::string_view::npos)
            return false;
        pAnswer->headers.emplace_back(line.substr(0, nColon), line.substr(nColon + 2));
    }
    return false;
}

} // namespace

std::string KovaLiveAnswer::Header(std::string_view name) const
{
    for (const auto &header : headers)
        if (SameName(header.first, name))
            return header.second;
    return "";
}

int KovaLiveAnswer::Count(std::string_view name) const
{
    return static_cast<int>(
        std::count_if(headers.begin(), headers.end(),
                      [name](const auto &header) { return SameName(header.first, name); }));
}

std::string KovaLiveAnswer::Transport(std::string_view parameter) const
{
    const std::string value = ";" + Header("Transport") + ";";
    const std::string key = ";" + std::string(parameter) + "=";
    const size_t nAt = value.find(key);
    if (nAt == std::string::npos)
        return "";
    const size_t nBegin = nAt + key.size();
    return value.substr(nBegin, value.find(';', nBegin) - nBegin);
}

KovaLiveAnswer KovaReadLiveAnswer(std::string_view text)
{
    KovaLiveAnswer answer;
    answer.text = text;
    if (!TakeStatus(&text, &answer) || !TakeHeaders(&text, &answer) ||
        std::to_string(text.size()) != (text.empty() ? "0" : answer.Header("Content-Length"))) {
        answer.nStatus = -1;
        return answer;
    }
    answer.body = text;
    return answer;
}

bool KovaLiveClient::Connect(uint16_t nPort, int nReceiveBuffer)
{
    m_nPort = nPort;
    return m_rtsp.Connect(nPort, nReceiveBuffer);
}

void KovaLiveClient::Close(bool bReset)
{
    m_rtsp.Close(bReset);
}

bool KovaLiveClient::Send(std::string_view bytes, size_t nPiece)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(nPiece, bytes.size())))
        if (!m_rtsp.Send(bytes.substr(0, nPiece)))
            return false;
    return true;
}

KovaLiveAnswer KovaLiveClient::Receive(int nMilliseconds)
{
    const KovaTestResponse response = m_rtsp.Receive(nMilliseconds);
    if (response.bComplete)
        return KovaReadLiveAnswer(response.text);
    KovaLiveAnswer answer;
    answer.text = response.text;
    return answer;
}

std::string KovaLiveClient::Text(std::string_view method, std::string_view path,
                                 std::string_view lines)
{
    std::string url(path);
    if (path != "*")
        url = "rtsp://127.0.0.1:" + std::to_string(m_nPort) + "/" + url;
    return KovaRequestText(method, url, ++m_nCSeq, m_session, lines);
}

KovaLiveAnswer KovaLiveClient::Request(std::string_view method, std::string_view path,
                                       std::string_view lines)
{
    if (!Send(Text(method, path, lines)))
        return {};
    KovaLiveAnswer answer = Receive();
    if (answer.Header("CSeq") != std::to_string(m_nCSeq))
        answer.nStatus = -1;
    return answer;
}

KovaLiveAnswer KovaLiveClient::Options(std::string_view path)
{
    return Request("OPTIONS", path);
}

KovaLiveAnswer KovaLiveClient::Describe(std::string_view path)
{
    return Request("DESCRIBE", path, "Accept: application/sdp\r\n");
}

KovaLiveClient::Track &KovaLiveClient::TrackOf(int nTrack)
{
    const size_t nIndex = static_cast<size_t>(nTrack - 1);
    if (m_tracks.size() <= nIndex)
        m_tracks.resize(nIndex + 1);
    return m_tracks[nIndex];
}

KovaUdpPair &KovaLiveClient::Ports(int nTrack)
{
    Track &track = TrackOf(nTrack);
    if (!track.ports)
        track.ports = std::make_unique<KovaUdpPair>();
    return *track.ports;
}

KovaLiveAnswer KovaLiveClient::SetupUdp(std::string_view path, int nTrack)
{
    const KovaLiveAnswer answer = Setup(path, nTrack, KovaUdpTransport(Ports(nTrack).RtpPort()));
    const std::string ports = answer.Transport("server_port");
    const size_t nDash = ports.find('-');
    if (nDash != std::string::npos)
        TrackOf(nTrack).nServerRtcp = static_cast<uint16_t>(atoi(ports.c_str() + nDash + 1));
    return answer;
}

KovaLiveAnswer KovaLiveClient::SetupTcp(std::string_view path, int nTrack)
{
    TrackOf(nTrack).ports = nullptr;
    return Setup(path, nTrack, KovaTcpTransport(2 * nTrack - 2));
}

KovaLiveAnswer KovaLiveClient::Setup(std::string_view path, int nTrack, std::string_view transport)
{
    const KovaLiveAnswer answer =
        Request("SETUP", std::string(path) + "/track" + std::to_string(nTrack),
                KovaTransportLine(transport));
    const std::string session = answer.Header("Session");
    if (answer.nStatus == 200)
        m_session = session.substr(0, session.find(';'));
    return answer;
}

KovaLiveAnswer KovaLiveClient::Play(std::string_view path, std::string_view lines)
{
    return Request("PLAY", path, lines);
}

KovaLiveAnswer KovaLiveClient::Pause(std::string_view path)
{
    return Request("PAUSE", path);
}

KovaLiveAnswer KovaLiveClient::Teardown(std::string_view path)
{
    return Request("TEARDOWN", path);
}

bool KovaLiveClient::NextInterleaved(int nTrack, bool bRtcp, std::string *pPacket,
                                     int nMilliseconds)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(nMilliseconds);
    for (;;) {
        std::deque<std::string> &queue = bRtcp ? TrackOf(nTrack).rtcp : TrackOf(nTrack).rtp;
        if (!queue.empty()) {
            *pPacket = queue.front();
            queue.pop_front();
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        KovaTestFrame frame;
        if (!m_rtsp.NextFrame(&frame, static_cast<int>(std::max<decltype(left)>(left, 0))))
            return false;
        Track &track = TrackOf(frame.nChannel / 2 + 1);
        (frame.nChannel % 2 != 0 ? track.rtcp : track.rtp).push_back(frame.payload);
    }
}

bool KovaLiveClient::NextRtp(int nTrack, KovaLiveRtp *pPacket, int nMilliseconds)
{
    constexpr size_t kHeaderSize = 12;
    Track &track = TrackOf(nTrack);
    const bool bCame = track.ports
                           ? track.ports->ReceiveRtp(&pPacket->packet, nMilliseconds)
                           : NextInterleaved(nTrack, false, &pPacket->packet, nMilliseconds);
    if (!bCame || !KovaReadRtpHeader(pPacket->packet, &pPacket->header))
        return false;
    pPacket->payload = pPacket->packet.substr(kHeaderSize);
    return true;
}

bool KovaLiveClient::NextRtcp(int nTrack, std::string *pPacket, int nMilliseconds)
{
    Track &track = TrackOf(nTrack);
    return track.ports ? track.ports->ReceiveRtcp(pPacket, nMilliseconds)
                       : NextInterleaved(nTrack, true, pPacket, nMilliseconds);
}

bool KovaLiveClient::SendRtcp(int nTrack, std::string_view packet)
{
    Track &track = TrackOf(nTrack);
    return track.ports ? track.ports->SendRtcp(track.nServerRtcp, packet)
                       : m_rtsp.Send(KovaInterleaved(2 * nTrack - 1, packet));
}
