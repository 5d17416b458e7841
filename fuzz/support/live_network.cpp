#include "fuzz/support/live_network.h"

#include "fuzz/support/require.h"
#include "rtp/udp_batch.h"
#include "tests/support/c_calls.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace {

uint64_t g_nNow;             // µs, of both clocks
std::map<int, int> g_limits; // bytes that a connection takes yet
bool g_bUdpFull;             // no datagram is taken

std::map<uint16_t, KovaLiveOrder> g_udp; // by the player's port

void TakeDatagram(const void *pAddress, const uint8_t *pPacket, size_t nSize)
{
    sockaddr_in address = {};
    memcpy(&address, pAddress, sizeof(address));
    const uint16_t nPort = ntohs(address.sin_port);
    if (nPort % 2 == 0)
        KovaLiveCheckPacket(&g_udp[nPort], pPacket, nSize);
    else
        KovaRequire(nSize >= 8 && pPacket[1] == 200, "a report begins with the sender's");
}

int ClockGetTime(clockid_t, timespec *pTime)
{
    pTime->tv_sec = static_cast<time_t>(g_nNow / 1000000);
    pTime->tv_nsec = static_cast<long>(g_nNow % 1000000 * 1000);
    return 0;
}

int GetTimeOfDay(timeval *pTime, void *)
{
    pTime->tv_sec = static_cast<time_t>(1700000000 + g_nNow / 1000000);
    pTime->tv_usec = static_cast<suseconds_t>(g_nNow % 1000000);
    return 0;
}

/// How many of so many bytes the connection takes; takes them off.
size_t Allowed(int nSocket, size_t nSize)
{
    const auto entry = g_limits.find(nSocket);
    if (entry == g_limits.end() || entry->second == kLiveNoLimit)
        return nSize;
    const size_t nAllowed = std::min(nSize, static_cast<size_t>(entry->second));
    entry->second -= static_cast<int>(nAllowed);
    return nAllowed;
}

ssize_t Send(int nSocket, const void *pBytes, size_t nSize, int nFlags)
{
    const size_t nAllowed = Allowed(nSocket, nSize);
    if (nAllowed != 0)
        return __real_send(nSocket, pBytes, nAllowed, nFlags);
    errno = EAGAIN;
    return -1;
}

ssize_t SendTo(int, const void *pBytes, size_t nSize, int, const sockaddr *pAddress, socklen_t)
{
    if (g_bUdpFull) {
        errno = EAGAIN;
        return -1;
    }
    TakeDatagram(pAddress, static_cast<const uint8_t *>(pBytes), nSize);
    return static_cast<ssize_t>(nSize);
}

ssize_t SendMessage(int nSocket, const msghdr *pMessage, int nFlags)
{
    std::string bytes;
    for (size_t nPart = 0; nPart < pMessage->msg_iovlen; nPart++)
        bytes.append(static_cast<const char *>(pMessage->msg_iov[nPart].iov_base),
                     pMessage->msg_iov[nPart].iov_len);
    if (pMessage->msg_name != nullptr)
        return SendTo(nSocket, bytes.data(), bytes.size(), nFlags,
                      static_cast<const sockaddr *>(pMessage->msg_name), pMessage->msg_namelen);
    return Send(nSocket, bytes.data(), bytes.size(), nFlags);
}

int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    for (unsigned nMessage = 0; nMessage < nCount; nMessage++) {
        const ssize_t nSent = SendMessage(nSocket, &pMessages[nMessage].msg_hdr, nFlags);
        if (nSent < 0)
            return nMessage != 0 ? static_cast<int>(nMessage) : -1;
        pMessages[nMessage].msg_len = static_cast<unsigned>(nSent);
    }
    return static_cast<int>(nCount);
}

/// Nothing here cuts a message into datagrams.
int GetOption(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize)
{
    if (nLevel != IPPROTO_UDP)
        return __real_getsockopt(nSocket, nLevel, nName, pValue, pSize);
    errno = ENOPROTOOPT;
    return -1;
}

} // namespace

void KovaLiveCheckPacket(KovaLiveOrder *pOrder, const uint8_t *pPacket, size_t nSize)
{
    KovaRequire(nSize > 12 && pPacket[0] == 0x80, "an RTP packet of version 2");
    const uint16_t nSequence = static_cast<uint16_t>(pPacket[2] << 8 | pPacket[3]);
    if (pOrder->bBegun) {
        const uint16_t nStep = static_cast<uint16_t>(nSequence - pOrder->nNext);
        KovaRequire(nStep < 0x8000, "packets come in order");
        pOrder->nMissing += nStep;
    }
    pOrder->bBegun = true;
    pOrder->nNext = static_cast<uint16_t>(nSequence + 1);
}

void KovaLiveNetworkBegin()
{
    g_nNow = 1000000;
    g_limits.clear();
    g_udp.clear();
    g_bUdpFull = false;
    KovaReplaceCall<__real_clock_gettime>(ClockGetTime);
    KovaReplaceCall<__real_gettimeofday>(GetTimeOfDay);
    KovaReplaceCall<__real_send>(Send);
    KovaReplaceCall<__real_sendto>(SendTo);
    KovaReplaceCall<__real_sendmsg>(SendMessage);
    KovaReplaceCall<__real_sendmmsg>(SendMany);
    KovaReplaceCall<__real_getsockopt>(GetOption);
    KovaUdpBatchForget();
}

void KovaLiveClockAdvance(uint64_t nMicroseconds)
{
    g_nNow += nMicroseconds;
}

void KovaLiveLimit(int nSocket, int nBytes)
{
    g_limits[nSocket] = nBytes;
}

void KovaLiveUdpFull(bool bFull)
{
    g_bUdpFull = bFull;
}

bool KovaLiveUdpIsFull()
{
    return g_bUdpFull;
}

const KovaLiveOrder *KovaLiveUdpOrder(uint16_t nPort)
{
    const auto entry = g_udp.find(nPort);
    return entry != g_udp.end() ? &entry->second : nullptr;
}

void KovaLiveUdpForget(uint16_t nPort)
{
    g_udp.erase(nPort);
}
