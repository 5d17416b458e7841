#include "port_check.h"

#include "failure.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kovastream {

void CheckPort(const Options &options)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(options.port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!options.address.empty())
        inet_pton(AF_INET, options.address.c_str(), &address.sin_addr);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    const bool free =
        bind(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
        listen(probe, 1) == 0;
    const int error = errno;
    close(probe);
    if (free)
        return;
    const std::string port = std::to_string(options.port);
    if (error == EADDRINUSE)
        throw Failure("port " + port +
                      " is taken: end the other program, or choose another port "
                      "with --port");
    if (error == EADDRNOTAVAIL)
        throw Failure("the address " + options.address +
                      " is not one of this machine: see  ip -4 address, or leave --address away");
    if (error == EACCES)
        throw Failure("port " + port + " needs root: choose one above 1023 with --port");
    throw Failure("port " + port + " cannot be opened: " + strerror(error));
}

} // namespace kovastream
