#include "tests/live/request_reading.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <string>

// What a reader holds, and what reading costs.

namespace {

const std::string kNext = "OPTIONS * RTSP/1.0\r\nCSeq: 99\r\n\r\n";

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

/// The block that was freed last.
const void *g_pFreed = nullptr;

void NotingFree(void *pBlock)
{
    if (pBlock != nullptr)
        g_pFreed = pBlock;
    __real_free(pBlock);
}

/// Calls a function of the reader that has to free its buffer.
void ExpectFreed(KovaRequestReader *pReader, void (*pfnCall)(KovaRequestReader *))
{
    const void *pBuffer = pReader->pBuffer;
    ASSERT_NE(pBuffer, nullptr);
    g_pFreed = nullptr;
    KovaReplaceCall<__real_free>(NotingFree);
    pfnCall(pReader);
    KovaReplaceCall<__real_free>(nullptr);
    EXPECT_TRUE(g_pFreed == pBuffer);
    EXPECT_EQ(pReader->pBuffer, nullptr);
}

} // namespace

TEST(RequestMemory, AfterTheEndOfTheStreamTheRestCanStillBeReceived)
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

TEST(RequestMemory, AfterTheEndOfTheStreamNothingMoreNeedBeAskedFor)
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

TEST(RequestMemory, AnIdleReaderHoldsNoMemory)
{
    KovaReading reading;
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    EXPECT_EQ(reading.reader.pBuffer, nullptr);
    reading.Feed(kNext + "\r\n");
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    ExpectFreed(&reading.reader, KovaRequestReaderRelax);
    reading.Feed(kNext);
    EXPECT_EQ(reading.items.size(), 2u);
}

TEST(RequestMemory, AReaderKeepsWhatIsBegunWhenItRelaxes)
{
    KovaReading reading;
    reading.Feed(kNext + kNext.substr(0, 9));
    EXPECT_TRUE(KovaRequestReaderBegun(&reading.reader));
    KovaRequestReaderRelax(&reading.reader);
    reading.Feed(kNext.substr(9));
    ASSERT_EQ(reading.items.size(), 2u);
    EXPECT_EQ(reading.items[0], reading.items[1]);
}

TEST(RequestMemory, ClearingFreesEverythingAndTheReaderBeginsAnew)
{
    KovaReading reading;
    reading.Feed(kNext.substr(0, 9));
    ExpectFreed(&reading.reader, KovaRequestReaderClear);
    EXPECT_FALSE(KovaRequestReaderBegun(&reading.reader));
    reading.Feed(kNext);
    EXPECT_EQ(reading.items.size(), 1u);
}

TEST(RequestMemory, HalfARequestCostsAtMost4KibAndTheRoomGrowsWithWhatIsThere)
{
    KovaReading reading;
    const std::string head = KovaRequestWithLength("65536");
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

TEST(RequestMemory, TheLongestRequestHasRoomForItselfAndNoMore)
{
    KovaReading reading;
    const std::string begin = "PLAY * RTSP/1.0\r\nContent-Length: 65536\r\nX: ";
    reading.Feed(begin + std::string(16385 - begin.size() - 4, 'x') + "\r\n\r\n");
    reading.Feed(std::string(65535, 'b'));
    EXPECT_TRUE(reading.items.empty());
    EXPECT_EQ(reading.reader.nCapacity, 16385u + 65536u);
    reading.Feed("b");
    EXPECT_EQ(reading.items.size(), 1u);
}

TEST(RequestMemory, WithoutMemoryThereIsNoRoomAndWhatIsThereStays)
{
    KovaReading reading;
    size_t nRoom = 1;
    {
        NoMemory none;
        EXPECT_EQ(KovaRequestReaderRoom(&reading.reader, &nRoom), nullptr);
        EXPECT_EQ(nRoom, 0u);
    }
    const std::string head = KovaRequestWithHeadOf(3000);
    reading.Feed(head.substr(0, 2048));
    {
        NoMemory none;
        EXPECT_EQ(KovaRequestReaderRoom(&reading.reader, &nRoom), nullptr);
        EXPECT_EQ(nRoom, 0u);
    }
    reading.Feed(head.substr(2048));
    EXPECT_EQ(reading.items, KovaReadInPieces(head, 3000));
}

TEST(RequestMemory, ASenderOfSingleBytesCostsNoMoreThanItsBytes)
{
    // Every look at a head begins where the last one stopped.
    KovaReading reading;
    const std::string head = KovaRequestWithHeadOf(16384);
    for (size_t n = 0; n + 4 < head.size(); n++) {
        reading.Feed(head.substr(n, 1));
        ASSERT_EQ(reading.reader.nScanned, n + 1);
    }
}

TEST(RequestMemory, ABodyIsWaitedForWithoutReadingTheHeadAgain)
{
    KovaReading reading;
    reading.Feed(KovaRequestWithLength("10") + "body");
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

TEST(RequestMemory, OfPipelinedRequestsOnlyTheUnfinishedOneIsMoved)
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
