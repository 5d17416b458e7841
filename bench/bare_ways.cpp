#include "bench/bare_ways.h"

#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103
#endif

namespace {

// What the system takes at once.
constexpr size_t kMostMessages = 64;
constexpr size_t kMostSegments = 64;
constexpr size_t kMostBytes = 65000;

/// Packets that go out as one datagram, which the system cuts.
struct Run {
    std::vector<iovec> parts;
    size_t nSize = 0; ///< of all but the last, which may be smaller
    size_t nBytes = 0;
};

iovec Packet(const std::vector<uint8_t> &frame)
{
    return {const_cast<uint8_t *>(frame.data()) + kClipFraming, frame.size() - kClipFraming};
}

bool Fits(const Run &run, size_t nSize)
{
    return run.parts.back().iov_len == run.nSize && nSize <= run.nSize &&
           run.parts.size() < kMostSegments && run.nBytes + nSize <= kMostBytes;
}

std::vector<Run> RunsOf(const KovaClipUnit &unit)
{
    std::vector<Run> runs;
    for (const std::vector<uint8_t> &frame : unit) {
        const iovec part = Packet(frame);
        if (runs.empty() || !Fits(runs.back(), part.iov_len)) {
            runs.emplace_back();
            runs.back().nSize = part.iov_len;
        }
        runs.back().parts.push_back(part);
        runs.back().nBytes += part.iov_len;
    }
    return runs;
}

void SendTo(const KovaClipUnit &unit, const KovaBarePlayers &players)
{
    for (const std::vector<uint8_t> &frame : unit) {
        for (const KovaBarePlayer *pPlayer : players)
            sendto(pPlayer->nUdpSocket, frame.data() + kClipFraming, frame.size() - kClipFraming, 0,
                   reinterpret_cast<const sockaddr *>(&pPlayer->address), sizeof(sockaddr_in));
    }
}

void SendMany(const KovaClipUnit &unit, const KovaBarePlayers &players)
{
    std::vector<iovec> parts(unit.size());
    std::vector<mmsghdr> messages(unit.size());
    for (size_t nPacket = 0; nPacket < unit.size(); nPacket++) {
        parts[nPacket] = Packet(unit[nPacket]);
        messages[nPacket].msg_hdr.msg_iov = &parts[nPacket];
        messages[nPacket].msg_hdr.msg_iovlen = 1;
        messages[nPacket].msg_hdr.msg_namelen = sizeof(sockaddr_in);
    }
    for (KovaBarePlayer *pPlayer : players) {
        for (mmsghdr &message : messages)
            message.msg_hdr.msg_name = &pPlayer->address;
        for (size_t nAt = 0; nAt < messages.size();) {
            const size_t nCount = std::min(messages.size() - nAt, kMostMessages);
            const int nSent =
                sendmmsg(pPlayer->nUdpSocket, &messages[nAt], static_cast<unsigned>(nCount), 0);
            nAt += nSent > 0 ? static_cast<size_t>(nSent) : 1;
        }
    }
}

void SendSegmented(const KovaClipUnit &unit, const KovaBarePlayers &players)
{
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(uint16_t))] = {};
    std::vector<Run> runs = RunsOf(unit);
    for (KovaBarePlayer *pPlayer : players) {
        for (Run &run : runs) {
            msghdr message = {};
            message.msg_name = &pPlayer->address;
            message.msg_namelen = sizeof(pPlayer->address);
            message.msg_iov = run.parts.data();
            message.msg_iovlen = run.parts.size();
            message.msg_control = control;
            message.msg_controllen = sizeof(control);
            cmsghdr *pSegment = CMSG_FIRSTHDR(&message);
            pSegment->cmsg_level = SOL_UDP;
            pSegment->cmsg_type = UDP_SEGMENT;
            pSegment->cmsg_len = CMSG_LEN(sizeof(uint16_t));
            const uint16_t nSize = static_cast<uint16_t>(run.nSize);
            memcpy(CMSG_DATA(pSegment), &nSize, sizeof(nSize));
            sendmsg(pPlayer->nUdpSocket, &message, 0);
        }
    }
}

/// The sockets wait, but not for ever: less than all was taken by a player who takes nothing.
void Send(const KovaClipUnit &unit, const KovaBarePlayers &players)
{
    for (const std::vector<uint8_t> &frame : unit) {
        for (KovaBarePlayer *pPlayer : players) {
            if (pPlayer->bLost)
                continue;
            const ssize_t nSent =
                send(pPlayer->nRtspSocket, frame.data(), frame.size(), MSG_NOSIGNAL);
            pPlayer->bLost = nSent != static_cast<ssize_t>(frame.size());
        }
    }
}

void SendGathered(const KovaClipUnit &unit, const KovaBarePlayers &players)
{
    std::vector<iovec> parts;
    size_t nBytes = 0;
    for (const std::vector<uint8_t> &frame : unit) {
        parts.push_back({const_cast<uint8_t *>(frame.data()), frame.size()});
        nBytes += frame.size();
    }
    // Of sendmsg() as of writev(), without a signal where nobody reads any more.
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    for (KovaBarePlayer *pPlayer : players) {
        if (!pPlayer->bLost)
            pPlayer->bLost = sendmsg(pPlayer->nRtspSocket, &message, MSG_NOSIGNAL) !=
                             static_cast<ssize_t>(nBytes);
    }
}

constexpr KovaBareWayEntry kWays[] = {{"sendto", true, SendTo},
                                      {"sendmmsg", true, SendMany},
                                      {"gso", true, SendSegmented},
                                      {"send", false, Send},
                                      {"writev", false, SendGathered}};

} // namespace

const KovaBareWayEntry *KovaFindBareWay(const char *szName)
{
    const auto *pFound = std::find_if(std::begin(kWays), std::end(kWays), [=](const auto &way) {
        return strcmp(way.szName, szName) == 0;
    });
    return pFound != std::end(kWays) ? pFound : nullptr;
}

bool KovaHasSegmentation()
{
    const int nSize = 1400;
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool bHas = setsockopt(nSocket, SOL_UDP, UDP_SEGMENT, &nSize, sizeof(nSize)) == 0;
    close(nSocket);
    return bHas;
}
