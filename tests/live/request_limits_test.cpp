#include "tests/live/request_reading.h"
#include "tests/support/c_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// What a reader refuses, with which status, and what it costs.

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

void *NoRealloc(void *, size_t)
{
    return nullptr;
}

/// While it lives no memory is had from realloc().
class NoMemory {
public:
    NoMemory()
    {
        KovaReplaceCall<__real_realloc>(NoRealloc);
    }
    ~NoMemory()
    {
        KovaReplaceCall<__real_realloc>(nullptr);
    }
    NoMemory(const NoMemory &) = delete;
    NoMemory &operator=(const NoMemory &) = delete;
};

std::string WithHeaders(size_t nCount)
{
    std::string text = "PLAY * RTSP/1.0\r\n";
    for (size_t n = 0; n < nCount; n++)
        text += "X-" + std::to_string(n) + ": y\r\n";
    return text;
}

/// A request whose head has nLength bytes.
std::string WithHeadOf(size_t nLength)
{
    const std::string begin = "PLAY * RTSP/1.0\r\nCSeq: 5\r\nX: ";
    return begin + std::string(nLength - begin.size() - 4, 'x') + "\r\n\r\n";
}

std::string WithUrlOf(size_t nLength)
{
    return "PLAY " + std::string(nLength, 'u') + " RTSP/1.0\r\nCSeq: 5\r\n\r\n";
}

std::string WithLength(const std::string &length)
{
    return "PLAY * RTSP/1.0\r\nContent-Length: " + length + "\r\nCSeq: 5\r\n\r\n";
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

TEST(RequestLimits, HttpIsRefusedForGood)
{
    ExpectFatal("GET /cam HTTP/1.0\r\nCSeq: 5\r\nx-sessioncookie: 1\r\n\r\n", 400);
    ExpectFatal("POST /cam http/1.1\r\nCSeq: 5\r\nContent-Length: 32767\r\n\r\n", 400);
    ExpectFatal("HTTP/1.1 200 OK\r\nCSeq: 5\r\n\r\n", 400);
}

TEST(RequestLimits, AHeaderLineThatIsNoneIsABadRequest)
{
    for (const char *szLine : {"nothing", ": value", "two words: value", "a\r\n b: c"})
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
        std::vector<KovaKeptItem> items = KovaReadInPieces(WithHeadOf(16384) + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].kind, kReadRequest);
        // The LF of the last line end, which need not come, is not counted.
        items = KovaReadInPieces(WithHeadOf(16385) + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].kind, kReadRequest);
        items = KovaReadInPieces(WithHeadOf(16386) + kNext, nPiece);
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
        reading.Feed(WithLength("65536") + std::string(65536, 'b'));
        reading.Feed(WithHeadOf(nLength));
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
        ExpectFatal(WithLength(szLength), 400);
}

TEST(RequestLimits, TwoDifferentLengthsEndTheStreamAndTwoEqualOnesDoNot)
{
    ExpectFatal(WithLength("1\r\ncontent-length: 2"), 400);
    ExpectFatal(WithLength("x\r\ncontent-length: 2"), 400);
    ExpectFatal(WithLength("2\r\ncontent-length: x"), 400);
    EXPECT_EQ(KovaReadOne(WithLength("2\r\ncontent-length: 02") + "ab").body, "ab");
}

TEST(RequestLimits, ABodyOf65536BytesIsTakenAndALongerOneEndsTheStreamAtOnce)
{
    const std::string body(65536, 'b');
    for (const size_t nPiece : {size_t{1}, size_t{1000}, size_t{100000}}) {
        const std::vector<KovaKeptItem> items =
            KovaReadInPieces(WithLength("65536") + body + kNext, nPiece);
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[0].body, body);
    }
    for (const char *szLength : {"65537", "4294967296", "18446744073709551616",
                                 "99999999999999999999999999999999999999999999999"})
        ExpectFatal(WithLength(szLength), 413);
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

TEST(RequestLimits, AfterTheEndOfTheStreamTheRestCanStillBeReceived)
{
    KovaReading reading;
    reading.Feed("GET / HTTP/1.0\r\n\r\n");
    ASSERT_EQ(reading.items.size(), 1u);
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    for (int n = 0; n < 100; n++)
        reading.Feed(std::string(5000, 'x') + kNext);
    EXPECT_EQ(reading.items.size(), 1u);
    EXPECT_LE(reading.reader.nCapacity, 4096u);
    KovaRequestReaderRelax(&reading.reader);
    EXPECT_EQ(reading.reader.pBuffer, nullptr);
}

TEST(RequestLimits, AfterTheEndOfTheStreamNothingMoreNeedBeAskedFor)
{
    KovaReading reading;
    reading.Feed("GET / HTTP/1.0\r\n\r\n");
    for (int n = 0; n < 1000; n++) {
        size_t nRoom = 0;
        ASSERT_NE(KovaRequestReaderRoom(&reading.reader, &nRoom), nullptr);
        KovaRequestReaderTook(&reading.reader, nRoom);
        ASSERT_FALSE(KovaRequestReaderBegun(&reading.reader));
    }
    EXPECT_LE(reading.reader.nCapacity, 4096u);
}

TEST(RequestLimits, AnIdleReaderHoldsNoMemory)
{
    KovaReading reading;
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    EXPECT_EQ(reading.reader.pBuffer, nullptr);
    reading.Feed(kNext + "\r\n");
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    KovaRequestReaderRelax(&reading.reader);
    EXPECT_EQ(reading.reader.pBuffer, nullptr);
    reading.Feed(kNext);
    EXPECT_EQ(reading.items.size(), 2u);
}

TEST(RequestLimits, AReaderKeepsWhatIsBegunWhenItRelaxes)
{
    KovaReading reading;
    reading.Feed(kNext + kNext.substr(0, 9));
    EXPECT_TRUE(KovaRequestReaderBegun(&reading.reader));
    KovaRequestReaderRelax(&reading.reader);
    reading.Feed(kNext.substr(9));
    ASSERT_EQ(reading.items.size(), 2u);
    EXPECT_EQ(reading.items[0], reading.items[1]);
}

TEST(RequestLimits, ClearingFreesEverythingAndTheReaderBeginsAnew)
{
    KovaReading reading;
    reading.Feed(kNext.substr(0, 9));
    KovaRequestReaderClear(&reading.reader);
    EXPECT_EQ(reading.reader.pBuffer, nullptr);
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    reading.Feed(kNext);
    EXPECT_EQ(reading.items.size(), 1u);
}

TEST(RequestLimits, HalfARequestCostsAtMost4KibAndTheRoomGrowsWithWhatIsThere)
{
    KovaReading reading;
    const std::string head = WithLength("65536");
    reading.Feed(head);
    EXPECT_LE(reading.reader.nCapacity, 4096u);
    size_t nFed = head.size();
    size_t nCapacity = reading.reader.nCapacity;
    int nGrowths = 0;
    for (; nFed < head.size() + 65535; nFed++) {
        reading.Feed("b");
        ASSERT_LE(reading.reader.nCapacity, std::max<size_t>(2 * nFed + 2, 2048));
        nGrowths += reading.reader.nCapacity != nCapacity ? 1 : 0;
        nCapacity = reading.reader.nCapacity;
    }
    reading.Feed("b");
    EXPECT_EQ(reading.items.size(), 1u);
    // By doubling: what is there is copied as often as it must be, and no more.
    EXPECT_LE(nGrowths, 6);
}

TEST(RequestLimits, WithoutMemoryThereIsNoRoomAndWhatIsThereStays)
{
    KovaReading reading;
    size_t nRoom = 1;
    {
        NoMemory none;
        EXPECT_EQ(KovaRequestReaderRoom(&reading.reader, &nRoom), nullptr);
        EXPECT_EQ(nRoom, 0u);
    }
    const std::string head = WithHeadOf(3000);
    reading.Feed(head.substr(0, 2048));
    {
        NoMemory none;
        EXPECT_EQ(KovaRequestReaderRoom(&reading.reader, &nRoom), nullptr);
        EXPECT_EQ(nRoom, 0u);
    }
    reading.Feed(head.substr(2048));
    EXPECT_EQ(reading.items, KovaReadInPieces(head, 3000));
}

TEST(RequestLimits, ASenderOfSingleBytesCostsNoMoreThanItsBytes)
{
    // Every look at a head begins where the last one stopped.
    KovaReading reading;
    const std::string head = WithHeadOf(16384);
    for (size_t n = 0; n + 4 < head.size(); n++) {
        reading.Feed(head.substr(n, 1));
        ASSERT_EQ(reading.reader.nScanned, n + 1);
    }
}

TEST(RequestLimits, ABodyIsWaitedForWithoutReadingTheHeadAgain)
{
    KovaReading reading;
    reading.Feed(WithLength("10") + "body");
    size_t nRoom = 0;
    uint8_t *pRoom = KovaRequestReaderRoom(&reading.reader, &nRoom);
    ASSERT_NE(pRoom, nullptr);
    *pRoom = '.';
    KovaRequestReaderTook(&reading.reader, 1);
    KovaReadItem item;
    item.request.methodText = "untouched";
    KovaRequestReaderNext(&reading.reader, &item);
    EXPECT_EQ(item.kind, kReadMore);
    EXPECT_EQ(item.request.methodText, "untouched");
}

TEST(RequestLimits, OfPipelinedRequestsOnlyTheUnfinishedOneIsMoved)
{
    KovaReading reading;
    std::string many;
    while (many.size() < 100000)
        many += kNext;
    const size_t nCount = many.size() / kNext.size();
    reading.Feed(many);
    EXPECT_EQ(reading.items.size(), nCount);
    EXPECT_LE(reading.reader.nCapacity, 2048u);
}
