#include "tests/support/socket_faults.h"

#include "tests/support/c_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>
#include <vector>

namespace {

std::atomic<KovaSocketFaults *> g_pFaults{nullptr};

} // namespace

struct KovaSocketHooks {
    /// The next scripted send of the descriptor; false when there is none.
    static bool NextSend(int nSocket, int nFlags, KovaScriptedSend *pSend)
    {
        KovaSocketFaults *pFaults = g_pFaults.load();
        if (pFaults == nullptr)
            return false;
        const std::lock_guard<std::mutex> lock(pFaults->m_mutex);
        if (nSocket != pFaults->m_nSocket)
            return false;
        pFaults->m_nFlags = nFlags;
        if (pFaults->m_sends.empty())
            return false;
        *pSend = pFaults->m_sends.front();
        pFaults->m_sends.pop_front();
        return true;
    }

    static void Closing(int nSocket)
    {
        KovaSocketFaults *pFaults = g_pFaults.load();
        if (pFaults == nullptr)
            return;
        std::function<void()> action;
        {
            const std::lock_guard<std::mutex> lock(pFaults->m_mutex);
            if (nSocket == pFaults->m_nClosing)
                action = std::exchange(pFaults->m_onClose, nullptr);
        }
        if (action)
            action();
    }
};

namespace {

ssize_t SendTo(int nSocket, const void *pData, size_t nSize, int nFlags, const sockaddr *pAddress,
               socklen_t nAddressSize)
{
    KovaScriptedSend scripted;
    if (KovaSocketHooks::NextSend(nSocket, nFlags, &scripted)) {
        if (scripted.nError > 0) {
            errno = scripted.nError;
            return -1;
        }
        if (scripted.nMost == 0)
            return 0;
        nSize = scripted.nMost < nSize ? scripted.nMost : nSize;
    }
    return __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

ssize_t Send(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    return SendTo(nSocket, pData, nSize, nFlags, nullptr, 0);
}

/// The message, cut to so many bytes.
std::vector<iovec> Cut(const msghdr &message, size_t nMost)
{
    std::vector<iovec> parts(message.msg_iov, message.msg_iov + message.msg_iovlen);
    for (iovec &part : parts) {
        part.iov_len = std::min(part.iov_len, nMost);
        nMost -= part.iov_len;
    }
    return parts;
}

ssize_t SendMessage(int nSocket, const msghdr *pMessage, int nFlags)
{
    KovaScriptedSend scripted;
    if (!KovaSocketHooks::NextSend(nSocket, nFlags, &scripted))
        return __real_sendmsg(nSocket, pMessage, nFlags);
    if (scripted.nError > 0) {
        errno = scripted.nError;
        return -1;
    }
    if (scripted.nMost == 0)
        return 0;
    std::vector<iovec> parts = Cut(*pMessage, scripted.nMost);
    msghdr message = *pMessage;
    message.msg_iov = parts.data();
    return __real_sendmsg(nSocket, &message, nFlags);
}

/// Every message is a send of its own.
int SendMessages(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    for (unsigned n = 0; n < nCount; n++) {
        const ssize_t nSent = SendMessage(nSocket, &pMessages[n].msg_hdr, nFlags);
        if (nSent < 0)
            return n != 0 ? static_cast<int>(n) : -1;
        pMessages[n].msg_len = static_cast<unsigned>(nSent);
    }
    return static_cast<int>(nCount);
}

int Close(int nSocket)
{
    KovaSocketHooks::Closing(nSocket);
    return __real_close(nSocket);
}

} // namespace

KovaSocketFaults::KovaSocketFaults()
{
    KovaReplaceCall<__real_send>(Send);
    KovaReplaceCall<__real_sendto>(SendTo);
    KovaReplaceCall<__real_sendmsg>(SendMessage);
    KovaReplaceCall<__real_sendmmsg>(SendMessages);
    KovaReplaceCall<__real_close>(Close);
    g_pFaults.store(this);
}

KovaSocketFaults::~KovaSocketFaults()
{
    g_pFaults.store(nullptr);
}

void KovaSocketFaults::Script(int nSocket, std::deque<KovaScriptedSend> sends)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nSocket = nSocket;
    m_sends = std::move(sends);
}

size_t KovaSocketFaults::Left()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sends.size();
}

int KovaSocketFaults::Flags()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nFlags;
}

void KovaSocketFaults::OnClose(int nSocket, std::function<void()> action)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nClosing = nSocket;
    m_onClose = std::move(action);
}
