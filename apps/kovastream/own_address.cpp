#include "own_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kovastream {

namespace {

std::string TextOf(const sockaddr *address)
{
    sockaddr_in internet = {};
    internet = *reinterpret_cast<const sockaddr_in *>(address);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &internet.sin_addr, text, sizeof(text));
    return text;
}

/// The one from which far machines are spoken to. Connecting a datagram socket sends nothing.
std::string RoutedAddress()
{
    sockaddr_in far = {};
    far.sin_family = AF_INET;
    far.sin_port = htons(9);
    inet_pton(AF_INET, "192.0.2.1", &far.sin_addr); // for documentation (RFC 5737)
    sockaddr_in own = {};
    socklen_t size = sizeof(own);
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool found = connect(probe, reinterpret_cast<const sockaddr *>(&far), sizeof(far)) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr *>(&own), &size) == 0;
    if (probe >= 0)
        close(probe);
    return found ? TextOf(reinterpret_cast<const sockaddr *>(&own)) : "";
}

/// The first of an interface that is up.
std::string FirstAddress()
{
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return "";
    std::string first;
    for (const ifaddrs *one = all; one != nullptr && first.empty(); one = one->ifa_next) {
        const bool usable = (one->ifa_flags & IFF_UP) != 0 && (one->ifa_flags & IFF_LOOPBACK) == 0;
        if (usable && one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET)
            first = TextOf(one->ifa_addr);
    }
    freeifaddrs(all);
    return first;
}

/// The one under which other machines most likely reach this one.
std::string OwnAddress()
{
    const std::string routed = RoutedAddress();
    return routed.empty() ? FirstAddress() : routed;
}

} // namespace

Urls UrlsOf(const std::string &uri, const Options &options)
{
    const auto at = [&uri, &options](const std::string &address) {
        return "rtsp://" + address + ":" + std::to_string(options.port) + "/" + uri;
    };
    if (!options.address.empty() && options.address != "0.0.0.0")
        return {at(options.address), ""};
    const std::string own = OwnAddress();
    return {at("127.0.0.1"), own.empty() ? "" : at(own)};
}

} // namespace kovastream
