#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kovastream {

/// A player, as its server knows it.
struct Player {
    std::string address; ///< IPv4
    uint16_t port = 0;   ///< of its RTSP connection
    bool interleaved = false;
    bool paused = false;
    std::string user;   ///< empty without a login
    double playing = 0; ///< seconds
    double kilobitsOut = 0;
    uint64_t late = 0;    ///< packets that were not sent, because it took too little
    double loss = 0;      ///< share of the packets, 0 to 1, by its last report
    double jitter = 0;    ///< milliseconds
    double roundTrip = 0; ///< milliseconds; 0: not known
};

/// How the players of a stream are served.
struct Served {
    enum class State {
        NotReady, ///< nothing can be described to players yet
        Idle,     ///< nobody watches
        Flowing,
        Stalled, ///< players, but nothing is being sent
    } state = State::NotReady;
    int32_t clients = 0;
    double kilobitsOut = 0; ///< to all of them, 1000 bit/s
    bool listed = false;    ///< the server tells its players apart
    std::vector<Player> players;
};

} // namespace kovastream
