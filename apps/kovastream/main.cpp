// kovastream: streams files, pipes and encoders to RTSP players.

#include "console.h"
#include "door.h"
#include "failure.h"
#include "options.h"
#include "reporter.h"
#include "stop.h"
#include "stream.h"

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

namespace kovastream {

namespace {

using Clock = std::chrono::steady_clock;
using Streams = std::vector<std::unique_ptr<Stream>>;

/// However far ahead the last unit's time is, nobody waits longer for the end.
constexpr std::chrono::seconds kPatience{5};

/// Ends and joins the streams' threads, however a run ends. The server, which they push to, is
/// there for longer.
class Joined {
public:
    Joined(Streams *streams, Stop *stop) : m_streams(streams), m_stop(stop) {}
    ~Joined()
    {
        m_stop->Request();
        m_streams->clear();
    }

private:
    Streams *const m_streams;
    Stop *const m_stop;
};

/// Ends the program when all streams have ended: with a failure, if any has failed.
class Ended {
public:
    Ended(size_t running, Console *console, Stop *stop)
        : m_running(running), m_console(console), m_stop(stop)
    {}

    /// By whatever thread.
    void Take(const std::string &failure)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_failure.empty())
            m_failure = failure;
        if (--m_running > 0) {
            if (!failure.empty())
                m_console->Print(failure);
        } else if (m_failure.empty()) {
            m_stop->Request();
        } else {
            // The other ones have been said.
            m_stop->Fail(failure.empty() ? m_failure : failure);
        }
    }

private:
    size_t m_running;
    Console *const m_console;
    Stop *const m_stop;
    std::mutex m_mutex;
    std::string m_failure;
};

/// Reports once a second until the end is requested.
void Report(const Options &options, Console *console, const Streams &streams, Stop *stop)
{
    Reporter reporter(options, console, streams);
    const Clock::time_point begin = Clock::now();
    const auto end = options.duration > 0
                         ? begin + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(options.duration))
                         : Clock::time_point::max();
    constexpr std::chrono::seconds kPeriod{1};
    for (auto next = begin + kPeriod;; next += kPeriod) {
        // What was missed while the process was stopped stays out.
        if (Clock::now() > next + kPeriod)
            next += (Clock::now() - next) / kPeriod * kPeriod;
        if (stop->WaitUntil(std::min(next, end)))
            return;
        if (next >= end) {
            stop->Request();
            return;
        }
        reporter.Tick();
        console->TellLosses();
        if (console->IsBroken())
            stop->Fail("nobody reads standard output any more: give it a reader or /dev/null");
    }
}

/// Lets everything that was pushed go out, unless somebody asked for the end.
void AwaitQueue(const Options &options, const Streams &streams, const Stop &stop)
{
    const auto lag = options.door->lag + std::chrono::milliseconds(options.delay);
    Clock::time_point end = Clock::now();
    for (const auto &stream : streams)
        end = std::max(end, stream->End() + lag);
    end = std::min(end, Clock::now() + kPatience + lag);
    while (!stop.Signalled() && Clock::now() < end) {
        const auto left = end - Clock::now();
        std::this_thread::sleep_for(std::min<Clock::duration>(left, std::chrono::milliseconds(50)));
    }
}

void Run(const Options &options, Stop *stop)
{
    Console console(options);
    Streams streams;
    for (const InputName &name : options.inputs)
        streams.push_back(std::make_unique<Stream>(name, options, &console, stop));
    const std::unique_ptr<Publisher> publisher = options.door->open(options, &console);
    Ended ended(streams.size(), &console, stop);
    const Joined joined(&streams, stop);
    for (const auto &stream : streams) {
        stream->Start(publisher.get(),
                      [&ended](const std::string &failure) { ended.Take(failure); });
    }
    Report(options, &console, streams, stop);
    if (stop->Signalled())
        console.Print(options.door->farewell);
    if (stop->FailureText().empty())
        AwaitQueue(options, streams, *stop);
}

/// Standard descriptors that the caller has closed would be given to whatever is opened next.
void OpenStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", O_RDWR));
    }
}

int Main(int argc, char **argv)
{
    OpenStandardDescriptors();
    try {
        const std::optional<Options> options = ParseOptions(argc, argv);
        if (!options)
            return 0;
        av_log_set_level(AV_LOG_QUIET);
        Stop stop;
        Run(*options, &stop);
        const std::string failure = stop.FailureText();
        if (!failure.empty())
            throw Failure(failure);
    } catch (const std::bad_alloc &) {
        fputs("kovastream: no memory is left\n", stderr);
        return 1;
    } catch (const std::exception &error) {
        fprintf(stderr, "kovastream: %s\n", error.what());
        return 1;
    }
    return 0;
}

} // namespace

} // namespace kovastream

int main(int argc, char **argv)
{
    return kovastream::Main(argc, argv);
}
