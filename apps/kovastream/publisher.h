#pragma once

#include "kova_rtsp_server.h"
#include "options.h"
#include "unit.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kovastream {

class Publisher;

/// A stream that players can ask for, once it has been published. Any thread may call it.
class Published {
public:
    void Push(const Unit &unit, uint32_t milliseconds);

    int32_t Clients() const;
    uint32_t KilobitsOut() const;
    uint32_t Status() const;

private:
    friend class Publisher;

    KovaRtspStatus Read(uint32_t type) const;
    /// Returns what it was. Nobody uses that any more.
    KovaRtspStreamer *Exchange(KovaRtspStreamer *stream);

    mutable std::mutex m_mutex;
    KovaRtspStreamer *m_stream = nullptr;
};

/// The server with its streams, from construction to destruction.
class Publisher {
public:
    /// Throws Failure when the port cannot be had.
    explicit Publisher(const Options &options);
    ~Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    /// Publishes a stream with the tracks that it has. One that is published already is withdrawn
    /// before, which ends what its players get and takes a second or two. Any thread may call it.
    void Publish(const std::string &uri, const std::optional<KovaAudioDescription> &sound,
                 const std::optional<KovaVideoDescription> &picture, Published *published);

private:
    KovaRtspServer *m_server = nullptr;
    std::mutex m_mutex;
};

} // namespace kovastream
