#include "stop.h"

#include "failure.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kovastream {

namespace {

// What a signal handler may touch.
std::atomic<int> g_event{-1};
std::atomic<bool> g_requested{false};
std::atomic<bool> g_signalled{false};
std::atomic<int> g_interrupts{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "used in a signal handler");

constexpr int kInterruptedStatus = 128 + SIGINT;

void Raise()
{
    g_requested = true;
    const uint64_t one = 1;
    // A full counter is as readable as any other.
    if (write(g_event, &one, sizeof(one)) < 0)
        return;
}

void OnSignal(int number)
{
    const int error = errno;
    if (number == SIGINT && g_interrupts.fetch_add(1) > 0)
        _exit(kInterruptedStatus);
    g_signalled = true;
    Raise();
    errno = error;
}

} // namespace

Stop::Stop()
{
    g_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (g_event < 0)
        throw Failure("no descriptor is left (ulimit -n)");
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        // nohup has it ignored.
        if (number != SIGHUP || before.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
    // A reader of our output that is gone shows as an error of write.
    signal(SIGPIPE, SIG_IGN);
    // So does a file that may not grow any more.
    signal(SIGXFSZ, SIG_IGN);
}

Stop::~Stop()
{
    // The descriptor stays: a signal may come until the very end.
}

void Stop::Request()
{
    Raise();
}

void Stop::Fail(const std::string &text)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_failure.empty())
            m_failure = text;
    }
    Raise();
}

bool Stop::Requested() const
{
    return g_requested;
}

bool Stop::Signalled() const
{
    return g_signalled;
}

std::string Stop::FailureText() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failure;
}

int Stop::Descriptor() const
{
    return g_event;
}

bool Stop::WaitUntil(std::chrono::steady_clock::time_point when) const
{
    using namespace std::chrono;
    while (!g_requested) {
        const nanoseconds left = when - steady_clock::now();
        if (left.count() <= 0)
            break;
        const auto whole = duration_cast<seconds>(left);
        const timespec time = {static_cast<time_t>(whole.count()),
                               static_cast<long>((left - whole).count())};
        pollfd event = {g_event, POLLIN, 0};
        ppoll(&event, 1, &time, nullptr);
    }
    return g_requested;
}

} // namespace kovastream
