#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

namespace {

/// A host without some of its standard streams, which writes to them all the time,
/// what the library has printed included, from its first order until orders end.
[[noreturn]] void RunHost(const std::vector<int> &closed, int nReport, int nOrders)
{
    const int nNothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int nNumber : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nNothing, nNumber);
    for (const int nNumber : closed)
        close(nNumber);
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    const uint32_t nPort = KovaFreeTcpPort();
    KovaRtspServer *pServer = nullptr;
    const bool bServes = KovaRtspServerInit(&pServer, szAddress, nPort, 16) == KOVA_OK &&
                         KovaRtspServerAddUri(pServer, "live") != nullptr;
    const uint32_t nServed = bServes ? nPort : 0;
    if (write(nReport, &nServed, sizeof(nServed)) != sizeof(nServed))
        _exit(1);
    char nOrder;
    if (read(nOrders, &nOrder, 1) != 1)
        _exit(1);
    fcntl(nOrders, F_SETFL, O_NONBLOCK);
    while (read(nOrders, &nOrder, 1) < 0) {
        printf("The host has something to say.\n");
        fflush(stdout);
        fputs("So it has here.\n", stderr);
        usleep(1000);
    }
    KovaRtspServerUninit(pServer);
    _exit(0);
}

/// Such a host in a process of its own.
class ClosedStreamsHost {
public:
    explicit ClosedStreamsHost(const std::vector<int> &closed)
    {
        int report[2];
        int orders[2];
        if (pipe2(report, O_CLOEXEC) != 0 || pipe2(orders, O_CLOEXEC) != 0)
            return;
        m_nProcess = fork();
        if (m_nProcess == 0) {
            close(orders[1]);
            RunHost(closed, report[1], orders[0]);
        }
        close(report[1]);
        close(orders[0]);
        m_nOrders = orders[1];
        if (read(report[0], &m_nPort, sizeof(m_nPort)) != sizeof(m_nPort))
            m_nPort = 0;
        close(report[0]);
    }
    ~ClosedStreamsHost()
    {
        End();
    }
    ClosedStreamsHost(const ClosedStreamsHost &) = delete;
    ClosedStreamsHost &operator=(const ClosedStreamsHost &) = delete;

    /// The port that it serves; 0 when it does not.
    uint16_t Port() const
    {
        return static_cast<uint16_t>(m_nPort);
    }

    /// Lets it begin to write.
    void Speak() const
    {
        EXPECT_EQ(write(m_nOrders, "", 1), 1);
    }

    /// Ends the host. Returns how its process ended, as waitpid() tells.
    int End()
    {
        if (m_nProcess <= 0)
            return -1;
        close(m_nOrders);
        int nStatus = -1;
        waitpid(m_nProcess, &nStatus, 0);
        m_nProcess = -1;
        return nStatus;
    }

private:
    pid_t m_nProcess = -1;
    int m_nOrders = -1;
    uint32_t m_nPort = 0;
};

constexpr char kOptions[] = "OPTIONS rtsp://127.0.0.1/live RTSP/1.0\r\nCSeq: 1\r\n\r\n";
constexpr char kOptionsAnswer[] =
    "RTSP/1.0 200 OK\r\nCSeq: 1\r\nPublic: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n";

TEST(StandardDescriptors, WhatAHostPrintsWithoutThemDoesNotGoToTheListener)
{
    for (const std::vector<int> &closed : {std::vector<int>{1}, {2}, {1, 2}, {0, 1, 2}}) {
        ClosedStreamsHost host(closed);
        ASSERT_NE(host.Port(), 0);
        host.Speak();
        usleep(20000); // some lines
        const int nStatus = host.End();
        EXPECT_TRUE(WIFEXITED(nStatus)) << "signal " << WTERMSIG(nStatus);
        EXPECT_EQ(WEXITSTATUS(nStatus), 0);
    }
}

TEST(StandardDescriptors, NorToAPlayer)
{
    for (const std::vector<int> &closed : {std::vector<int>{1}, {2}, {1, 2}}) {
        ClosedStreamsHost host(closed);
        ASSERT_NE(host.Port(), 0);
        KovaRtspTestClient first;
        KovaRtspTestClient second;
        ASSERT_TRUE(first.Connect(host.Port()));
        ASSERT_TRUE(second.Connect(host.Port()));
        EXPECT_EQ(first.Exchange(kOptions).text, kOptionsAnswer);
        EXPECT_EQ(second.Exchange(kOptions).text, kOptionsAnswer);
        host.Speak(); // not before both are accepted: a number is low until it is raised
        EXPECT_TRUE(first.IsSilent(50));
        EXPECT_TRUE(second.IsSilent(50));
        const int nStatus = host.End();
        EXPECT_TRUE(WIFEXITED(nStatus)) << "signal " << WTERMSIG(nStatus);
    }
}

} // namespace
