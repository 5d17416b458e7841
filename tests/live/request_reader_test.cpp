#include "tests/live/request_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// Reading requests as RFC 2326 has them, sections 4 to 7. Each text is read whole, cut in two at
// every byte, and byte by byte.

using testing::ElementsAre;
using testing::Pair;

namespace {

using namespace std::string_literals;

const std::string kOptions = "OPTIONS rtsp://h/cam RTSP/1.0\r\nCSeq: 1\r\n\r\n";

std::string Frame(uint8_t nChannel, const std::string &bytes)
{
    std::string frame = "$";
    frame += static_cast<char>(nChannel);
    frame += static_cast<char>(bytes.size() >> 8);
    frame += static_cast<char>(bytes.size() & 0xFF);
    return frame + bytes;
}

} // namespace

TEST(RequestReader, AHeadIsMethodUrlVersionAndHeaders)
{
    const KovaKeptItem item = KovaReadOne(
        "DESCRIBE rtsp://10.0.0.1:554/cam RTSP/1.0\r\nCSeq: 2\r\nAccept: application/sdp\r\n\r\n");
    EXPECT_EQ(item.kind, kReadRequest);
    EXPECT_FALSE(item.bFatal);
    EXPECT_EQ(item.nStatus, 0);
    EXPECT_EQ(item.method, kMethodDescribe);
    EXPECT_EQ(item.methodText, "DESCRIBE");
    EXPECT_EQ(item.url, "rtsp://10.0.0.1:554/cam");
    EXPECT_EQ(item.version, "RTSP/1.0");
    EXPECT_THAT(item.headers, ElementsAre(Pair("CSeq", "2"), Pair("Accept", "application/sdp")));
    EXPECT_EQ(item.body, "");
}

TEST(RequestReader, EveryMethodOfTheRfcIsKnownAndOthersAreNot)
{
    const std::pair<const char *, KovaMethod> methods[] = {
        {"OPTIONS", kMethodOptions},
        {"DESCRIBE", kMethodDescribe},
        {"SETUP", kMethodSetup},
        {"PLAY", kMethodPlay},
        {"PAUSE", kMethodPause},
        {"TEARDOWN", kMethodTeardown},
        {"GET_PARAMETER", kMethodGetParameter},
        {"SET_PARAMETER", kMethodSetParameter},
        {"ANNOUNCE", kMethodAnnounce},
        {"RECORD", kMethodRecord},
        {"REDIRECT", kMethodRedirect},
        {"GET", kMethodUnknown},
        {"PLAYS", kMethodUnknown},
        {"PLA", kMethodUnknown},
        // Methods are case-sensitive (6.1).
        {"play", kMethodUnknown},
    };
    for (const auto &method : methods) {
        const KovaKeptItem item = KovaReadOne(method.first + " * RTSP/1.0\r\nCSeq: 1\r\n\r\n"s);
        EXPECT_EQ(item.kind, kReadRequest) << method.first;
        EXPECT_EQ(item.method, method.second) << method.first;
        EXPECT_EQ(item.methodText, method.first);
    }
}

TEST(RequestReader, LinesEndByCrLfOrLfOrCrAlsoMixed)
{
    const KovaKeptItem expected = KovaReadOne(kOptions);
    const char *const szEnds[] = {"\r\n", "\n", "\r"};
    for (const char *szFirst : szEnds)
        for (const char *szSecond : szEnds)
            for (const char *szLast : szEnds) {
                // CR LF is one line end, so an empty line behind a CR cannot end by LF alone.
                if (szSecond == "\r"s && szLast == "\n"s)
                    continue;
                const std::string text =
                    "OPTIONS rtsp://h/cam RTSP/1.0"s + szFirst + "CSeq: 1" + szSecond + szLast;
                EXPECT_EQ(KovaReadOne(text), expected) << testing::PrintToString(text);
                EXPECT_EQ(KovaReadAnyhow(text + text + kOptions),
                          std::vector<KovaKeptItem>(3, expected))
                    << testing::PrintToString(text);
            }
}

TEST(RequestReader, ARequestThatEndsByBareCrsIsReadWithoutWaitingForAnLf)
{
    KovaReading reading;
    reading.Feed("OPTIONS * RTSP/1.0\rCSeq: 1\r\r");
    ASSERT_EQ(reading.items.size(), 1u);
    EXPECT_EQ(reading.items[0].kind, kReadRequest);
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    // The LF comes later after all: it begins nothing.
    reading.Feed("\n");
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    EXPECT_EQ(reading.items.size(), 1u);
}

TEST(RequestReader, TheLfOfTheHeadsLastLineIsNoBody)
{
    for (const char *szEnd : {"\r\n", "\r", "\n"}) {
        const std::string end = szEnd;
        const KovaKeptItem item = KovaReadOne("SET_PARAMETER * RTSP/1.0" + end + "CSeq: 1" + end +
                                              "Content-Length: 4" + end + end + "ab\r\n");
        EXPECT_EQ(item.kind, kReadRequest);
        EXPECT_EQ(item.body, "ab\r\n");
    }
}

TEST(RequestReader, ABodyMayBeginWithAnLf)
{
    // Behind an LF or a CRLF that ended the head; behind a bare CR it would be that line's.
    for (const char *szEnd : {"\r\n", "\n"}) {
        const std::string end = szEnd;
        const KovaKeptItem item = KovaReadOne("SET_PARAMETER * RTSP/1.0" + end +
                                              "Content-Length: 4" + end + end + "\n\nab");
        EXPECT_EQ(item.kind, kReadRequest);
        EXPECT_EQ(item.body, "\n\nab");
    }
}

TEST(RequestReader, EmptyLinesBeforeARequestDoNotCount)
{
    const KovaKeptItem expected = KovaReadOne(kOptions);
    EXPECT_EQ(KovaReadOne("\r\n\r\n\n\r\r" + kOptions), expected);
    EXPECT_EQ(KovaReadAnyhow(kOptions + "\r\n\r\n" + kOptions),
              std::vector<KovaKeptItem>(2, expected));
}

TEST(RequestReader, FoldedLinesAreOneValueWithABlankForEachFold)
{
    const KovaKeptItem item = KovaReadOne("PLAY * RTSP/1.0\r\n"
                                          "CSeq:\r\n 1\r\n"
                                          "Range: npt=0-  \r\n\t  ;time=1\n \t more\r\n"
                                          "Last: a\r b\r\n"
                                          "\r\n");
    EXPECT_EQ(item.kind, kReadRequest);
    EXPECT_THAT(item.headers, ElementsAre(Pair("CSeq", "1"), Pair("Range", "npt=0- ;time=1 more"),
                                          Pair("Last", "a b")));
}

TEST(RequestReader, FoldsSurviveWaitingForABody)
{
    const KovaKeptItem item = KovaReadOne("SET_PARAMETER * RTSP/1.0\r\nContent-Length:\r\n 3\r\n"
                                          "X: a\r\n b\r\n c\r\n\r\nxyz");
    EXPECT_THAT(item.headers, ElementsAre(Pair("Content-Length", "3"), Pair("X", "a b c")));
    EXPECT_EQ(item.body, "xyz");
}

TEST(RequestReader, ALineOfBlanksContinuesAHeaderByNothing)
{
    const KovaKeptItem item = KovaReadOne("PLAY * RTSP/1.0\r\nA: b\r\n \t\r\nCSeq: 4\r\n\r\n");
    EXPECT_THAT(item.headers, ElementsAre(Pair("A", "b"), Pair("CSeq", "4")));
}

TEST(RequestReader, BlanksAroundNamesAndValuesDoNotCount)
{
    const KovaKeptItem item =
        KovaReadOne("  PLAY \t rtsp://h/a \t RTSP/1.0 \r\nCSeq \t:\t 7 \t\r\nEmpty:\r\n\r\n");
    EXPECT_EQ(item.kind, kReadRequest);
    EXPECT_EQ(item.method, kMethodPlay);
    EXPECT_EQ(item.url, "rtsp://h/a");
    EXPECT_EQ(item.version, "RTSP/1.0");
    EXPECT_THAT(item.headers, ElementsAre(Pair("CSeq", "7"), Pair("Empty", "")));
}

TEST(RequestReader, AUrlMayHoldBlanksThatAPlayerDidNotEscape)
{
    EXPECT_EQ(KovaReadOne("PLAY rtsp://h/my front door RTSP/1.0\r\n\r\n").url,
              "rtsp://h/my front door");
}

TEST(RequestReader, AVersionIsReadInAnyCase)
{
    EXPECT_EQ(KovaReadOne("PLAY * rtsp/1.0\r\n\r\n").kind, kReadRequest);
}

TEST(RequestReader, HeadersAreFoundInAnyCaseAndTheFirstCounts)
{
    KovaRequest request = {};
    request.nHeaders = 3;
    request.headers[0] = {"cSEQ", "1"};
    request.headers[1] = {"Session", ""};
    request.headers[2] = {"CSeq", "2"};
    EXPECT_EQ(KovaRequestHeaderOf(request, "CSeq"), "1");
    EXPECT_NE(KovaRequestHeaderOf(request, "SESSION").data(), nullptr);
    EXPECT_EQ(KovaRequestHeaderOf(request, "SESSION"), "");
    EXPECT_EQ(KovaRequestHeaderOf(request, "Sessio").data(), nullptr);
    EXPECT_EQ(KovaRequestHeaderOf(request, "[session").data(), nullptr);
}

TEST(RequestReader, ABodyIsAsLongAsContentLengthSays)
{
    const std::vector<KovaKeptItem> items =
        KovaReadAnyhow("SET_PARAMETER rtsp://h/a RTSP/1.0\r\nCSeq: 3\r\ncontent-LENGTH: 12\r\n\r\n"
                       "OPTIONS\r\n\r\n$" +
                       kOptions);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].body, "OPTIONS\r\n\r\n$");
    EXPECT_EQ(items[1], KovaReadOne(kOptions));
}

TEST(RequestReader, SeveralRequestsMayCrowdIntoOnePiece)
{
    const KovaKeptItem expected = KovaReadOne(kOptions);
    EXPECT_EQ(KovaReadAnyhow(kOptions + kOptions + kOptions),
              std::vector<KovaKeptItem>(3, expected));
}

TEST(RequestReader, InterleavedFramesStandBeforeBetweenAndBehindRequests)
{
    const std::string report = "\x81\xC9\0\x07\r\n\r\n$"s;
    const std::vector<KovaKeptItem> items =
        KovaReadAnyhow(Frame(1, report) + Frame(255, "") + kOptions + Frame(3, report) + "\r\n" +
                       kOptions + Frame(0, std::string(700, '\n')));
    ASSERT_EQ(items.size(), 6u);
    EXPECT_EQ(items[0].kind, kReadFrame);
    EXPECT_EQ(items[0].nChannel, 1);
    EXPECT_EQ(items[0].frame, report);
    EXPECT_EQ(items[1].kind, kReadFrame);
    EXPECT_EQ(items[1].nChannel, 255);
    EXPECT_EQ(items[1].frame, "");
    EXPECT_EQ(items[2], KovaReadOne(kOptions));
    EXPECT_EQ(items[3].nChannel, 3);
    EXPECT_EQ(items[3].frame, report);
    EXPECT_EQ(items[4], KovaReadOne(kOptions));
    EXPECT_EQ(items[5].frame, std::string(700, '\n'));
}

TEST(RequestReader, AFrameIsToldByItsLastByte)
{
    KovaReading reading;
    reading.Feed(Frame(2, ""));
    ASSERT_EQ(reading.items.size(), 1u);
    EXPECT_EQ(reading.items[0].kind, kReadFrame);
    EXPECT_EQ(reading.items[0].nChannel, 2);
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    reading.Feed(Frame(3, "xy"));
    ASSERT_EQ(reading.items.size(), 2u);
    EXPECT_EQ(reading.items[1].frame, "xy");
}

TEST(RequestReader, TheLongestFrameIsRead)
{
    const std::string bytes(65535, 'x');
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{70000}}) {
        const std::vector<KovaKeptItem> items =
            KovaReadInPieces(Frame(2, bytes) + kOptions, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].frame, bytes);
    }
}

TEST(RequestReader, AnswersOfThePlayerArePassedOver)
{
    const std::vector<KovaKeptItem> items = KovaReadAnyhow(
        "RTSP/1.0 200 OK\r\nCSeq: 9\r\nContent-Length: 6\r\n\r\nPLAY *" + kOptions +
        "RTSP/1.0 454 Session Not Found\r\nCSeq: 9\r\n\r\nrtsp/2.0 200\r\n\r\n" + kOptions);
    EXPECT_EQ(items, std::vector<KovaKeptItem>(2, KovaReadOne(kOptions)));
}
