#pragma once

#include "input_name.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kovastream {

enum class StatusForm {
    Line, ///< a live line on a terminal, a plain line every ten seconds elsewhere
    Json, ///< an object per second and stream
    None,
};

/// What the command line asks for.
struct Options {
    std::vector<InputName> inputs;
    std::string address; ///< IPv4, empty: every address of the machine
    uint32_t port = 8554;
    int32_t maxClients = 32;
    bool loop = true;
    bool strict = false;
    double fps = 0;      ///< of raw video; 0: what the video says, or 25
    double duration = 0; ///< seconds; 0: no end
    uint32_t logLevel = 2;
    std::string logFile;
    StatusForm status = StatusForm::Line;
};

/// Reads the command line. Nothing is returned after --help and --version, which are answered
/// here. Throws Failure.
std::optional<Options> ParseOptions(int argc, char **argv);

} // namespace kovastream
