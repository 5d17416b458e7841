#pragma once

#include "served.h"
#include "tracks.h"
#include "unit.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kovastream {

/// A stream of a server. Any thread may call it; one thread at a time pushes a track.
class Publication {
public:
    virtual ~Publication() = default;

    /// Lets players ask for the stream, with the tracks that it has. When it is published already,
    /// what its players get ends before. Throws Failure.
    virtual void Publish(const Tracks &tracks) = 0;
    /// Sends a unit. `presentation`: when it is to be shown, microseconds on the stream's clock.
    virtual void Push(const Unit &unit, int64_t presentation) = 0;
    /// How it is served at the moment; to be asked for about once a second.
    virtual Served Look() = 0;
};

/// A server, from construction to destruction. Its publications end before it.
class Publisher {
public:
    virtual ~Publisher() = default;

    /// A stream under that name, which is not published yet.
    virtual std::unique_ptr<Publication> Add(const std::string &uri) = 0;
};

} // namespace kovastream
