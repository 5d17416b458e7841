#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// One message that a program hands to the system.
struct KovaUdpMessage {
    int nSocket;
    uint16_t nPort;                   ///< of its destination
    std::vector<std::string> packets; ///< the datagrams that it makes
    bool bAlone;                      ///< by sendto()
};

/// One system call.
struct KovaUdpCall {
    bool bAlone;      ///< sendto(), else sendmmsg()
    size_t nMessages; ///< handed over; all of them
    int nFlags;
};

/// Stands in for what the system does with datagrams: takes those on sockets of these
/// numbers, and cuts messages only where it knows how. Other descriptors are not touched.
/// One object at a time.
class KovaUdpSystem {
public:
    KovaUdpSystem();
    ~KovaUdpSystem();
    KovaUdpSystem(const KovaUdpSystem &) = delete;
    KovaUdpSystem &operator=(const KovaUdpSystem &) = delete;

    /// The numbers of the sockets that it has: no descriptors of the program.
    static constexpr int kFirstSocket = 100000;

    bool bSegments = true;       ///< UDP_SEGMENT
    bool bMany = true;           ///< sendmmsg()
    int nAskError = ENOPROTOOPT; ///< of a question for what it does not have

    /// What becomes of a message: 0, or the errno with which it is refused.
    std::function<int(const KovaUdpMessage &)> judge;

    std::vector<KovaUdpCall> calls;
    int nAsked = 0; ///< questions for UDP_SEGMENT

    /// The datagrams that have gone to a port, in order.
    std::vector<std::string> At(uint16_t nPort) const;

private:
    friend struct KovaUdpSystemHooks;
    int Take(const KovaUdpMessage &message);
    std::vector<KovaUdpMessage> m_taken;
};
