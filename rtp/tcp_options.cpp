#include "rtp/tcp_options.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

struct Option {
    int nLevel;
    int nName;
    int nValue;
};

constexpr Option kOptions[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                               {IPPROTO_TCP, TCP_KEEPIDLE, 30},
                               {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                               {IPPROTO_TCP, TCP_KEEPCNT, 3},
                               {IPPROTO_TCP, TCP_NODELAY, 1}};

} // namespace

void KovaTcpPrepare(int nSocket)
{
    for (const Option &option : kOptions)
        setsockopt(nSocket, option.nLevel, option.nName, &option.nValue, sizeof(option.nValue));
}
