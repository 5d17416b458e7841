#pragma once

#include "door.h"
#include "input_name.h"
#include "library_lines.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kovastream {

enum class StatusForm {
    Line,    ///< a live line on a terminal, a plain line every ten seconds elsewhere
    Players, ///< the same with a line for each player, and one when a player comes or goes
    Json,    ///< an object per second and stream
    None,
};

struct PortRange {
    uint16_t first = 0; ///< 0: any ports
    uint16_t last = 0;
};

/// What the command line asks for.
struct Options {
    const Door *door = &kLiveDoor;
    std::vector<InputName> inputs;
    std::string address; ///< IPv4, empty: every address of the machine
    uint32_t port = 8554;
    int32_t maxClients = 32;
    uint32_t maxConnections = 1024;
    PortRange udpPorts;
    uint32_t threads = 1;
    uint32_t delay = 0; ///< milliseconds
    std::string user;   ///< empty: everybody may watch
    std::string passwordFile;
    bool loop = true;
    bool strict = false;
    double fps = 0;      ///< of raw video; 0: what the video says, or 25
    double duration = 0; ///< seconds; 0: no end
    uint32_t logLevel = 2;
    LibraryLines libraryLines = LibraryLines::Failures;
    std::string logFile;
    StatusForm status = StatusForm::Line;
};

/// Reads the command line. Nothing is returned after --help and --version, which are answered
/// here. Throws Failure.
std::optional<Options> ParseOptions(int argc, char **argv);

} // namespace kovastream
