#include "classic/rtsp/request_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

/// A scan of a text that has come as far as the version.
class RequestParser : public ::testing::Test {
protected:
    void Begin(const std::string &text)
    {
        info = {};
        KovaRequestScanBegin(scan.get(), reinterpret_cast<const uint8_t *>(text.data()),
                             static_cast<int32_t>(text.size()));
    }
    void ScanLine(const std::string &text)
    {
        Begin(text);
        ASSERT_TRUE(KovaRequestScanMethod(scan.get()));
        ASSERT_TRUE(KovaRequestScanHost(scan.get(), &info));
        ASSERT_TRUE(KovaRequestScanVersion(scan.get(), &info));
    }

    std::unique_ptr<KovaRequestScan> scan = std::make_unique<KovaRequestScan>();
    KovaRtspRequestInfo info = {};
};

TEST_F(RequestParser, SupportedMethodsAreFoundInsideTheText)
{
    for (const char *szMethod :
         {"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "GET_PARAMETER", "TEARDOWN", "xPLAYx", "REPLAY"})
        EXPECT_EQ(IsRequestCommandSupport(szMethod), 1) << szMethod;
    for (const char *szMethod : {"", "options", "PAUSE", "ANNOUNCE", "SET_PARAMETER", "SET UP"})
        EXPECT_EQ(IsRequestCommandSupport(szMethod), 0) << szMethod;
    EXPECT_EQ(IsRequestCommandSupport(nullptr), 0);
}

TEST_F(RequestParser, FirstMethodOfTheOrderWins)
{
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN GET_PARAMETER PLAY SETUP DESCRIBE OPTIONS"),
              kMethodOptions);
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN GET_PARAMETER PLAY SETUP DESCRIBE"), kMethodDescribe);
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN GET_PARAMETER PLAY SETUP"), kMethodSetup);
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN GET_PARAMETER PLAY"), kMethodPlay);
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN GET_PARAMETER"), kMethodGetParameter);
    EXPECT_EQ(KovaRequestMethodOf("TEARDOWN"), kMethodTeardown);
    EXPECT_EQ(KovaRequestMethodOf("OTHER"), kMethodNone);
}

TEST_F(RequestParser, MethodIsAtMost31Characters)
{
    Begin(std::string(31, 'M') + "\t");
    ASSERT_TRUE(KovaRequestScanMethod(scan.get()));
    EXPECT_EQ(std::string(scan->szMethod), std::string(31, 'M'));
    Begin(std::string(32, 'M') + " ");
    EXPECT_FALSE(KovaRequestScanMethod(scan.get()));
    Begin("");
    EXPECT_FALSE(KovaRequestScanMethod(scan.get()));
}

TEST_F(RequestParser, HostAndPortAreKept)
{
    ScanLine("PLAY rtsp://10.0.0.1:554/live RTSP/1.0\r\n");
    EXPECT_STREQ(info.szHostPort, "10.0.0.1:554");
    ScanLine("PLAY rtsp:/live RTSP/1.0\r\n");
    EXPECT_STREQ(info.szHostPort, "");
    ScanLine("PLAY rtsp://" + std::string(21, 'h') + "/live RTSP/1.0\r\n");
    EXPECT_EQ(std::string(info.szHostPort), std::string(21, 'h'));
    ScanLine("PLAY rtsp://" + std::string(40, 'h') + "/live RTSP/1.0\r\n");
    EXPECT_EQ(std::string(info.szHostPort), std::string(21, 'h'));
}

TEST_F(RequestParser, MajorVersion)
{
    ScanLine("PLAY rtsp://h/live RTSP/1.0\r\n");
    EXPECT_EQ(info.nRtspVersion, 1);
    ScanLine("PLAY rtsp://h/live RTSP/2.0\r\n");
    EXPECT_EQ(info.nRtspVersion, 2);
    ScanLine("PLAY rtsp://h/live RTSP/3.0\r\n");
    EXPECT_EQ(info.nRtspVersion, 0);
    ScanLine("PLAY rtsp://h/live RTSP/");
    EXPECT_EQ(info.nRtspVersion, 0);
}

TEST_F(RequestParser, PathOfTwoBytesOrMore)
{
    ScanLine("PLAY rtsp://h/live RTSP/1.0\r\n");
    EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathFound);
    EXPECT_STREQ(info.szUri, "live");
    ScanLine("PLAY rtsp://h/ab RTSP/1.0\r\n");
    EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathFound);
    for (const char *szLine : {"PLAY rtsp://h/a RTSP/1.0\r\n", "PLAY rtsp://h/ RTSP/1.0\r\n",
                               "PLAY rtsp://h RTSP/1.0\r\n"}) {
        ScanLine(szLine);
        EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathEmpty) << szLine;
        EXPECT_STREQ(info.szUri, "") << szLine;
    }
}

TEST_F(RequestParser, PathIsBoundedByItsField)
{
    ScanLine("PLAY rtsp://h/" + std::string(1025, 'u') + " RTSP/1.0\r\n");
    EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathFound);
    EXPECT_EQ(strlen(info.szUri), 1025u);
    ScanLine("PLAY rtsp://h/" + std::string(1026, 'u') + " RTSP/1.0\r\n");
    EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathTooLong);
}

TEST_F(RequestParser, TrackIdsOfTwoToFourDigits)
{
    const struct {
        const char *szTrack;
        bool bFound;
        int32_t nTrackId;
    } kCases[] = {{"trackID=96", true, 96},
                  {"trackID=123", true, 123},
                  {"trackID=9999", true, 9999},
                  {"trackID=10000", false, 0},
                  {"trackID=1", false, 0},
                  {"trackID=", false, 0},
                  {"", false, 0},
                  {"abcdefgh97", true, 97},
                  {"trackID=x7", true, 0},
                  {"trackID=9x", true, 9}};
    for (const auto &entry : kCases) {
        ScanLine(std::string("SETUP rtsp://h/live/") + entry.szTrack + " RTSP/1.0\r\n");
        EXPECT_EQ(KovaRequestScanTrack(scan.get(), &info), entry.bFound) << entry.szTrack;
        EXPECT_EQ(info.nTrackId, entry.nTrackId) << entry.szTrack;
        EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathFound) << entry.szTrack;
        EXPECT_STREQ(info.szUri, "live") << entry.szTrack;
    }
}

TEST_F(RequestParser, TrackOfAUriWithoutAPath)
{
    ScanLine("SETUP rtsp://h RTSP/1.0\r\n");
    EXPECT_FALSE(KovaRequestScanTrack(scan.get(), &info));
    EXPECT_EQ(KovaRequestScanPath(scan.get(), &info), kPathEmpty);
}

TEST_F(RequestParser, CSeqOfUpToSevenCharacters)
{
    ScanLine("PLAY rtsp://h/live RTSP/1.0\r\nCSeq:\t 1234567\r\n");
    EXPECT_TRUE(KovaRequestScanCSeq(scan.get(), &info));
    EXPECT_STREQ(info.szCSeq, "1234567");
    ScanLine("PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 12345678\r\n");
    EXPECT_FALSE(KovaRequestScanCSeq(scan.get(), &info));
    ScanLine("PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1234567");
    EXPECT_FALSE(KovaRequestScanCSeq(scan.get(), &info));
    EXPECT_STREQ(info.szCSeq, "");
}

TEST_F(RequestParser, SessionEndsAtTheFirstCarriageReturn)
{
    std::string_view id;
    Begin("Session: 1\nX: y\r\n");
    EXPECT_TRUE(KovaRequestScanSession(scan.get(), &id));
    EXPECT_EQ(id, "1\nX: y");
    Begin("Session: 1;timeout=60\n\n");
    EXPECT_TRUE(KovaRequestScanSession(scan.get(), &id));
    EXPECT_EQ(id, "1;timeout=60");
    Begin("Session:1\r\nX: y\r\n");
    EXPECT_TRUE(KovaRequestScanSession(scan.get(), &id));
    EXPECT_EQ(id, "");
    Begin("Session: 1");
    EXPECT_FALSE(KovaRequestScanSession(scan.get(), &id));
    Begin("session: 1\r\n");
    EXPECT_FALSE(KovaRequestScanSession(scan.get(), &id));
}

TEST_F(RequestParser, ParameterNumbers)
{
    const struct {
        const char *szText;
        KovaParameterScan result;
        uint16_t nNumber;
    } kCases[] = {{"client_port=5000-5001", kParameterFound, 5000},
                  {"client_port ;x= 80 -", kParameterFound, 80},
                  {"client_port=-", kParameterFound, 0},
                  {"client_port=abc-", kParameterFound, 0},
                  {"client_port=65536-", kParameterFound, 0},
                  {"client_port=99999-", kParameterFound, 99999 - 65536},
                  {"client_port=123456-", kParameterInvalid, 0},
                  {"client_port=5000", kParameterIncomplete, 0},
                  {"client_port-5000", kParameterIncomplete, 0},
                  {"CLIENT_PORT=1-2", kParameterAbsent, 0}};
    for (const auto &entry : kCases) {
        uint16_t nNumber = 0;
        Begin(entry.szText);
        EXPECT_EQ(KovaRequestScanParameter(scan.get(), "client_port", &nNumber), entry.result)
            << entry.szText;
        EXPECT_EQ(nNumber, entry.nNumber) << entry.szText;
    }
}

TEST_F(RequestParser, LengthIsBounded)
{
    const std::string text(kRequestSize + 100, 'x');
    Begin(text);
    EXPECT_EQ(scan->nLength, static_cast<int32_t>(kRequestSize));
    EXPECT_EQ(strlen(scan->szText), kRequestSize);
    KovaRequestScanBegin(scan.get(), reinterpret_cast<const uint8_t *>(text.data()), -1);
    EXPECT_EQ(scan->nLength, 0);
}

} // namespace
