#include "bench/bare_dialogue.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace {

constexpr int kBacklog = 128;
constexpr int kMostEvents = 64;
constexpr size_t kMostInput = 8192;
constexpr timeval kPatience = {2, 0}; // with a player who takes nothing

/// The text behind a mark, to the end of its line.
std::string Behind(const std::string &request, const std::string &mark)
{
    const size_t nAt = request.find(mark);
    if (nAt == std::string::npos)
        return {};
    const size_t nText = nAt + mark.size();
    return request.substr(nText, request.find("\r\n", nText) - nText);
}

unsigned PortOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    if (getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize) != 0)
        return 0;
    return ntohs(address.sin_port);
}

int OpenUdp()
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    if (bind(nSocket, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(nSocket);
        return -1;
    }
    return nSocket;
}

} // namespace

KovaBareDialogue::KovaBareDialogue(std::string description, bool bUdp)
    : m_description(std::move(description)), m_bUdp(bUdp), m_nEpoll(epoll_create1(EPOLL_CLOEXEC))
{}

unsigned KovaBareDialogue::Listen()
{
    sockaddr_in address = {};
    epoll_event event = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    event.events = EPOLLIN;
    m_nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(m_nListener, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(m_nListener, kBacklog) != 0 ||
        epoll_ctl(m_nEpoll, EPOLL_CTL_ADD, m_nListener, &event) != 0)
        return 0;
    return PortOf(m_nListener);
}

void KovaBareDialogue::Run(int nMilliseconds)
{
    epoll_event events[kMostEvents];
    const int nEvents = epoll_wait(m_nEpoll, events, kMostEvents, nMilliseconds);
    if (nEvents <= 0)
        return;
    for (int nEvent = 0; nEvent < nEvents; nEvent++) {
        auto *pConnection = static_cast<Connection *>(events[nEvent].data.ptr);
        if (pConnection == nullptr)
            Accept();
        else if (!Read(pConnection))
            Close(pConnection);
    }
    m_playing.clear();
    for (Connection &connection : m_connections) {
        if (connection.bPlays)
            m_playing.push_back(&connection.player);
    }
}

void KovaBareDialogue::Accept()
{
    const int nOn = 1;
    const int nSocket = accept4(m_nListener, nullptr, nullptr, SOCK_CLOEXEC);
    if (nSocket < 0)
        return;
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    setsockopt(nSocket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
    m_connections.emplace_back();
    m_connections.back().player.nRtspSocket = nSocket;
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = &m_connections.back();
    if (epoll_ctl(m_nEpoll, EPOLL_CTL_ADD, nSocket, &event) != 0)
        Close(&m_connections.back());
}

bool KovaBareDialogue::Read(Connection *pConnection)
{
    char bytes[2048];
    const ssize_t nGot = recv(pConnection->player.nRtspSocket, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (nGot <= 0)
        return nGot < 0 && (errno == EAGAIN || errno == EINTR);
    std::string &input = pConnection->input;
    input.append(bytes, static_cast<size_t>(nGot));
    for (size_t nEnd; (nEnd = input.find("\r\n\r\n")) != std::string::npos;) {
        if (!Answer(pConnection, input.substr(0, nEnd + 2)))
            return false;
        input.erase(0, nEnd + 4);
    }
    return input.size() < kMostInput;
}

bool KovaBareDialogue::Answer(Connection *pConnection, const std::string &request)
{
    const std::string method = request.substr(0, request.find(' '));
    std::string text = "RTSP/1.0 200 OK\r\nCSeq:" + Behind(request, "\r\nCSeq:") + "\r\n";
    if (method == "SETUP")
        text += Setup(pConnection, request);
    if (method == "DESCRIBE")
        text += "Content-Type: application/sdp\r\nContent-Length: " +
                std::to_string(m_description.size()) + "\r\n\r\n" + m_description;
    else
        text += "\r\n";
    if (method == "PLAY" || method == "TEARDOWN")
        pConnection->bPlays = method == "PLAY";
    return send(pConnection->player.nRtspSocket, text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
}

std::string KovaBareDialogue::Setup(Connection *pConnection, const std::string &request) const
{
    KovaBarePlayer *pPlayer = &pConnection->player;
    const std::string answer = "Session: " + std::to_string(pPlayer->nRtspSocket) +
                               "\r\nTransport:" + Behind(request, "\r\nTransport:");
    if (!m_bUdp || pPlayer->nUdpSocket >= 0)
        return answer + "\r\n";
    const std::string port = Behind(request, "client_port=");
    pPlayer->nUdpSocket = OpenUdp();
    pPlayer->address.sin_family = AF_INET;
    pPlayer->address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    pPlayer->address.sin_port = htons(static_cast<uint16_t>(strtoul(port.c_str(), nullptr, 10)));
    return answer + ";server_port=" + std::to_string(PortOf(pPlayer->nUdpSocket)) + "\r\n";
}

void KovaBareDialogue::Close(Connection *pConnection)
{
    close(pConnection->player.nRtspSocket);
    if (pConnection->player.nUdpSocket >= 0)
        close(pConnection->player.nUdpSocket);
    m_connections.remove_if([=](const Connection &other) { return &other == pConnection; });
}
