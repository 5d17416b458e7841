// The scan of one request, all steps in their order.
#include "classic/rtsp/request_parser.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr char kOptions[] = "OPTIONS rtsp://10.0.0.1:554/live RTSP/1.0\r\nCSeq: 1\r\n"
                            "User-Agent: player\r\n\r\n";
constexpr char kSetup[] = "SETUP rtsp://10.0.0.1:554/live/trackID=97 RTSP/1.0\r\nCSeq: 4\r\n"
                          "User-Agent: player\r\n"
                          "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n"
                          "Session: 93410987058\r\n\r\n";

bool Scan(const std::string &request, KovaRequestScan *pScan, KovaRtspRequestInfo *pInfo)
{
    std::string_view session;
    uint16_t nPort = 0;
    KovaRequestScanBegin(pScan, reinterpret_cast<const uint8_t *>(request.data()),
                         static_cast<int32_t>(request.size()));
    const bool bGood = KovaRequestScanMethod(pScan) && KovaRequestScanHost(pScan, pInfo) &&
                       KovaRequestScanVersion(pScan, pInfo) &&
                       (!pScan->bSetup || KovaRequestScanTrack(pScan, pInfo)) &&
                       KovaRequestScanPath(pScan, pInfo) == kPathFound &&
                       KovaRequestScanCSeq(pScan, pInfo);
    benchmark::DoNotOptimize(KovaRequestScanSession(pScan, &session));
    benchmark::DoNotOptimize(KovaRequestScanParameter(pScan, "client_port", &nPort));
    return bGood;
}

void RequestParsing(benchmark::State &state, const char *szRequest)
{
    const std::string request = szRequest;
    const auto pScan = std::make_unique<KovaRequestScan>();
    for (auto _ : state) {
        KovaRtspRequestInfo info = {};
        *pScan = {};
        if (!Scan(request, pScan.get(), &info)) {
            state.SkipWithError("the request was refused");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(RequestParsing, Options, kOptions);
BENCHMARK_CAPTURE(RequestParsing, Setup, kSetup);

} // namespace
