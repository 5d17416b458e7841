#include "classic/server/server.h"
#include "foundation/event.h"
#include "tests/support/sockets.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

/// Whoever is stopped is woken: no stop takes as long as a thread may sleep.
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kPatience = 20000; // of the threads, ms

/// A thread in the place of one of the library's, with more patience.
class Sleeper {
public:
    Sleeper(KovaStateWord *pState, std::function<void()> wait)
    {
        *pState = kThreadRunning;
        m_thread = std::thread([this, pState, wait = std::move(wait)] {
            const Clock::time_point begin = Clock::now();
            wait();
            m_slept = Clock::now() - begin;
            *pState = kThreadStopped;
        });
        usleep(20000);
    }

    void ExpectToHaveBeenWoken()
    {
        m_thread.join();
        EXPECT_LT(m_slept, std::chrono::milliseconds(kPatience - 1000));
    }

private:
    Clock::duration m_slept = {};
    std::thread m_thread;
};

TEST(StopWakes, ThePackersOfAStreamThatGoes)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddStream();
    KovaStopPackers(pStream);
    Sleeper audio(&pStream->nAudioPackerState,
                  [pStream] { KovaEventWait(&pStream->audioWork, kPatience); });
    Sleeper video(&pStream->nVideoPackerState,
                  [pStream] { KovaEventWait(&pStream->videoWork, kPatience); });
    EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), "live"), 0);
    audio.ExpectToHaveBeenWoken();
    video.ExpectToHaveBeenWoken();
}

TEST(StopWakes, TheListener)
{
    const KovaStdoutCapture capture;
    const KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();
    const int nSocket = KovaListen(16);
    pServer->nListenSocket = nSocket;
    Sleeper listener(&pServer->nListenState, [nSocket] {
        struct pollfd entry = {};
        entry.fd = nSocket;
        entry.events = POLLIN;
        poll(&entry, 1, kPatience);
    });
    EXPECT_EQ(KovaRtspServerStop(pServer), 0);
    listener.ExpectToHaveBeenWoken();
}

} // namespace
