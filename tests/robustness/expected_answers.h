#pragma once

#include "tests/robustness/process_state.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

inline const std::string kBadRequest = "RTSP/1.0 400 Bad Request\r\n\r\n";
inline const std::string kNotFound = "RTSP/1.0 404 Not Found\r\n\r\n";
inline const std::string kSessionNotFound = "RTSP/1.0 454 Session Not Found\r\n\r\n";

/// A server without service threads, whose stream "live" has had no media: every
/// answer is known to the byte.
class ExpectedAnswers : public ::testing::Test {
protected:
    void SetUp() override
    {
        nDescriptors = KovaDescriptorCount();
        server = std::make_unique<KovaTestServer>(KovaTestServerOptions{"live", 1000, false});
        ASSERT_NE(server->Stream(), nullptr);
    }

    /// The answer to a method's request; of SETUP, that for track 97 on channels
    /// 4 and 5. Without a session (empty), the digits of a new one are '#'.
    std::string Answer(const std::string &method, const std::string &cseq,
                       const std::string &session) const
    {
        const std::string head = "RTSP/1.0 200 OK\r\nCSeq: " + cseq + "\r\n";
        const std::string cache = "Cache-Control: no-cache\r\n";
        const std::string software = "Server: Brisklane/1.0.0.1\r\n";
        if (method == "OPTIONS")
            return head + "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n";
        if (method == "DESCRIBE")
            return head + software + cache +
                   "Content-Type: application/sdp\r\nContent-Length: 0\r\n\r\n";
        if (method == "SETUP")
            return head + software + cache +
                   "Transport: RTP/AVP/TCP;unicast;destination=127.0.0.1;source=127.0.0.1;"
                   "interleaved=4-5;ssrc=" +
                   std::to_string(server->Ssrc(97)) + "\r\n" +
                   SessionLine(session.empty() ? "###########" : session);
        if (method == "PLAY")
            return head + cache + (session.empty() ? std::string() : RtpInfo()) +
                   SessionLine(session);
        if (method == "GET_PARAMETER")
            return head + cache + SessionLine(session);
        return head + cache + "\r\n";
    }

    /// The answer with the digits of a session that was not known before as '#'.
    static std::string Masked(std::string text, const std::string &session)
    {
        const std::string key = "\r\nSession: ";
        const size_t nAt = text.find(key);
        if (!session.empty() || nAt == std::string::npos)
            return text;
        for (size_t i = nAt + key.size(); i < text.size() && text[i] >= '0' && text[i] <= '9'; i++)
            text[i] = '#';
        return text;
    }

    /// With the server gone, so is everything that requests have opened.
    void ExpectNothingLeft()
    {
        EXPECT_TRUE(server->WaitHandlers(0, 5000));
        server.reset();
        EXPECT_EQ(KovaDescriptorCount(), nDescriptors);
    }

    KovaStdoutCapture capture;
    std::unique_ptr<KovaTestServer> server;
    int nDescriptors = 0;

private:
    static std::string SessionLine(const std::string &session)
    {
        return "Session: " + session + ";timeout=60\r\n\r\n";
    }
    std::string RtpInfo() const
    {
        return "RTP-Info: url=rtsp://127.0.0.1:" + std::to_string(server->Port()) +
               "/live/trackID=97;seq=0;rtptime=0\r\n";
    }
};
