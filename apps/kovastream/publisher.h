#pragma once

#include "kova_rtsp_server.h"
#include "options.h"
#include "unit.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace kovastream {

/// A stream that players can ask for.
class Published {
public:
    explicit Published(KovaRtspStreamer *stream) : m_stream(stream) {}

    void Push(const Unit &unit, uint32_t milliseconds);

    int32_t Clients() const;
    uint32_t KilobitsOut() const;
    uint32_t Status() const;

private:
    KovaRtspStatus Read(uint32_t type) const;

    KovaRtspStreamer *const m_stream;
};

/// The server with its streams, from construction to destruction.
class Publisher {
public:
    /// Throws Failure when the port cannot be had.
    explicit Publisher(const Options &options);
    ~Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    /// Publishes a stream with the tracks that it has. Any thread may call it.
    Published Publish(const std::string &uri, const std::optional<KovaAudioDescription> &sound,
                      const std::optional<KovaVideoDescription> &picture);

private:
    KovaRtspServer *m_server = nullptr;
    std::mutex m_mutex;
};

} // namespace kovastream
