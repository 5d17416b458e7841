#pragma once

#include "publisher.h"
#include "server_limits.h"

#include <chrono>
#include <memory>

namespace kovastream {

class Console;
struct Options;

/// One of the library's interfaces, with the server behind it.
struct Door {
    Limits limits;
    std::chrono::milliseconds lag; ///< a unit is out so long after its time, without --delay
    const char *farewell;          ///< what is said when the end was asked for
    /// Opens the server. Throws Failure when the port cannot be had.
    std::unique_ptr<Publisher> (*open)(const Options &options, Console *console);
};

/// kova_live.h: one thread for all players.
extern const Door kLiveDoor;

/// kova_rtsp_server.h, as hosts have had it for long.
extern const Door kClassicDoor;

} // namespace kovastream
