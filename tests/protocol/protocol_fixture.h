#pragma once

#include "tests/support/own_network.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <string>

/// A server without service threads, a stream "live" and one player.
class ProtocolTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.IsUp());
        ASSERT_NE(server.Stream(), nullptr);
        ASSERT_TRUE(server.Connect(&client));
        capture.Clear();
    }

    /// The response to a request on a stream: its line, CSeq 1, further lines.
    std::string Answer(const std::string &line, const std::string &lines = {})
    {
        capture.Clear();
        return client.Exchange(line + "\r\nCSeq: 1\r\n" + lines + "\r\n").text;
    }

    /// What was printed since the last request.
    std::string Printed()
    {
        return capture.Text();
    }

    int32_t ClientCount() const
    {
        return server.Stream()->nClientCount.load();
    }

    KovaStdoutCapture capture;
    KovaTestServer server{{"live", 64, false}};
    KovaRtspTestClient client;
};

inline const std::string k400 = "RTSP/1.0 400 Bad Request\r\n\r\n";
inline const std::string k403 = "RTSP/1.0 403 Forbidden\r\n\r\n";
inline const std::string k404 = "RTSP/1.0 404 Not Found\r\n\r\n";
inline const std::string k454 = "RTSP/1.0 454 Session Not Found\r\n\r\n";
inline const std::string kOptionsAnswer =
    "RTSP/1.0 200 OK\r\nCSeq: 1\r\nPublic: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n";
