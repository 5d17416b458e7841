#pragma once

#include "console.h"
#include "demuxer.h"
#include "description.h"
#include "failure.h"
#include "figures.h"
#include "input_name.h"
#include "key_frames.h"
#include "meeting.h"
#include "options.h"
#include "pacer.h"
#include "publisher.h"
#include "retry.h"
#include "round.h"
#include "stop.h"
#include "timeline.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kovastream {

/// One published stream: reads its sources, each in a thread of its own, and pushes what is in
/// them in real time.
class Stream {
public:
    /// Throws Failure for an input that will never be there. With --strict it opens the files among
    /// its sources, so that what is wrong with them shows before anything is published.
    Stream(const InputName &name, const Options &options, Console *console, Stop *stop);
    /// The end must have been requested.
    ~Stream();
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    /// Called by the last of a stream's threads when all its input has ended; with the first
    /// failure for which a source has ended, or an empty text.
    using OnEnd = std::function<void(const std::string &failure)>;

    /// Publishes as soon as the sources are open, and streams. A source that cannot be opened, or
    /// breaks, is tried again, unless --strict or the end of its input makes that final.
    void Start(Publisher *publisher, OnEnd onEnd);

    /// To be asked for about once a second.
    Figures Look() const;
    /// When the last unit so far has its time.
    std::chrono::steady_clock::time_point End() const;

private:
    struct Source {
        std::string input;
        Wish wish;
        Timeline timeline;
        std::optional<SourceKind> kind; // from the first time that it is there
        Retry retry;
        std::unique_ptr<Demuxer> demuxer;
        std::unique_ptr<Round> round; // reads from the demuxer
        std::thread thread;
        std::chrono::steady_clock::time_point notBefore{}; // it is opened again
    };

    void Run(Source *source);
    void Play(Source *source);
    void Describe(const Source &source);
    void Publish();
    void FollowChange(const Source &source, const Unit &unit);
    bool Feed(Source *source, int64_t base);
    void PushOne(Source *source, const Unit &unit);
    void Warn(const Round &round, const Unit &unit, int64_t due);
    bool FeedOrWait(Source *source, int64_t base);
    void SayBroken(Source *source);
    void WaitAfter(Source *source, const Failure &failure);
    bool Await(Source *source);
    void Open(Source *source);
    void End(const std::string &failure);
    bool AllFiles() const;

    const std::string m_uri;
    const Options &m_options;
    Console *const m_console;
    Stop *const m_stop;
    OnEnd m_onEnd;
    Meeting m_meeting;
    StreamEnd m_end;
    Pacer m_pacer;
    KeyFrames m_keyFrames; ///< of the thread that pushes pictures
    std::vector<std::unique_ptr<Source>> m_sources;
    std::atomic<size_t> m_running;
    std::mutex m_ending;
    std::string m_failure;

    // Written until the sources have met, read afterwards.
    int64_t m_base = 0;

    std::mutex m_describing;
    Description m_description;
    std::unique_ptr<Publication> m_publication;

    // Figures, by whatever thread.
    std::atomic<bool> m_isPublished{false};
    std::atomic<int64_t> m_position{0};
    std::atomic<uint64_t> m_pictures{0};
    std::atomic<uint64_t> m_bytes{0};
    std::atomic<int64_t> m_lastPush{0};
    std::atomic<bool> m_warnedSound{false};
};

} // namespace kovastream
