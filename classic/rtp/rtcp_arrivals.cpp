#include "classic/rtp/rtcp_arrivals.h"

#include "foundation/list_view.h"

#include <poll.h>

namespace {

/// Whom it is worth asking for: those whose socket would be looked at.
bool IsAsked(const KovaRtpClient *pClient)
{
    return pClient->nState == kClientPlaying && pClient->bInterleaved == 0 &&
           pClient->nRtcpSocket > 0;
}

} // namespace

void KovaNoteRtcpArrivals(KovaRtpSendGroup *pGroup)
{
    struct pollfd entries[kGroupMaxClients];
    nfds_t nAsked = 0;
    for (KovaRtpClient *pClient : KovaListOf<KovaRtpClient>(pGroup->pClientList)) {
        pClient->bRtcpWaits = !IsAsked(pClient) || nAsked == kGroupMaxClients;
        if (!pClient->bRtcpWaits)
            entries[nAsked++] = {pClient->nRtcpSocket, POLLIN, 0};
    }
    const int nReady = nAsked != 0 ? poll(entries, nAsked, 0) : 0;
    if (nReady == 0)
        return;
    nfds_t n = 0;
    for (KovaRtpClient *pClient : KovaListOf<KovaRtpClient>(pGroup->pClientList)) {
        if (!pClient->bRtcpWaits) {
            pClient->bRtcpWaits = nReady < 0 || entries[n].revents != 0;
            n++;
        }
    }
}
