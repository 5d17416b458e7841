#include "classic/server/server.h"

#include "foundation/descriptor.h"
#include "foundation/error_text.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kBacklog = 128;

/// A TCP socket. Like every descriptor made here it stays out of the programs that
/// the host starts: one of them that outlives the host would keep the port.
int OpenSocket()
{
    return KovaDescriptorRaise(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
}

sockaddr_in ListenAddress(const KovaRtspServer *pServer)
{
    char szAddr[KOVA_ADDRESS_SIZE + 1];
    KovaTextCopy(szAddr, sizeof(szAddr), KovaTextField(pServer->szAddr, sizeof(pServer->szAddr)));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(pServer->nPort);
    address.sin_addr.s_addr = szAddr[0] != '\0' ? inet_addr(szAddr) : htonl(INADDR_ANY);
    return address;
}

/// Logs a failed step of the start with the system's error.
int32_t StartFailed(const char *szStep, int32_t nResult)
{
    const int nError = errno;
    char szError[kErrorTextSize];
    TimeLog(kLogFailure, "%s, %s fail, error: %d(%s)\n", "KovaRtspServerStart", szStep, nError,
            KovaErrorText(nError, szError));
    return nResult;
}

} // namespace

int32_t KovaServerOpenListener(KovaRtspServer *pServer)
{
    const int nSocket = OpenSocket();
    pServer->nListenSocket = nSocket;
    if (nSocket == -1)
        return KOVA_ERROR_SOCKET;
    const sockaddr_in address = ListenAddress(pServer);
    const int nReuse = 1;
    if (setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nReuse, sizeof(nReuse)) != 0)
        return StartFailed("setsockopt (REUSEADDR)", KOVA_ERROR_SETSOCKOPT);
    if (bind(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return StartFailed("bind", KOVA_ERROR_BIND);
    if (listen(nSocket, kBacklog) != 0)
        return StartFailed("listen", KOVA_ERROR_LISTEN);
    fcntl(nSocket, F_SETFL, fcntl(nSocket, F_GETFL) | O_NONBLOCK);
    return KOVA_OK;
}

void KovaServerCloseListener(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxListen, kRankLeaf);
    const int nSocket = pServer->nListenSocket;
    if (nSocket <= 0)
        return;
    pServer->nListenSocket = -1;
    close(nSocket);
}

void KovaServerWakeListener(KovaRtspServer *pServer)
{
    const KovaMutexLock lock(&pServer->mtxListen, kRankLeaf);
    const int nSocket = pServer->nListenSocket;
    if (nSocket > 0)
        shutdown(nSocket, SHUT_RDWR);
}
