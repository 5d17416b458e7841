#include "classic/rtsp/keep_alive.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/fake_clock.h"

#include <cstring>

namespace {

constexpr int32_t kNow = 1795169472;

class KeepAlive : public ProtocolTest {
protected:
    void SetUp() override
    {
        ProtocolTest::SetUp();
        clock.Fix(kNow * 1000000LL);
        pHandler = server.Handler(client);
        ASSERT_NE(pHandler, nullptr);
    }
    /// Makes a session that the connection remembers, ten seconds before now.
    void Remember()
    {
        ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
        ASSERT_EQ(client.Options("live").nStatus, 200);
        clock.Advance(10 * 1000000);
    }
    int32_t Handle(const std::string &chunk, int32_t nCount)
    {
        return HandleRtspTcpKeepAlive(pHandler, reinterpret_cast<const uint8_t *>(chunk.data()),
                                      nCount);
    }
    int32_t Handle(const std::string &chunk)
    {
        return Handle(chunk, static_cast<int32_t>(chunk.size()));
    }
    bool IsRefreshed()
    {
        return server.Expiry(client.Session()) == kNow + 10 + 60 + 30;
    }

    KovaFakeClock clock;
    KovaRtspServerHandler *pHandler = nullptr;
    const std::string report = KovaReceiverReport(0x01020304);
};

TEST_F(KeepAlive, ReportsRefreshTheSession)
{
    Remember();
    EXPECT_EQ(Handle(report), 14);
    EXPECT_TRUE(IsRefreshed());
    clock.Advance(5 * 1000000);
    EXPECT_EQ(Handle(KovaInterleaved(1, report)), 14);
    EXPECT_EQ(server.Expiry(client.Session()), kNow + 15 + 90);
}

TEST_F(KeepAlive, ReportsWithoutARememberedSessionFallThrough)
{
    EXPECT_EQ(Handle(report), 0);
    EXPECT_EQ(Handle(KovaInterleaved(1, report)), 0);
}

TEST_F(KeepAlive, ReportsOfASessionThatIsGoneAreDropped)
{
    Remember();
    ASSERT_EQ(client.Teardown("live").nStatus, 200);
    EXPECT_EQ(Handle(report), 13);
    EXPECT_EQ(Handle(KovaInterleaved(1, report)), 13);
}

TEST_F(KeepAlive, LengthsOfFrames)
{
    Remember();
    const std::string frame = KovaInterleaved(1, report);
    EXPECT_EQ(Handle(frame, 3), 0);
    EXPECT_EQ(Handle(frame, 4), 13);
    EXPECT_EQ(Handle(frame, 15), 13);
    EXPECT_FALSE(IsRefreshed());
    EXPECT_EQ(Handle(frame, 16), 14);
    EXPECT_TRUE(IsRefreshed());
    EXPECT_EQ(Handle(report, 3), 0);
    EXPECT_EQ(Handle(report, 4), 14);
    EXPECT_EQ(Handle("", 0), 0);
}

TEST_F(KeepAlive, OtherFramesAreDropped)
{
    Remember();
    for (const char *szStart : {"\x80\xc9", "\x82\xc9", "\x81\xc8", "\x81\xca", "\x01\xc9"}) {
        std::string packet = report;
        packet.replace(0, 2, szStart, 2);
        EXPECT_EQ(Handle(KovaInterleaved(1, packet)), 13);
    }
    EXPECT_EQ(Handle("$PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n"), 13);
    EXPECT_FALSE(IsRefreshed());
}

TEST_F(KeepAlive, BareRtcp)
{
    Remember();
    const struct {
        const char *szStart;
        int32_t nResult;
    } kCases[] = {{"\x80\xc8", 13}, {"\x80\xc9", 13}, {"\x80\xca", 13}, {"\x81\xc8", 13},
                  {"\x81\xca", 13}, {"\x80\xcb", 0},  {"\x81\xcb", 0},  {"\x81\xc7", 0},
                  {"\x82\xc9", 0},  {"\x7f\xc9", 0},  {"OP", 0}};
    for (const auto &entry : kCases) {
        std::string packet = report;
        packet.replace(0, 2, entry.szStart, 2);
        EXPECT_EQ(Handle(packet), entry.nResult) << static_cast<int>(packet[1] & 0xff);
    }
    EXPECT_FALSE(IsRefreshed());
}

TEST_F(KeepAlive, NullRules)
{
    const auto *pBytes = reinterpret_cast<const uint8_t *>(report.data());
    EXPECT_EQ(client.Options("live").nStatus, 200); // its thread has seen the server
    EXPECT_EQ(HandleRtspTcpKeepAlive(nullptr, pBytes, 32), 2);
    KovaRtspServer *pServer = pHandler->pServer;
    pHandler->pServer = nullptr;
    EXPECT_EQ(HandleRtspTcpKeepAlive(pHandler, pBytes, 32), 2);
    EXPECT_EQ(HandleRtspTcpKeepAlive(pHandler, pBytes, 1), 2);
    pHandler->pServer = pServer;
}

TEST_F(KeepAlive, ReportOverTheConnectionIsTakenSilently)
{
    Remember();
    ASSERT_TRUE(client.Send(KovaInterleaved(1, report)));
    EXPECT_TRUE(KovaWaitUntil(3000, [&] { return IsRefreshed(); }));
    EXPECT_TRUE(client.IsSilent(50));
}

TEST_F(KeepAlive, ReportBeforeAnyRequestWithASessionIsABadRequest)
{
    capture.Clear();
    EXPECT_EQ(client.Exchange(KovaInterleaved(1, report)).text, k400);
    // The frame's length, 32, reads as the blank behind a method.
    EXPECT_EQ(Printed(), "Not Support Request Command\n");
    capture.Clear();
    EXPECT_EQ(client.Exchange(report).text, k400);
    EXPECT_EQ(Printed(), "Parse Request fail\n");
    // The SETUP that made the session did not carry its id.
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    EXPECT_STREQ(pHandler->szSessionId, "");
    EXPECT_EQ(client.Exchange(KovaInterleaved(1, report)).text, k400);
}

TEST_F(KeepAlive, ConnectionRemembersTheLastSessionThatWasNamed)
{
    Remember();
    const std::string first = client.Session();
    EXPECT_EQ(first, pHandler->szSessionId);
    client.SetSession("");
    ASSERT_EQ(client.SetupTcp("live", 96, 2).nStatus, 200);
    EXPECT_EQ(first, pHandler->szSessionId);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(client.Session(), pHandler->szSessionId);
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", "Session: 99999999999\r\n"), k454);
    EXPECT_EQ(client.Session(), pHandler->szSessionId);
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(client.Session(), pHandler->szSessionId);
}

TEST_F(KeepAlive, RequestBehindAFrameInOneReadIsLost)
{
    Remember();
    ASSERT_TRUE(client.Send(KovaInterleaved(1, report) +
                            "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n"));
    EXPECT_TRUE(KovaWaitUntil(3000, [&] { return IsRefreshed(); }));
    EXPECT_TRUE(client.IsSilent(50));
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
}

TEST_F(KeepAlive, DroppedFramesLeaveTheConnectionInOrder)
{
    ASSERT_TRUE(client.Send(KovaInterleaved(1, std::string("\x80\xc8\0\0", 4))));
    EXPECT_TRUE(client.IsSilent(50));
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
}

} // namespace
