#include "tests/protocol/protocol_fixture.h"

namespace {

struct Refusal {
    const char *szName;
    std::string request;
    std::string response;
    std::string printed;
};

const std::string kParseRequest = "Parse Request fail\n";
const std::string kNotSupported = "Not Support Request Command\n";
const std::string kHostPort = "Parse HostPort fail\n";
const std::string kCSeqFail = "Parse CSeq fail\n";

class Refusals : public ProtocolTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(Refusals, StatusLineAloneAndItsMessage)
{
    capture.Clear();
    EXPECT_EQ(client.Exchange(GetParam().request).text, GetParam().response);
    EXPECT_EQ(Printed(), GetParam().printed);
    // The connection stays up.
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
}

const std::string kEnd = "\r\nCSeq: 1\r\n\r\n";

INSTANTIATE_TEST_SUITE_P(
    Requests, Refusals,
    ::testing::Values(
        Refusal{"NoBlankAtAll", "OPTIONS", k400, kParseRequest},
        Refusal{"OneByte", "x", k400, kParseRequest},
        Refusal{"MethodOf32", std::string(32, 'M') + " rtsp://h/live RTSP/1.0" + kEnd, k400,
                kParseRequest},
        Refusal{"SupportedMethodOf32",
                "OPTIONS" + std::string(25, 'M') + " rtsp://h/live RTSP/1.0" + kEnd, k400,
                kParseRequest},
        Refusal{"MethodOf31", std::string(31, 'M') + " rtsp://h/live RTSP/1.0" + kEnd, k400,
                kNotSupported},
        Refusal{"EmptyMethod", " rtsp://h/live RTSP/1.0" + kEnd, k400, kNotSupported},
        Refusal{"LowerCaseMethod", "options rtsp://h/live RTSP/1.0" + kEnd, k400, kNotSupported},
        Refusal{"OtherMethod", "PAUSE rtsp://h/live RTSP/1.0" + kEnd, k400, kNotSupported},
        Refusal{"AbbreviatedMethod", "OPTION rtsp://h/live RTSP/1.0" + kEnd, k400, kNotSupported},
        Refusal{"NoUri", "OPTIONS RTSP/1.0" + kEnd, k400, kHostPort},
        Refusal{"NoSlashBehindColon", "OPTIONS rtsp:live RTSP/1.0" + kEnd, k400, kHostPort},
        Refusal{"OtherScheme", "OPTIONS http://h/live RTSP/1.0" + kEnd, k400, kHostPort},
        Refusal{"MethodAlone", "OPTIONS ", k400, kHostPort},
        Refusal{"SchemeTooNearTheEnd", "OPTIONS rtsp://", k400, kHostPort},
        Refusal{"NoVersion", "OPTIONS rtsp://h/live" + kEnd, k400, kCSeqFail},
        Refusal{"LowerCaseVersion", "OPTIONS rtsp://h/live rtsp/1.0" + kEnd, k400, kCSeqFail},
        Refusal{"NoCSeq", "OPTIONS rtsp://h/live RTSP/1.0\r\n\r\n", k400, kCSeqFail},
        Refusal{"LowerCaseCSeq", "OPTIONS rtsp://h/live RTSP/1.0\r\ncseq: 1\r\n\r\n", k400,
                kCSeqFail},
        Refusal{"CSeqWithBlankBeforeColon", "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq : 1\r\n\r\n",
                k400, kCSeqFail},
        Refusal{"CSeqOf8", "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 12345678\r\n\r\n", k400,
                kCSeqFail},
        Refusal{"CSeqUnended", "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1", k400, kCSeqFail},
        Refusal{"CSeqWithNothingBehind", "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq:", k400,
                kCSeqFail},
        Refusal{"CSeqBeforeTheVersionOnly", "OPTIONS rtsp://h/live\r\nCSeq: 1\r\n RTSP/1.0\r\n",
                k404, "Can't find Uri !!!\n"},
        Refusal{"UnknownStream", "PLAY rtsp://h/nope RTSP/1.0" + kEnd, k404,
                "Can't find Uri !!!\n"},
        Refusal{"PrefixOfAStream", "PLAY rtsp://h/liv RTSP/1.0" + kEnd, k404,
                "Can't find Uri !!!\n"},
        Refusal{"Query", "PLAY rtsp://h/live?a=b RTSP/1.0" + kEnd, k404, "Can't find Uri !!!\n"},
        Refusal{"UnknownSession", "PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: 123\r\n\r\n",
                k454, "Session Id: 123\n"},
        Refusal{"LongSession",
                "PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: " + std::string(3000, '1') +
                    "\r\n\r\n",
                k454, "Session Id: " + std::string(3000, '1') + "\n"},
        Refusal{"SessionWithoutBlank",
                "PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession:12345678901\r\nX: y\r\n\r\n",
                k454, "Session Id: \n"},
        Refusal{"SessionWithFormat",
                "PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: %n%s%n%s\r\n\r\n", k454,
                "Session Id: %n%s%n%s\n"},
        Refusal{"SessionWithLinesOfItsOwn",
                "PLAY rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: 1\n2026/01/01 00:00:00 "
                "KovaRtspStreamerPushData, Video Overflow !!!\n\x1b[2J\t\x7f\xc3\xa9" +
                    std::string(3000, '\n') + "end\r\n\r\n",
                k454,
                "Session Id: 1?2026/01/01 00:00:00 KovaRtspStreamerPushData, Video Overflow !!!?"
                "?[2J??\xc3\xa9" +
                    std::string(3000, '?') + "end\n"},
        Refusal{"BareNumbers", std::string("\x80\xcb\x00\x00 \r\n\r\n", 9), k400, kNotSupported}),
    [](const auto &test) { return test.param.szName; });

} // namespace
