#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <vector>

// A host that stands still for longer than its limits allow does not blame its players for that.

namespace {

constexpr uint32_t kRequestMs = 3000;
constexpr size_t kConnections = 200; // more than one wait tells of

/// A server in a process of its own.
class SeparateHost {
public:
    SeparateHost()
    {
        int port[2];
        if (pipe2(port, O_CLOEXEC) != 0)
            return;
        m_nProcess = fork();
        if (m_nProcess == 0) {
            const KovaLiveHost host(
                [](KovaLiveConfig *pConfig) { pConfig->request_ms = kRequestMs; });
            const uint16_t nPort = host.Port();
            if (write(port[1], &nPort, sizeof(nPort)) == sizeof(nPort))
                pause();
            _exit(1);
        }
        close(port[1]);
        if (read(port[0], &m_nPort, sizeof(m_nPort)) != sizeof(m_nPort))
            m_nPort = 0;
        close(port[0]);
    }
    ~SeparateHost()
    {
        if (m_nProcess > 0) {
            kill(m_nProcess, SIGKILL);
            waitpid(m_nProcess, nullptr, 0);
        }
    }
    SeparateHost(const SeparateHost &) = delete;
    SeparateHost &operator=(const SeparateHost &) = delete;

    uint16_t Port() const
    {
        return m_nPort;
    }
    bool Stop() const
    {
        int nStatus = 0;
        return kill(m_nProcess, SIGSTOP) == 0 &&
               waitpid(m_nProcess, &nStatus, WUNTRACED) == m_nProcess && WIFSTOPPED(nStatus);
    }
    void GoOn() const
    {
        kill(m_nProcess, SIGCONT);
    }

private:
    pid_t m_nProcess = -1;
    uint16_t m_nPort = 0;
};

} // namespace

TEST(LiveStoppedProcess, WhatArrivedMeanwhileWasInTime)
{
    const SeparateHost host;
    ASSERT_NE(host.Port(), 0);
    KovaLiveClient witness;
    ASSERT_TRUE(witness.Connect(host.Port()));
    std::vector<std::unique_ptr<KovaLiveClient>> clients;
    for (size_t n = 0; n < kConnections; n++) {
        clients.push_back(std::make_unique<KovaLiveClient>());
        ASSERT_TRUE(clients[n]->Connect(host.Port()));
        ASSERT_TRUE(clients[n]->Send("OPTIONS * RTSP/1.0\r\n"));
    }
    // Whoever was readable before the witness has been read when it has its second answer.
    EXPECT_EQ(witness.Options().nStatus, 200);
    EXPECT_EQ(witness.Options().nStatus, 200);
    ASSERT_TRUE(host.Stop());
    for (const auto &client : clients)
        ASSERT_TRUE(client->Send("CSeq: 1\r\n\r\n"));
    usleep((kRequestMs + 500) * 1000);
    host.GoOn();
    for (const auto &client : clients)
        ASSERT_EQ(client->Receive().nStatus, 200);
}
