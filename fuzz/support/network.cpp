#include "fuzz/support/network.h"

#include "fuzz/support/require.h"
#include "fuzz/support/world.h"
#include "tests/support/c_calls.h"

#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace {

constexpr unsigned kFirstPort = 6970;
constexpr char kResponse[] = "RTSP/1.0";
constexpr size_t kLargestVideoPacket = 1413;
constexpr size_t kLargestAudioPacket = 1400;

struct UdpSocket {
    unsigned nPort;
    bool bReportWaits;
    bool bHasSent;
    uint16_t nNextSequence;
};

/// One end of a connection.
struct Connection {
    int64_t nLimit;
    size_t nOfResponse; ///< what is left of a response that went out in part
    bool bCut;
};

std::map<int, UdpSocket> g_udp;
std::map<int, Connection> g_connections;
unsigned g_nTakenPairs;

Connection &ConnectionOf(int nSocket)
{
    return g_connections.emplace(nSocket, Connection{-1, 0, false}).first->second;
}

bool IsTaken(unsigned nPort)
{
    if (nPort - kFirstPort < 2 * g_nTakenPairs)
        return true;
    for (const auto &entry : g_udp) {
        if (entry.second.nPort == nPort)
            return true;
    }
    return false;
}

/// Every packet goes to every playing client, so a client's numbers have no holes.
void CheckSequence(UdpSocket *pSocket, const uint8_t *pData)
{
    if (pData[1] == 200)
        return;
    const uint16_t nSequence = static_cast<uint16_t>(pData[2] << 8 | pData[3]);
    KovaRequire(!pSocket->bHasSent || nSequence == pSocket->nNextSequence,
                "sequence numbers of a client follow each other");
    pSocket->bHasSent = true;
    pSocket->nNextSequence = static_cast<uint16_t>(nSequence + 1);
}

/// Keeps account of whether a response went out as a whole.
void NoteResponse(Connection *pConnection, const void *pBytes, size_t nSize, ssize_t nSent)
{
    const bool bBegins =
        nSize >= strlen(kResponse) && memcmp(pBytes, kResponse, strlen(kResponse)) == 0;
    if (!bBegins && pConnection->nOfResponse != nSize)
        return;
    const bool bBegun = pConnection->nOfResponse == nSize;
    if (nSent > 0)
        pConnection->nOfResponse = nSize - static_cast<size_t>(nSent);
    else if (bBegun)
        pConnection->bCut = true;
}

} // namespace

void KovaNetworkBegin()
{
    g_nTakenPairs = 0;
    g_connections.clear();
}

void KovaNetworkEnd()
{
    KovaRequire(g_udp.empty(), "every UDP socket is closed");
}

void KovaNetworkTakePorts(unsigned nPairs)
{
    g_nTakenPairs = nPairs;
}

unsigned KovaNetworkUdpSockets()
{
    return static_cast<unsigned>(g_udp.size());
}

void KovaNetworkSendReports()
{
    for (auto &entry : g_udp)
        entry.second.bReportWaits = entry.second.nPort % 2 == 1;
}

bool KovaNetworkReportWaits(int nSocket)
{
    const auto entry = g_udp.find(nSocket);
    return entry != g_udp.end() && entry->second.bReportWaits;
}

void KovaNetworkLimit(int nSocket, int64_t nBytes)
{
    ConnectionOf(nSocket).nLimit = nBytes;
}

bool KovaNetworkHasCut(int nSocket)
{
    const auto entry = g_connections.find(nSocket);
    return entry != g_connections.end() && entry->second.bCut;
}

void KovaCheckMediaPacket(const uint8_t *pData, size_t nSize)
{
    KovaRequire(nSize > 12 && pData[0] == 0x80, "a packet has a header of version 2");
    if (pData[1] == 200) {
        KovaRequire(nSize == 28 && pData[2] == 0 && pData[3] == 6, "a sender report has 28 bytes");
        return;
    }
    const unsigned nPayloadType = pData[1] & 0x7F;
    KovaRequire(nPayloadType == 96 || nPayloadType == 97, "a packet has a known payload type");
    KovaRequire(nSize <= (nPayloadType == 97 ? kLargestVideoPacket : kLargestAudioPacket),
                "a packet is not over its limit");
}

// ---- In place of the C library's
// -----------------------------------------------------------------

namespace {

int OpenSocket(int nDomain, int nType, int nProtocol)
{
    if (!KovaWorldIsOn() || nDomain != AF_INET || (nType & ~SOCK_CLOEXEC) != SOCK_DGRAM)
        return __real_socket(nDomain, nType, nProtocol);
    const int nSocket = __real_socket(AF_UNIX, SOCK_DGRAM, 0);
    if (nSocket >= 0)
        g_udp[nSocket] = {};
    return nSocket;
}

int Bind(int nSocket, const sockaddr *pAddress, socklen_t nLength)
{
    const auto entry = g_udp.find(nSocket);
    if (!KovaWorldIsOn() || entry == g_udp.end())
        return __real_bind(nSocket, pAddress, nLength);
    sockaddr_in address = {};
    memcpy(&address, pAddress, sizeof(address));
    if (IsTaken(ntohs(address.sin_port))) {
        errno = EADDRINUSE;
        return -1;
    }
    entry->second.nPort = ntohs(address.sin_port);
    return 0;
}

ssize_t Send(int nSocket, const void *pBytes, size_t nSize, int nFlags)
{
    if (!KovaWorldIsOn())
        return __real_send(nSocket, pBytes, nSize, nFlags);
    Connection &connection = ConnectionOf(nSocket);
    size_t nNow = nSize;
    if (connection.nLimit >= 0 && static_cast<uint64_t>(connection.nLimit) < nSize)
        nNow = static_cast<size_t>(connection.nLimit);
    ssize_t nSent = -1;
    errno = EAGAIN;
    if (nNow != 0 || nSize == 0)
        nSent = __real_send(nSocket, pBytes, nNow, nFlags);
    const int nError = errno;
    if (nSent > 0 && connection.nLimit >= 0)
        connection.nLimit -= nSent;
    NoteResponse(&connection, pBytes, nSize, nSent);
    errno = nError;
    return nSent;
}

ssize_t SendTo(int nSocket, const void *pBytes, size_t nSize, int nFlags, const sockaddr *pAddress,
               socklen_t nLength)
{
    const auto entry = g_udp.find(nSocket);
    if (!KovaWorldIsOn() || entry == g_udp.end())
        return __real_sendto(nSocket, pBytes, nSize, nFlags, pAddress, nLength);
    const uint8_t *pData = static_cast<const uint8_t *>(pBytes);
    KovaCheckMediaPacket(pData, nSize);
    CheckSequence(&entry->second, pData);
    return static_cast<ssize_t>(nSize);
}

/// Every message is a packet: what the program's sockets are, the system does not cut.
int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    if (!KovaWorldIsOn())
        return __real_sendmmsg(nSocket, pMessages, nCount, nFlags);
    for (unsigned n = 0; n < nCount; n++) {
        const msghdr &message = pMessages[n].msg_hdr;
        KovaRequire(message.msg_iovlen == 1 && message.msg_controllen == 0,
                    "a packet is a datagram by itself");
        SendTo(nSocket, message.msg_iov->iov_base, message.msg_iov->iov_len, nFlags,
               static_cast<const sockaddr *>(message.msg_name), message.msg_namelen);
    }
    return static_cast<int>(nCount);
}

/// Frames of a connection, which are no response.
ssize_t SendMessage(int nSocket, const msghdr *pMessage, int nFlags)
{
    if (!KovaWorldIsOn())
        return __real_sendmsg(nSocket, pMessage, nFlags);
    std::string bytes;
    for (size_t n = 0; n < pMessage->msg_iovlen; n++)
        bytes.append(static_cast<const char *>(pMessage->msg_iov[n].iov_base),
                     pMessage->msg_iov[n].iov_len);
    return Send(nSocket, bytes.data(), bytes.size(), nFlags);
}

ssize_t ReceiveFrom(int nSocket, void *pBytes, size_t nSize, int nFlags, sockaddr *pAddress,
                    socklen_t *pLength)
{
    const auto entry = g_udp.find(nSocket);
    if (!KovaWorldIsOn() || entry == g_udp.end())
        return __real_recvfrom(nSocket, pBytes, nSize, nFlags, pAddress, pLength);
    if (!entry->second.bReportWaits) {
        errno = EAGAIN;
        return -1;
    }
    entry->second.bReportWaits = false;
    memset(pBytes, 0x81, nSize);
    return static_cast<ssize_t>(nSize);
}

int Close(int nSocket)
{
    if (!KovaWorldIsOn())
        return __real_close(nSocket);
    KovaRequire(nSocket > 2, "the standard streams stay open");
    g_udp.erase(nSocket);
    g_connections.erase(nSocket);
    const int nResult = __real_close(nSocket);
    KovaRequire(nResult == 0, "no descriptor is closed twice");
    return nResult;
}

/// Stands in for the calls from the start of the program.
const bool g_bReplaced = [] {
    KovaReplaceCall<__real_socket>(OpenSocket);
    KovaReplaceCall<__real_bind>(Bind);
    KovaReplaceCall<__real_send>(Send);
    KovaReplaceCall<__real_sendto>(SendTo);
    KovaReplaceCall<__real_sendmsg>(SendMessage);
    KovaReplaceCall<__real_sendmmsg>(SendMany);
    KovaReplaceCall<__real_recvfrom>(ReceiveFrom);
    KovaReplaceCall<__real_close>(Close);
    return true;
}();

} // namespace
