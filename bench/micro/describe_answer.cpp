// A DESCRIBE from the request's bytes to the answer in the player's socket.
#include "classic/rtsp/request_handler.h"
#include "classic/server/server.h"
#include "tests/support/ready_stream.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

namespace {

constexpr char kDescribe[] = "DESCRIBE rtsp://10.0.0.1:554/live RTSP/1.0\r\nCSeq: 2\r\n"
                             "Accept: application/sdp\r\n\r\n";

/// A server that does not listen, with a stream that is ready and a connection of one player.
class Described {
public:
    Described()
    {
        const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
        m_pServer = KovaRtspServerCreate(szAddress, 554, 16);
        KovaMakeReady(KovaPublishAudioVideo(m_pServer, "live"));
        m_bReady = socketpair(AF_UNIX, SOCK_STREAM, 0, m_sockets) == 0;
        if (m_bReady)
            m_pHandler = KovaRtspServerHandlerCreate(m_pServer, m_sockets[0], {});
    }
    ~Described()
    {
        KovaRtspServerHandlerDestroy(m_pHandler);
        close(m_sockets[1]);
        KovaRtspServerDestroy(m_pServer);
    }
    Described(const Described &) = delete;
    Described &operator=(const Described &) = delete;

    /// Bytes of the answer; 0 when it is none.
    size_t Ask()
    {
        HandleRtspRequest(m_pHandler, reinterpret_cast<const uint8_t *>(kDescribe),
                          static_cast<int32_t>(strlen(kDescribe)));
        const ssize_t nGot = recv(m_sockets[1], m_answer, sizeof(m_answer), MSG_DONTWAIT);
        const std::string_view answer(m_answer, nGot > 0 ? static_cast<size_t>(nGot) : 0);
        return answer.find("m=video") != std::string_view::npos ? answer.size() : 0;
    }
    bool IsReady() const
    {
        return m_pHandler != nullptr;
    }

private:
    KovaRtspServer *m_pServer = nullptr;
    KovaRtspServerHandler *m_pHandler = nullptr;
    bool m_bReady = false;
    int m_sockets[2] = {-1, -1};
    char m_answer[8192] = {};
};

void DescribeAnswer(benchmark::State &state)
{
    static Described described;
    if (!described.IsReady()) {
        state.SkipWithError("the stream is not ready");
        return;
    }
    for (auto _ : state) {
        if (described.Ask() == 0) {
            state.SkipWithError("no description came");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(DescribeAnswer);

} // namespace
