#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Preloaded into a host (LD_PRELOAD), counts what it sends media with. At the program's end it
// writes one line for each transport into the file that KOVA_CALL_COUNTS names:
//
//     udp <system calls> <datagrams>
//     tcp <system calls> <interleaved frames begun>
//
// What goes into a connection and is no frame (a response) is not counted.

namespace {

constexpr int kUdpSegment = 103;

std::atomic<unsigned long> g_nUdpCalls{0};
std::atomic<unsigned long> g_nDatagrams{0};
std::atomic<unsigned long> g_nTcpCalls{0};
std::atomic<unsigned long> g_nFrames{0};

/// The C library's function of that name.
template <typename Function> Function *Real(Function *, const char *szName)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, szName));
}

size_t DatagramsOf(const msghdr &message)
{
    size_t nBytes = 0;
    for (size_t n = 0; n < message.msg_iovlen; n++)
        nBytes += message.msg_iov[n].iov_len;
    uint16_t nSegment = 0;
    const cmsghdr *pControl = message.msg_controllen != 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (pControl != nullptr && pControl->cmsg_level == IPPROTO_UDP &&
        pControl->cmsg_type == kUdpSegment)
        memcpy(&nSegment, CMSG_DATA(pControl), sizeof(nSegment));
    return nSegment != 0 ? (nBytes + nSegment - 1) / nSegment : 1;
}

/// A header is a part by itself, or stands in a part with its packet and those behind it.
void CountFrames(const iovec *pParts, size_t nParts)
{
    unsigned long nFrames = 0;
    size_t nSkip = 0; // bytes of the last frame that are still to come
    for (size_t n = 0; n < nParts; n++) {
        const auto *pBytes = static_cast<const uint8_t *>(pParts[n].iov_base);
        const size_t nSize = pParts[n].iov_len;
        size_t nAt = nSkip < nSize ? nSkip : nSize;
        nSkip -= nAt;
        while (nAt + 4 <= nSize && pBytes[nAt] == '$') {
            nFrames++;
            const size_t nFrame = 4 + (static_cast<size_t>(pBytes[nAt + 2]) << 8 | pBytes[nAt + 3]);
            const size_t nLeft = nSize - nAt;
            nSkip = nFrame > nLeft ? nFrame - nLeft : 0;
            nAt += nFrame - nSkip;
        }
    }
    g_nTcpCalls += nFrames != 0 ? 1 : 0;
    g_nFrames += nFrames;
}

} // namespace

extern "C" {

ssize_t send(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    static const auto pfnReal = Real(&send, "send");
    const iovec part = {const_cast<void *>(pData), nSize};
    CountFrames(&part, 1);
    return pfnReal(nSocket, pData, nSize, nFlags);
}

ssize_t sendto(int nSocket, const void *pData, size_t nSize, int nFlags, const sockaddr *pAddress,
               socklen_t nAddressSize)
{
    static const auto pfnReal = Real(&sendto, "sendto");
    g_nUdpCalls++;
    g_nDatagrams++;
    return pfnReal(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

ssize_t sendmsg(int nSocket, const msghdr *pMessage, int nFlags)
{
    static const auto pfnReal = Real(&sendmsg, "sendmsg");
    if (pMessage->msg_name == nullptr) {
        CountFrames(pMessage->msg_iov, pMessage->msg_iovlen);
    } else {
        g_nUdpCalls++;
        g_nDatagrams += DatagramsOf(*pMessage);
    }
    return pfnReal(nSocket, pMessage, nFlags);
}

int sendmmsg(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    static const auto pfnReal = Real(&sendmmsg, "sendmmsg");
    g_nUdpCalls++;
    const int nSent = pfnReal(nSocket, pMessages, nCount, nFlags);
    for (int n = 0; n < nSent; n++)
        g_nDatagrams += DatagramsOf(pMessages[n].msg_hdr);
    return nSent;
}

__attribute__((destructor)) static void Report()
{
    const char *szPath = getenv("KOVA_CALL_COUNTS");
    FILE *pFile = szPath != nullptr ? fopen(szPath, "w") : nullptr;
    if (pFile == nullptr)
        return;
    fprintf(pFile, "udp %lu %lu\ntcp %lu %lu\n", g_nUdpCalls.load(), g_nDatagrams.load(),
            g_nTcpCalls.load(), g_nFrames.load());
    fclose(pFile);
}

} // extern "C"
