#include "classic/rtp/rtp_packer.h"
#include "rtp/rtcp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kReport = {0x80, 200,  0,    6,    0x11, 0x12, 0x13, 0x14, 0x21, 0x22,
                       0x23, 0x24, 0x31, 0x32, 0x33, 0x34, 0x41, 0x42, 0x43, 0x44,
                       0x51, 0x52, 0x53, 0x54, 0x61, 0x62, 0x63, 0x64};

/// A packer with the SSRC of the report above.
struct SenderReportTest : testing::Test {
    KovaRtpPacker *pPacker = KovaRtpVideoPackerCreate(2, 97, 0x11121314, nullptr, nullptr);
    Bytes buffer = Bytes(40, 0xEE);

    ~SenderReportTest() override
    {
        KovaRtpPackerDestroy(pPacker);
    }

    uint32_t Report(KovaRtpPacker *pOf, uint8_t *pBuffer, uint32_t nSize)
    {
        return KovaRtpPackerGetRtcpSRData(pOf, pBuffer, nSize, 0x21222324, 0x31323334, 0x51525354,
                                          0x61626364, 0x41424344);
    }
};

TEST_F(SenderReportTest, Is28BytesOfTheGivenValues)
{
    EXPECT_EQ(Report(pPacker, buffer.data(), 40), 28U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 28), kReport);
    EXPECT_EQ(Bytes(buffer.begin() + 28, buffer.end()), Bytes(12, 0xEE));
}

TEST_F(SenderReportTest, FitsExactly)
{
    EXPECT_EQ(Report(pPacker, buffer.data(), 28), 28U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 28), kReport);
}

TEST_F(SenderReportTest, WritesNothingIntoASmallerBuffer)
{
    EXPECT_EQ(Report(pPacker, buffer.data(), 27), 0x80100001U);
    EXPECT_EQ(Report(pPacker, buffer.data(), 0), 0x80100001U);
    EXPECT_EQ(buffer, Bytes(40, 0xEE));
}

TEST_F(SenderReportTest, RefusesNullArguments)
{
    EXPECT_EQ(Report(nullptr, buffer.data(), 40), 0x80100000U);
    EXPECT_EQ(Report(pPacker, nullptr, 40), 0x80100001U);
    EXPECT_EQ(buffer, Bytes(40, 0xEE));
}

TEST(Rtcp, WritesASenderReport)
{
    Bytes buffer(30, 0xEE);
    KovaRtcpSenderReportWrite(
        buffer.data(), {0x11121314, 0x21222324, 0x31323334, 0x41424344, 0x51525354, 0x61626364});
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 28), kReport);
    EXPECT_EQ(buffer[28], 0xEE);
}

TEST(Rtcp, NtpSecondsCountFrom1900)
{
    EXPECT_EQ(KovaRtcpNtpSeconds(0, 0), 2208988800U);
    EXPECT_EQ(KovaRtcpNtpSeconds(999, 10), 2208988810U);
    EXPECT_EQ(KovaRtcpNtpSeconds(61000, 10), 2208988871U);
    // Beyond 2036 the seconds start again.
    EXPECT_EQ(KovaRtcpNtpSeconds(0, 2085978496U), 0U);
    EXPECT_EQ(KovaRtcpNtpSeconds(0xFFFFFFFF, 1795176000U), 1795176000U + 2208988800U + 4294967U);
}

TEST(Rtcp, NtpFractionIsOfTheMilliseconds)
{
    EXPECT_EQ(KovaRtcpNtpFraction(0), 0U);
    EXPECT_EQ(KovaRtcpNtpFraction(1), 4294967U);
    EXPECT_EQ(KovaRtcpNtpFraction(1500), 2147483648U);
    EXPECT_EQ(KovaRtcpNtpFraction(999), 4290672328U);
    EXPECT_EQ(KovaRtcpNtpFraction(4000000999U), 4290672328U);
    for (uint32_t n = 0; n < 1000; n++)
        EXPECT_EQ(KovaRtcpNtpFraction(n), static_cast<uint32_t>(std::floor(n * 4294967.296))) << n;
}

} // namespace
