#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

extern char **environ;

namespace {

/// The numbers of the process's open descriptors.
std::set<int> Open()
{
    std::set<int> numbers;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        numbers.insert(atoi(entry.path().filename().c_str()));
    // The one that the directory was read with is closed again.
    for (auto number = numbers.begin(); number != numbers.end();)
        number = fcntl(*number, F_GETFD) == -1 ? numbers.erase(number) : std::next(number);
    return numbers;
}

/// Starts a program that outlives its host; -1 when it cannot.
pid_t StartChild()
{
    char szProgram[] = "sleep";
    char szSeconds[] = "60";
    char *arguments[] = {szProgram, szSeconds, nullptr};
    pid_t nPid = -1;
    return posix_spawnp(&nPid, szProgram, nullptr, nullptr, arguments, environ) == 0 ? nPid : -1;
}

/// A host that serves a player, starts a program and is gone at once, without
/// taking its server down.
[[noreturn]] void RunHost(int nReport)
{
    KovaTestServer server;
    KovaRtspTestClient client;
    const bool bServes =
        server.IsUp() && server.Connect(&client) && client.SetupTcp("live", 97, 0).nStatus == 200;
    const int report[] = {bServes ? server.Port() : 0, StartChild()};
    _exit(write(nReport, report, sizeof(report)) == sizeof(report) ? 0 : 1);
}

/// Such a host in a process of its own, and what it left.
class GoneHost {
public:
    GoneHost()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        const pid_t nHost = fork();
        if (nHost == 0)
            RunHost(ends[1]);
        close(ends[1]);
        int report[2];
        if (read(ends[0], report, sizeof(report)) == sizeof(report)) {
            m_nPort = report[0];
            m_nChild = report[1];
        }
        close(ends[0]);
        waitpid(nHost, nullptr, 0);
    }
    ~GoneHost()
    {
        if (m_nChild > 0)
            kill(m_nChild, SIGKILL);
    }
    GoneHost(const GoneHost &) = delete;
    GoneHost &operator=(const GoneHost &) = delete;

    /// The port that it served; 0 when it did not.
    uint32_t Port() const
    {
        return static_cast<uint32_t>(m_nPort);
    }
    bool ChildLives() const
    {
        return m_nChild > 0 && kill(m_nChild, 0) == 0;
    }

private:
    int m_nPort = 0;
    pid_t m_nChild = -1;
};

TEST(InheritedDescriptors, NoneIsTheLibrarys)
{
    KovaStdoutCapture capture;
    const std::set<int> before = Open();
    KovaTestServer server;
    ASSERT_TRUE(server.IsUp());
    KovaRtspTestClient udp;
    KovaRtspTestClient tcp;
    ASSERT_TRUE(server.Connect(&udp));
    ASSERT_TRUE(server.Connect(&tcp));
    ASSERT_TRUE(server.PushReady(1000));
    for (const int nTrack : {96, 97}) {
        ASSERT_EQ(udp.SetupUdp("live", nTrack, 5000).nStatus, 200);
        ASSERT_EQ(tcp.SetupTcp("live", nTrack, (nTrack - 96) * 2).nStatus, 200);
    }
    ASSERT_EQ(udp.Play("live").nStatus, 200);
    ASSERT_EQ(tcp.Play("live").nStatus, 200);
    unsigned nLibrarys = 0;
    for (const int nNumber : Open()) {
        if (before.count(nNumber) != 0 || nNumber == udp.Socket() || nNumber == tcp.Socket())
            continue;
        nLibrarys++;
        EXPECT_NE(fcntl(nNumber, F_GETFD) & FD_CLOEXEC, 0) << nNumber;
    }
    // The listening socket, two connections, and two UDP sockets for each track.
    EXPECT_EQ(nLibrarys, 7U);
    server.Settle(tcp);
}

TEST(InheritedDescriptors, NorIsTheListeningSocketThatWouldHaveBeenNumberZero)
{
    KovaStdoutCapture capture;
    const int nInput = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    const uint16_t nPort = KovaFreeTcpPort();
    close(STDIN_FILENO);
    KovaRtspServer *pServer = nullptr;
    const int32_t nResult = KovaRtspServerInit(&pServer, szAddress, nPort, 16);
    dup2(nInput, STDIN_FILENO);
    close(nInput);
    ASSERT_EQ(nResult, KOVA_OK);
    EXPECT_GT(pServer->nListenSocket.load(), 0);
    EXPECT_NE(fcntl(pServer->nListenSocket.load(), F_GETFD) & FD_CLOEXEC, 0);
    KovaRtspServerUninit(pServer);
}

TEST(InheritedDescriptors, AChildThatOutlivesTheHostDoesNotKeepThePort)
{
    KovaStdoutCapture capture;
    const GoneHost host;
    ASSERT_NE(host.Port(), 0U);
    ASSERT_TRUE(host.ChildLives());
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    KovaRtspServer *pServer = nullptr;
    // A program that is just being started holds everything for another moment.
    EXPECT_TRUE(KovaWaitUntil(
        5000, [&] { return KovaRtspServerInit(&pServer, szAddress, host.Port(), 16) == KOVA_OK; }));
    EXPECT_TRUE(host.ChildLives());
    KovaRtspServerUninit(pServer);
}

} // namespace
