#include "classic/rtp/session_tally.h"
#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/server/server.h"
#include "classic/server/session_end.h"
#include "foundation/mutex.h"
#include "system_shims.h"
#include "tests/support/delivery.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

/// Connections of one second draw the same ids. A client that has outlived its
/// session by a moment must not be mistaken for one of a new session.
namespace {

const char *const kOld = "00000000000";
const char *const kNew = "11111111111";

std::string NewSession(KovaRtspServer *pServer)
{
    const KovaFixedRand draws({0}); // kOld
    char szId[kSessionIdSize] = {};
    EXPECT_EQ(AddNewRtspSession(pServer, szId, 60), 0);
    return szId;
}

TEST(SessionIdReuse, IdThatAClientStillBearsIsDrawnAgain)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();
    KovaAddTestClient(pStream, 97, kOld);
    EXPECT_NE(NewSession(host.Server()), kOld);
}

TEST(SessionIdReuse, IdIsFreeOnceItsLastClientIsGone)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();
    KovaAddTestClient(pStream, 96, kOld);
    KovaAddTestClient(pStream, 97, kOld);
    KovaRtspServerRemoveRtpClient(host.Server(), kOld);
    EXPECT_EQ(NewSession(host.Server()), kOld);
}

TEST(SessionIdReuse, LostClientBearsItsIdUntilItHasEndedItsSession)
{
    const KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaTcpEnds tcp;
    delivery.AddSession(kOld);
    KovaRtpClient *pClient = tcp.Client(kOld);
    ASSERT_TRUE(KovaRtpSenderPlaceClient(delivery.pSender, pClient));
    delivery.WithClients([&] { pClient->nState = 2; });
    {
        // Nobody can end a session now, so the sending thread stops just there.
        const KovaMutexLock lock(&delivery.pServer->mtxSession, kRankSessions);
        delivery.Queue({1});
        KovaRtpSendGroupStart(delivery.Group());
        ASSERT_TRUE(KovaWaitUntil([&] { return !delivery.Has(pClient); }));
        usleep(20000);
        EXPECT_TRUE(KovaSessionTallyExists(kOld));
    }
    EXPECT_TRUE(KovaWaitUntil([&] { return !delivery.HasSession(kOld); }));
    EXPECT_TRUE(KovaWaitUntil([] { return !KovaSessionTallyExists(kOld); }));
}

TEST(SessionIdReuse, EndedSessionTakesOnlyItsOwnClientsWithIt)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();
    host.AddSession(kOld);
    // The end stops on its way to the clients, and a new session comes just then.
    pthread_mutex_lock(&host.Server()->mtxStreamer.native);
    std::thread ending([&] { KovaServerEndSession(host.Server(), kOld, kEndGoneWithIt); });
    usleep(20000);
    std::string id;
    std::thread beginning([&] {
        id = NewSession(host.Server());
        KovaAddTestClient(pStream, 96, id);
    });
    usleep(20000);
    pthread_mutex_unlock(&host.Server()->mtxStreamer.native);
    ending.join();
    beginning.join();
    EXPECT_EQ(KovaClientIds(pStream, 96), std::vector<std::string>{id});
}

TEST(SessionIdReuse, NobodyGetsAnEndedSessionsIdWhileItsClientsAreDropped)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();
    host.AddSession(kNew);
    KovaAddTestClient(pStream, 96, kNew);
    KovaAddTestClient(pStream, 96, kOld);
    // A session that lives keeps its clients; the way to those of an ended one is barred.
    KovaServerEndOvertaken(host.Server(), pStream, kNew, nullptr);
    pthread_mutex_lock(&pStream->senderMutex.native);
    std::thread dropping([&] { KovaServerEndOvertaken(host.Server(), pStream, kOld, nullptr); });
    EXPECT_TRUE(KovaWaitUntil([&] {
        if (pthread_mutex_trylock(&host.Server()->mtxSession.native) == EBUSY)
            return true;
        pthread_mutex_unlock(&host.Server()->mtxSession.native);
        return false;
    }));
    usleep(20000);
    EXPECT_EQ(pthread_mutex_trylock(&host.Server()->mtxSession.native), EBUSY);
    pthread_mutex_unlock(&pStream->senderMutex.native);
    dropping.join();
    EXPECT_EQ(KovaClientIds(pStream, 96), std::vector<std::string>{kNew});
}

} // namespace
