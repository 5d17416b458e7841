#include "tests/support/media.h"
#include "tests/support/rtsp_client.h"
#include "tests/support/synthetic_media.h"
#include "tests/support/test_server.h"
#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

/// With how few system calls a host sends, counted between it and the C library.
namespace {

constexpr unsigned kPlayers = 10;
constexpr unsigned kPictures = 45;

/// Pictures of 15 packets, key frames of more than one batch. Each is one slice: what
/// follows it begins another picture, for the host that cuts the file.
std::string Picture(unsigned nPicture)
{
    const std::string start("\0\0\0\1", 4);
    const bool bKey = nPicture % kSyntheticFps == 0;
    const std::string slice(1, bKey ? '\x65' : '\x41');
    return start + "\x09\x10" +
           (bKey ? start + KovaTestSps() + start + KovaTestPps() : std::string()) + start + slice +
           "\x88" + KovaNoise(bKey ? 150000 : 20000, nPicture);
}

struct Counts {
    unsigned long nCalls = 0;
    unsigned long nPackets = 0;
};

class CallCount : public testing::TestWithParam<bool> {
protected:
    CallCount()
    {
        char szFolder[] = "/tmp/kova-call-count-XXXXXX";
        m_folder = mkdtemp(szFolder);
        std::ofstream clip(m_folder + "/clip.h264", std::ios::binary);
        for (unsigned n = 0; n < 2 * kSyntheticFps; n++)
            clip << Picture(n);
    }

    ~CallCount() override
    {
        for (const char *szName : {"/clip.h264", "/counts", "/output"})
            unlink((m_folder + szName).c_str());
        rmdir(m_folder.c_str());
    }

    void StartHost()
    {
        const std::string port = std::to_string(m_nPort);
        const std::string clip = m_folder + "/clip.h264";
        const std::string output = m_folder + "/output";
        const std::string preload = std::string("LD_PRELOAD=") + KOVA_CALL_COUNTER;
        const std::string counts = "KOVA_CALL_COUNTS=" + m_folder + "/counts";
        m_nHost = fork();
        ASSERT_GE(m_nHost, 0);
        if (m_nHost != 0)
            return;
        const int nOutput = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(nOutput, STDOUT_FILENO);
        // The counter comes before the sanitizer, which wants to be told.
        execlp("env", "env", preload.c_str(), counts.c_str(),
               "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0", KOVA_MINIMAL_HOST, "-p",
               port.c_str(), "-r", "30", clip.c_str(), "samples/clip.aac",
               static_cast<char *>(nullptr));
        _exit(127);
    }

    /// Ends the host in an orderly way; whether it went well.
    bool StopHost()
    {
        if (m_nHost <= 0)
            return false;
        kill(m_nHost, SIGTERM);
        int nStatus = -1;
        const bool bEnded =
            KovaWaitUntil(30000, [&] { return waitpid(m_nHost, &nStatus, WNOHANG) == m_nHost; });
        if (!bEnded) {
            kill(m_nHost, SIGKILL);
            waitpid(m_nHost, &nStatus, 0);
        }
        m_nHost = 0;
        return bEnded && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
    }

    Counts CountsOf(const std::string &transport) const
    {
        std::ifstream file(m_folder + "/counts");
        std::string name;
        Counts counts;
        while (file >> name >> counts.nCalls >> counts.nPackets) {
            if (name == transport)
                return counts;
        }
        ADD_FAILURE() << "the host has not told what it counted";
        return {};
    }

    std::string m_folder;
    uint16_t m_nPort = KovaFreeTcpPort();
    pid_t m_nHost = 0;
};

TEST_P(CallCount, TenPlayersTakeFarFewerCallsThanPackets)
{
    const bool bUdp = GetParam();
    StartHost();
    std::vector<KovaRtspTestClient> players(kPlayers);
    std::vector<KovaUdpPair> ports(bUdp ? kPlayers : 0);
    for (unsigned n = 0; n < kPlayers; n++) {
        ASSERT_TRUE(KovaWaitUntil(30000, [&] { return players[n].Connect(m_nPort); }));
        ASSERT_TRUE(KovaWaitUntil(30000, [&] {
            const std::string described = players[n].Describe("live").text;
            return described.find("trackID=97") != std::string::npos;
        }));
        const KovaTestResponse response = bUdp ? players[n].SetupUdp("live", 97, ports[n].RtpPort())
                                               : players[n].SetupTcp("live", 97, 0);
        ASSERT_EQ(response.nStatus, 200);
    }
    for (KovaRtspTestClient &player : players)
        ASSERT_EQ(player.Play("live").nStatus, 200);
    // Everybody reads, so that nobody delays the others; the first one counts pictures.
    std::string packet;
    KovaTestFrame frame;
    unsigned nEnds = 0;
    EXPECT_TRUE(KovaWaitUntil(60000, [&] {
        for (unsigned n = 0; n < kPlayers; n++) {
            while (bUdp ? ports[n].ReceiveRtp(&packet, 0) : players[n].NextFrame(&frame, 2)) {
                const std::string &rtp = bUdp ? packet : frame.payload;
                const bool bMarker = rtp.size() > 1 && (static_cast<uint8_t>(rtp[1]) & 0x80) != 0;
                nEnds += n == 0 && bMarker && (bUdp || frame.nChannel == 0);
            }
        }
        return nEnds >= kPictures;
    }));
    ASSERT_TRUE(StopHost());
    const Counts counts = CountsOf(bUdp ? "udp" : "tcp");
    EXPECT_GT(counts.nPackets, 2500U);
    const double packetsPerCall =
        static_cast<double>(counts.nPackets) / static_cast<double>(counts.nCalls);
    RecordProperty("packets_per_call", std::to_string(packetsPerCall));
    EXPECT_GE(packetsPerCall, 10);
}

INSTANTIATE_TEST_SUITE_P(Transport, CallCount, testing::Bool(),
                         [](const auto &entry) { return entry.param ? "Udp" : "Tcp"; });

} // namespace
