#pragma once

#include "served.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kovastream {

/// What is known about a stream at an instant.
struct Figures {
    std::string uri;
    enum class Input {
        Opening, ///< nothing is published yet
        Flowing,
        Waiting, ///< nothing has come for a while
        Ended,
    } input = Input::Opening;
    int64_t position = 0; ///< microseconds of media so far
    uint64_t pictures = 0;
    uint64_t bytes = 0;
    int32_t maxClients = 0; ///< of all streams together
    Served served;
};

/// What happened between two looks. A kilobit is 1000 bits.
struct Rates {
    double fps;
    double kilobitsIn;
};
Rates RatesBetween(const Figures &before, const Figures &now, double seconds);

/// A line for people, as the fields of a table.
std::vector<std::string> StatusFields(const Figures &figures, const Rates &rates);
/// The line of a player, which stands below that of its stream.
std::vector<std::string> PlayerFields(const Player &player);
/// An object for programs, on one line.
std::string StatusJson(const Figures &figures, const Rates &rates);

} // namespace kovastream
