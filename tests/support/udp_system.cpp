#include "tests/support/udp_system.h"

#include "tests/support/c_calls.h"

#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr int kUdpSegment = 103;

KovaUdpSystem *g_pSystem = nullptr;

uint16_t PortOf(const void *pAddress)
{
    sockaddr_in address = {};
    memcpy(&address, pAddress, sizeof(address));
    return ntohs(address.sin_port);
}

std::string BytesOf(const msghdr &message)
{
    std::string bytes;
    for (size_t n = 0; n < message.msg_iovlen; n++)
        bytes.append(static_cast<const char *>(message.msg_iov[n].iov_base),
                     message.msg_iov[n].iov_len);
    return bytes;
}

/// The size at which a message is to be cut; 0: not at all.
size_t SegmentOf(const msghdr &message)
{
    if (message.msg_controllen == 0)
        return 0;
    const cmsghdr *pControl = CMSG_FIRSTHDR(&message);
    if (pControl->cmsg_level != IPPROTO_UDP || pControl->cmsg_type != kUdpSegment ||
        pControl->cmsg_len != CMSG_LEN(sizeof(uint16_t)))
        return 0;
    uint16_t nSize = 0;
    memcpy(&nSize, CMSG_DATA(pControl), sizeof(nSize));
    return nSize;
}

std::vector<std::string> Cut(const std::string &bytes, size_t nSize)
{
    if (nSize == 0)
        return {bytes};
    std::vector<std::string> packets;
    for (size_t nAt = 0; nAt < bytes.size(); nAt += nSize)
        packets.push_back(bytes.substr(nAt, nSize));
    return packets;
}

} // namespace

struct KovaUdpSystemHooks {
    static bool Has(int nSocket)
    {
        return g_pSystem != nullptr && nSocket >= KovaUdpSystem::kFirstSocket;
    }

    static int GetOption(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize)
    {
        if (!Has(nSocket) || nLevel != IPPROTO_UDP || nName != kUdpSegment)
            return __real_getsockopt(nSocket, nLevel, nName, pValue, pSize);
        g_pSystem->nAsked++;
        errno = g_pSystem->nAskError;
        return g_pSystem->bSegments ? 0 : -1;
    }

    static ssize_t SendTo(int nSocket, const void *pData, size_t nSize, int nFlags,
                          const sockaddr *pAddress, socklen_t nAddressSize)
    {
        if (!Has(nSocket))
            return __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
        g_pSystem->calls.push_back({true, 1, nFlags});
        const std::string bytes(static_cast<const char *>(pData), nSize);
        errno = g_pSystem->Take({nSocket, PortOf(pAddress), {bytes}, true});
        return errno == 0 ? static_cast<ssize_t>(nSize) : -1;
    }

    static int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
    {
        if (!Has(nSocket))
            return __real_sendmmsg(nSocket, pMessages, nCount, nFlags);
        g_pSystem->calls.push_back({false, nCount, nFlags});
        errno = g_pSystem->bMany ? 0 : ENOSYS;
        for (unsigned n = 0; n < nCount && errno == 0; n++) {
            const msghdr &message = pMessages[n].msg_hdr;
            const size_t nSegment = g_pSystem->bSegments ? SegmentOf(message) : 0;
            const std::string bytes = BytesOf(message);
            errno =
                g_pSystem->Take({nSocket, PortOf(message.msg_name), Cut(bytes, nSegment), false});
            if (errno != 0)
                return n != 0 ? static_cast<int>(n) : -1;
            pMessages[n].msg_len = static_cast<unsigned>(bytes.size());
        }
        return errno == 0 ? static_cast<int>(nCount) : -1;
    }
};

KovaUdpSystem::KovaUdpSystem()
{
    g_pSystem = this;
    KovaReplaceCall<__real_getsockopt>(KovaUdpSystemHooks::GetOption);
    KovaReplaceCall<__real_sendto>(KovaUdpSystemHooks::SendTo);
    KovaReplaceCall<__real_sendmmsg>(KovaUdpSystemHooks::SendMany);
}

KovaUdpSystem::~KovaUdpSystem()
{
    g_pSystem = nullptr;
    KovaReplaceCall<__real_getsockopt>(nullptr);
    KovaReplaceCall<__real_sendto>(nullptr);
    KovaReplaceCall<__real_sendmmsg>(nullptr);
}

int KovaUdpSystem::Take(const KovaUdpMessage &message)
{
    const int nError = judge ? judge(message) : 0;
    if (nError == 0)
        m_taken.push_back(message);
    return nError;
}

std::vector<std::string> KovaUdpSystem::At(uint16_t nPort) const
{
    std::vector<std::string> packets;
    for (const KovaUdpMessage &message : m_taken) {
        if (message.nPort == nPort)
            packets.insert(packets.end(), message.packets.begin(), message.packets.end());
    }
    return packets;
}
