#include "tests/live/request_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// What a reader refuses, and with which status.

using testing::ElementsAre;
using testing::Pair;

namespace {

using namespace std::string_literals;

const std::string kNext = "OPTIONS * RTSP/1.0\r\nCSeq: 99\r\n\r\n";

/// A bad message is told once with its CSeq, 5, and the request behind it is read.
void ExpectBad(const std::string &message, uint16_t nStatus)
{
    const std::vector<KovaKeptItem> items = KovaReadAnyhow(message + kNext);
    ASSERT_EQ(items.size(), 2u) << message.substr(0, 200);
    EXPECT_EQ(items[0].kind, kReadBad);
    EXPECT_EQ(items[0].nStatus, nStatus) << message.substr(0, 200);
    EXPECT_FALSE(items[0].bFatal);
    EXPECT_THAT(items[0].headers, testing::Contains(Pair("CSeq", "5")));
    EXPECT_EQ(items[1], KovaReadOne(kNext));
}

/// The stream ends with this message; what follows is dropped.
void ExpectFatal(const std::string &message, uint16_t nStatus)
{
    const KovaKeptItem item = KovaReadOne(message + kNext);
    EXPECT_EQ(item.kind, kReadBad);
    EXPECT_EQ(item.nStatus, nStatus) << message.substr(0, 200);
    EXPECT_TRUE(item.bFatal);
    EXPECT_THAT(item.headers, testing::Contains(Pair("CSeq", "5")));
}

std::string WithHeaders(size_t nCount)
{
    std::string text = "PLAY * RTSP/1.0\r\n";
    for (size_t n = 0; n < nCount; n++)
        text += "X-" + std::to_string(n) + ": y\r\n";
    return text;
}

std::string WithUrlOf(size_t nLength)
{
    return "PLAY " + std::string(nLength, 'u') + " RTSP/1.0\r\nCSeq: 5\r\n\r\n";
}

} // namespace

TEST(RequestLimits, ARequestLineThatIsNoneIsABadRequest)
{
    for (const char *szLine :
         {"PLAY", "PLAY *", "PLAY RTSP/1.0", "PLAY * RTSP", "PLAY * RTSP/1", "PLAY * RTSP/1.",
          "PLAY * RTSP/.0", "PLAY * RTSP/a.0", "PLAY * RTSP/1.0x", "PLAY * XRTSP/1.0", " ", ":",
          "CSeq: 5", "PLAY * RTSP/1.0 now"})
        ExpectBad(szLine + "\r\nCSeq: 5\r\n\r\n"s, 400);
}

TEST(RequestLimits, ARequestLineCannotBeContinued)
{
    ExpectBad("PLAY * RTSP/1.0\r\n X: y\r\nCSeq: 5\r\n\r\n", 400);
}

TEST(RequestLimits, AnotherVersionIsNotSupported)
{
    for (const char *szVersion : {"RTSP/2.0", "RTSP/1.1", "RTSP/0.9", "RTSP/10.0", "rtsp/2.0"}) {
        ExpectBad("PLAY * "s + szVersion + "\r\nCSeq: 5\r\n\r\n", 505);
        EXPECT_EQ(KovaReadOne("PLAY * "s + szVersion + "\r\n\r\n").version, szVersion);
    }
}

TEST(RequestLimits, OfSeveralFaultsTheFormOfTheLinesComesFirst)
{
    const std::string url(2049, 'u');
    ExpectBad("PLAY * RTSP/2.0\r\nnothing\r\nCSeq: 5\r\n\r\n", 400);
    ExpectBad("PLAY * RTSP/2.0\r\nX: \x01\r\nCSeq: 5\r\n\r\n", 400);
    ExpectBad("PLAY " + url + " RTSP/1.0\r\nnothing\r\nCSeq: 5\r\n\r\n", 400);
    ExpectBad("PLAY " + url + " RTSP/2.0\r\nCSeq: 5\r\n\r\n", 505);
}

TEST(RequestLimits, HttpIsRefusedForGood)
{
    ExpectFatal("GET /cam HTTP/1.0\r\nCSeq: 5\r\nx-sessioncookie: 1\r\n\r\n", 400);
    ExpectFatal("POST /cam http/1.1\r\nCSeq: 5\r\nContent-Length: 32767\r\n\r\n", 400);
    ExpectFatal("HTTP/1.1 200 OK\r\nCSeq: 5\r\n\r\n", 400);
}

TEST(RequestLimits, AHeaderLineThatIsNoneIsABadRequest)
{
    for (const char *szLine :
         {"nothing", ": value", "two words: value", "two\twords: value", "a\r\n b: c"})
        ExpectBad("PLAY * RTSP/1.0\r\nA: b\r\n"s + szLine + "\r\nCSeq: 5\r\n\r\n", 400);
}

TEST(RequestLimits, ControlBytesInAHeadAreABadRequest)
{
    for (int nByte = 0; nByte < 256; nByte++) {
        const std::string byte(1, static_cast<char>(nByte));
        const bool bControl = nByte < 32 || nByte == 127;
        if (byte == "\t" || byte == "\r" || byte == "\n")
            continue;
        if (bControl) {
            ExpectBad("PLAY * RTSP/1.0\r\nX: a" + byte + "\r\nCSeq: 5\r\n\r\n", 400);
            ExpectBad("PLAY *" + byte + "a RTSP/1.0\r\nCSeq: 5\r\n\r\n", 400);
        } else {
            EXPECT_EQ(KovaReadOne("PLAY *" + byte + "a RTSP/1.0\r\nX: a" + byte + "\r\n\r\n").kind,
                      kReadRequest)
                << nByte;
        }
    }
    // A body may hold anything.
    EXPECT_EQ(KovaReadOne("PLAY * RTSP/1.0\r\nContent-Length: 2\r\n\r\n\0\x7F"s).kind,
              kReadRequest);
}

TEST(RequestLimits, UpTo32HeadersAreTaken)
{
    const KovaKeptItem item = KovaReadOne(WithHeaders(32) + "\r\n");
    EXPECT_EQ(item.kind, kReadRequest);
    ASSERT_EQ(item.headers.size(), 32u);
    EXPECT_EQ(item.headers[31].first, "X-31");
}

TEST(RequestLimits, MoreThan32HeadersAreABadRequestThatKeepsItsCSeq)
{
    ExpectBad(WithHeaders(32) + "CSeq: 5\r\n\r\n", 400);
    ExpectBad(WithHeaders(500) + "CSeq: 5\r\n\r\n", 400);
    ExpectBad("PLAY * RTSP/1.0\r\nCSeq: 5\r\n" + WithHeaders(32).substr(17) + "CSeq: 6\r\n\r\n",
              400);
    // The first one counts, be it the last header that has a place or one too many.
    ExpectBad(WithHeaders(31) + "CSeq: 5\r\nCSeq: 6\r\n\r\n", 400);
    ExpectBad(WithHeaders(32) + "CSeq: 5\r\nX: y\r\nCSeq: 6\r\n\r\n", 400);
    // The length of the body counts wherever it stands.
    ExpectBad(WithHeaders(40) + "CSeq: 5\r\nContent-Length: 8\r\n\r\nPLAY\r\n\r\n", 400);
}

TEST(RequestLimits, AUrlOf2048BytesIsTakenAndALongerOneIsTooLong)
{
    EXPECT_EQ(KovaReadOne(WithUrlOf(2048)).kind, kReadRequest);
    ExpectBad(WithUrlOf(2049), 414);
    ExpectBad(WithUrlOf(16000), 414);
}

TEST(RequestLimits, AHeadOf16384BytesIsTakenAndALongerOneEndsTheStream)
{
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{100000}}) {
        std::vector<KovaKeptItem> items =
            KovaReadInPieces(KovaRequestWithHeadOf(16384) + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].kind, kReadRequest);
        // The LF of the last line end, which need not come, is not counted.
        items = KovaReadInPieces(KovaRequestWithHeadOf(16385) + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].kind, kReadRequest);
        items = KovaReadInPieces(KovaRequestWithHeadOf(16386) + kNext, nPiece);
        ASSERT_EQ(items.size(), 1u);
        EXPECT_EQ(items[0].nStatus, 413);
        EXPECT_TRUE(items[0].bFatal);
        EXPECT_EQ(items[0].method, kMethodPlay);
        EXPECT_THAT(items[0].headers, ElementsAre(Pair("CSeq", "5")));
    }
}

TEST(RequestLimits, AHeadThatIsTooLongIsToldByItsLastByteThatFits)
{
    KovaReading reading;
    reading.Feed(std::string(16383, 'x'));
    EXPECT_TRUE(reading.items.empty());
    reading.Feed("x");
    ASSERT_EQ(reading.items.size(), 1u);
    EXPECT_EQ(reading.items[0].nStatus, 413);
    EXPECT_TRUE(reading.items[0].bFatal);
}

TEST(RequestLimits, AHeadThatArrivesInOnePieceHasTheSameLimit)
{
    for (const size_t nLength : {size_t{16385}, size_t{16386}}) {
        KovaReading reading;
        // The body made room for more than a head.
        reading.Feed(KovaRequestWithLength("65536") + std::string(65536, 'b'));
        reading.Feed(KovaRequestWithHeadOf(nLength));
        ASSERT_EQ(reading.items.size(), 2u);
        EXPECT_EQ(reading.items[1].nStatus, nLength == 16385 ? 0 : 413);
        EXPECT_EQ(reading.items[1].bFatal, nLength != 16385);
    }
}

TEST(RequestLimits, AHeadThatIsTooLongIsToldAsTheUrlIfThatIsWhy)
{
    const std::string url = "PLAY rtsp://h/" + std::string(20000, 'u');
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{100000}}) {
        const std::vector<KovaKeptItem> items = KovaReadInPieces(url, nPiece);
        ASSERT_EQ(items.size(), 1u);
        EXPECT_EQ(items[0].nStatus, 414);
        EXPECT_TRUE(items[0].bFatal);
        EXPECT_EQ(items[0].url.size(), 16384u - 5);
    }
}

TEST(RequestLimits, OfAHeadThatIsTooLongOnlyWholeHeadersAreKept)
{
    // The limit falls behind the line end of the second header, which might be continued.
    const std::string begin = "PLAY * RTSP/1.0\r\nCSeq: 5\r\nX: ";
    const std::string head = begin + std::string(16384 - begin.size() - 2, 'x') + "\r\n";
    for (const size_t nPiece : {size_t{1}, size_t{100000}}) {
        const std::vector<KovaKeptItem> items = KovaReadInPieces(head + "Y: z\r\n\r\n", nPiece);
        ASSERT_EQ(items.size(), 1u);
        EXPECT_THAT(items[0].headers, ElementsAre(Pair("CSeq", "5")));
    }
}

TEST(RequestLimits, ALengthThatIsNoNumberEndsTheStream)
{
    for (const char *szLength : {"", "x", "-1", "+1", "1 2", "1,1", "0x10", "1.0"})
        ExpectFatal(KovaRequestWithLength(szLength), 400);
}

TEST(RequestLimits, TwoDifferentLengthsEndTheStreamAndTwoEqualOnesDoNot)
{
    ExpectFatal(KovaRequestWithLength("1\r\ncontent-length: 2"), 400);
    ExpectFatal(KovaRequestWithLength("x\r\ncontent-length: 2"), 400);
    ExpectFatal(KovaRequestWithLength("2\r\ncontent-length: x"), 400);
    EXPECT_EQ(KovaReadOne(KovaRequestWithLength("2\r\ncontent-length: 02") + "ab").body, "ab");
}

TEST(RequestLimits, ABodyOf65536BytesIsTakenAndALongerOneEndsTheStreamAtOnce)
{
    const std::string body(65536, 'b');
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{100000}}) {
        const std::vector<KovaKeptItem> items =
            KovaReadInPieces(KovaRequestWithLength("65536") + body + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].body, body);
    }
    for (const char *szLength : {"65537", "4294967296", "18446744073709551616",
                                 "99999999999999999999999999999999999999999999999"})
        ExpectFatal(KovaRequestWithLength(szLength), 413);
}

TEST(RequestLimits, TheLongestHeadWithTheLongestBodyIsRead)
{
    const std::string begin = "PLAY * RTSP/1.0\r\nContent-Length: 65536\r\nX: ";
    const std::string head = begin + std::string(16385 - begin.size() - 4, 'x') + "\r\n\r\n";
    const std::string body(65536, 'b');
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{100000}}) {
        const std::vector<KovaKeptItem> items = KovaReadInPieces(head + body + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].body, body);
    }
}

TEST(RequestLimits, ABadRequestsBodyIsPassedOver)
{
    ExpectBad("PLAY * RTSP/3.0\r\nCSeq: 5\r\nContent-Length: 8\r\n\r\nPLAY\r\n\r\n", 505);
    ExpectBad("PLAY\r\nCSeq: 5\r\nContent-Length: 8\r\n\r\nPLAY\r\n\r\n", 400);
}

TEST(RequestLimits, AnAnswerWhoseEndIsUnknownEndsTheStream)
{
    ExpectFatal("RTSP/1.0 200 OK\r\nCSeq: 5\r\nContent-Length: x\r\n\r\n", 400);
    ExpectFatal("RTSP/1.0 200 OK\r\nCSeq: 5\r\nContent-Length: 70000\r\n\r\n", 413);
}
