#include "classic/streamer/es_input.h"
#include "classic/streamer/registries.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"
#include "tests/support/c_calls.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>

/// What is taken out of a stream's registries while others use it.
namespace {

/// Holds the thread that asks for its second block of memory, which a packer
/// thread does in the middle of a unit.
class HeldPacker {
public:
    HeldPacker()
    {
        s_own = pthread_self();
        s_nCalls = 0;
        s_bHeld = false;
        s_bLetGo = false;
        KovaReplaceCall<__real_calloc>(Hold);
    }
    ~HeldPacker()
    {
        LetGo();
        KovaReplaceCall<__real_calloc>(nullptr);
    }
    HeldPacker(const HeldPacker &) = delete;
    HeldPacker &operator=(const HeldPacker &) = delete;

    static bool IsHeld()
    {
        return s_bHeld;
    }
    static void LetGo()
    {
        s_bLetGo = true;
    }

private:
    static void *Hold(size_t nCount, size_t nSize)
    {
        if (pthread_equal(s_own, pthread_self()) == 0 && ++s_nCalls == 2) {
            s_bHeld = true;
            while (!s_bLetGo)
                __real_usleep(1000);
        }
        return __real_calloc(nCount, nSize);
    }

    static inline pthread_t s_own;
    static inline std::atomic<int> s_nCalls{0};
    static inline std::atomic<bool> s_bHeld{false};
    static inline std::atomic<bool> s_bLetGo{false};
};

struct RemovalWaits : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();

    /// Whether a removal ends only after the packer thread has let go of its unit.
    static bool EndsAfter(const std::function<void()> &letGo, const std::function<void()> &removal)
    {
        std::atomic<bool> bEnded{false};
        std::thread remover([&] {
            removal();
            bEnded = true;
        });
        usleep(100000);
        const bool bEarly = bEnded;
        letGo();
        remover.join();
        return !bEarly;
    }

    void ExpectToWaitForThePacker(const std::function<void()> &removal)
    {
        const uint8_t unit[] = {0, 0, 0, 1, 0x65, 1, 2, 3};
        HeldPacker held;
        ASSERT_EQ(KovaRtspStreamerPushData(pStream, KOVA_PAYLOAD_ID_VIDEO, unit, sizeof(unit), 1),
                  0);
        ASSERT_TRUE(KovaWaitUntil([] { return HeldPacker::IsHeld(); }));
        EXPECT_TRUE(EndsAfter(HeldPacker::LetGo, removal)) << "it was still being used";
    }
};

TEST_F(RemovalWaits, PackerIsTheCallersOnceNoThreadUsesIt)
{
    KovaRtpPacker *pPacker = KovaRtspStreamerGetRtpPackerByPayloadId(pStream, 97);
    ExpectToWaitForThePacker([&] { KovaRtspStreamerRemoveRtpPacker(pStream, pPacker); });
    KovaRtpPackerDestroy(pPacker);
}

TEST_F(RemovalWaits, PackerIsDestroyedOnceNoThreadUsesIt)
{
    ExpectToWaitForThePacker([this] { KovaRtspStreamerRemoveRtpPackerByPayloadId(pStream, 97); });
}

TEST_F(RemovalWaits, SenderIsDestroyedOnceNoThreadUsesIt)
{
    ExpectToWaitForThePacker([this] { KovaRtspStreamerRemoveRtpSenderByPayloadId(pStream, 97); });
}

TEST_F(RemovalWaits, SendersAreDestroyedOnceNoThreadUsesThem)
{
    ExpectToWaitForThePacker([this] { KovaRtspStreamerRemoveAllRtpSender(pStream); });
}

TEST_F(RemovalWaits, TrackIsRemovedOnceNoThreadUsesIt)
{
    ExpectToWaitForThePacker([this] { KovaRtspStreamerRemovePayloadType(pStream, 97); });
}

TEST_F(RemovalWaits, SendersStayWhileTheMonitorWalksThemWithThePackersHeld)
{
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStream, 97);
    pthread_mutex_lock(&pStream->packerMutex.native);
    EXPECT_TRUE(EndsAfter([this] { pthread_mutex_unlock(&pStream->packerMutex.native); },
                          [&] { KovaRtspStreamerRemoveRtpSender(pStream, pSender); }));
    KovaRtpSenderDestory(pSender);
}

} // namespace
