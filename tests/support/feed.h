#pragma once

#include "kova_rtsp_server.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>

/// Pushes an access unit into a stream; returns the result code.
int32_t KovaPush(KovaRtspStreamer *pStream, uint32_t nPayloadId, const std::string &unit,
                 uint32_t nPts);

/// A host's thread that pushes media as their time comes.
class KovaFeed {
public:
    using Clock = std::chrono::steady_clock;
    /// Pushes what is due and returns when to be called again; without a time
    /// there is nothing more to push.
    using Step = std::function<std::optional<Clock::time_point>()>;

    KovaFeed() = default;
    ~KovaFeed();
    KovaFeed(const KovaFeed &) = delete;
    KovaFeed &operator=(const KovaFeed &) = delete;

    /// Begins: the first step is made at once, on the feed's thread.
    void Start(Step step);
    /// Waits until there is nothing more to push; or ends it behind the step
    /// under way.
    void Finish();
    void Stop();

private:
    void Run(const Step &step);

    std::atomic<bool> m_bStop{false};
    std::thread m_thread;
};
