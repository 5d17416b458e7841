// A DESCRIBE from the request's bytes to the answer in the player's socket.
#include "bench/access_units.h"
#include "rtsp/request_handler.h"
#include "server/server.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string_view>
#include <vector>

namespace {

constexpr char kDescribe[] = "DESCRIBE rtsp://10.0.0.1:554/live RTSP/1.0\r\nCSeq: 2\r\n"
                             "Accept: application/sdp\r\n\r\n";
constexpr int kReadyTries = 2000;

/// A server that does not listen, with a stream that is ready and a connection of one player.
class Described {
public:
    Described()
    {
        const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
        const KovaAudioDescription sound = {64, 48000, 2};
        const KovaVideoDescription picture = {2000};
        uint32_t nId = 0;
        m_pServer = KovaRtspServerCreate(szAddress, 554, 16);
        KovaRtspStreamer *pStream = KovaRtspServerAddUri(m_pServer, "live");
        KovaRtspServerAddPayloadType(pStream, KOVA_MEDIA_AUDIO, &nId, &sound);
        KovaRtspServerAddPayloadType(pStream, KOVA_MEDIA_VIDEO, &nId, &picture);
        Push(pStream, KOVA_PAYLOAD_ID_AUDIO, KovaBenchSound(170));
        Push(pStream, KOVA_PAYLOAD_ID_VIDEO, KovaBenchPicture(true, 1000));
        for (int nTry = 0; nTry < kReadyTries && !m_bReady; nTry++) {
            m_bReady = KovaRtspSdpGeneratorIsReady(pStream->pSdpGenerator) != 0;
            usleep(1000);
        }
        m_bReady = m_bReady && socketpair(AF_UNIX, SOCK_STREAM, 0, m_sockets) == 0;
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
    static void Push(KovaRtspStreamer *pStream, uint32_t nId, const std::vector<uint8_t> &unit)
    {
        KovaRtspServerPushData(pStream, nId, unit.data(), static_cast<uint32_t>(unit.size()), 40);
    }

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
