#include "classic/rtsp/transport.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(Transport, HoldsTheElevenValuesInOrder)
{
    KovaRtspTransport *pTransport =
        KovaRtspTransportCreate(0xFFFFFFFF, 2, 3, 65535, 5, 6, 7, 8, 9, 10, 0x80000000);
    ASSERT_NE(pTransport, nullptr);
    const uint32_t nWords[] = {0xFFFFFFFF, 2, 3};
    const uint16_t nPorts[] = {65535, 5, 6, 7};
    const uint32_t nMore[] = {8, 9, 10, 0x80000000};
    const auto *pBytes = reinterpret_cast<const uint8_t *>(pTransport);
    EXPECT_EQ(sizeof(KovaRtspTransport), 36u);
    EXPECT_EQ(memcmp(pBytes, nWords, sizeof(nWords)), 0);
    EXPECT_EQ(memcmp(pBytes + 12, nPorts, sizeof(nPorts)), 0);
    EXPECT_EQ(memcmp(pBytes + 20, nMore, sizeof(nMore)), 0);
    KovaRtspTransportDestroy(pTransport);
}

TEST(Transport, NullIsIgnoredAndShortageGivesNone)
{
    KovaRtspTransportDestroy(nullptr);
    KovaRtspTransport *pTransport = nullptr;
    {
        const KovaFailingHeap heap;
        pTransport = KovaRtspTransportCreate(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    }
    EXPECT_EQ(pTransport, nullptr);
}

} // namespace
