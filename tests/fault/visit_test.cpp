#include "tests/fault/fault_bench.h"

namespace {

using Texts = std::vector<std::string>;

/// The NAL units that the payloads carry (RFC 6184: single and FU-A, STAP-A).
Texts NalUnits(const Texts &payloads)
{
    Texts units;
    for (const std::string &payload : payloads) {
        const int nType = payload[0] & 0x1f;
        if (nType == 28 && (payload[1] & 0x80) != 0)
            units.push_back(
                std::string(1, static_cast<char>((payload[0] & 0xe0) | (payload[1] & 0x1f))));
        if (nType == 28)
            units.back() += payload.substr(2);
        const Texts aggregated = KovaAggregated(payload);
        units.insert(units.end(), aggregated.begin(), aggregated.end());
        if (nType != 28 && aggregated.empty())
            units.push_back(payload);
    }
    return units;
}

/// What all the other tests compare with must itself be right.
class UndisturbedVisit : public KovaFaultTest, public testing::WithParamInterface<KovaVisitKind> {};

TEST_P(UndisturbedVisit, IsAnsweredAndServedInFull)
{
    const KovaVisit &visit = KovaReferenceVisit(GetParam());
    Texts methods;
    for (const KovaVisitStep &step : visit.steps) {
        methods.push_back(step.method);
        EXPECT_EQ(step.nStatus, 200) << step.method;
    }
    EXPECT_EQ(methods, (Texts{"OPTIONS", "DESCRIBE", "SETUP", "SETUP", "PLAY", "GET_PARAMETER",
                              "TEARDOWN"}));
    EXPECT_EQ(visit.nClientsAtPlay, 2U);
    EXPECT_EQ(visit.strays, "");
    EXPECT_FALSE(visit.bEnded);
    // A unit of 40 + n bytes and one of 50, each behind its AU header.
    Texts audio;
    for (size_t nUnit = 0; nUnit < 3; nUnit++) {
        for (const size_t nSize : {40 + nUnit, size_t{50}})
            audio.push_back(std::string("\0\x10", 2) + static_cast<char>(nSize >> 5) +
                            static_cast<char>((nSize & 0x1f) << 3) + std::string(nSize, '\x21'));
    }
    EXPECT_EQ(visit.audio, audio);
    EXPECT_EQ(visit.video.size(), 7U);
    EXPECT_EQ(NalUnits(visit.video),
              (Texts{"\x65" + std::string(3000, '\x5a'), "\x41" + std::string(200, '\x5a'),
                     "\x41" + std::string(300, '\1'), "\x65" + std::string(3002, '\x5a')}));
}

INSTANTIATE_TEST_SUITE_P(Transports, UndisturbedVisit,
                         testing::Values(kVisitUdp, kVisitInterleaved), [](const auto &entry) {
                             return entry.param == kVisitUdp ? "Udp" : "Interleaved";
                         });

} // namespace
