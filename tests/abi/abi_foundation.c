/* Lists, the ring buffer, byte order, time, log and base64. */
#include "abi_test.h"

#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

static void test_lists(void)
{
    int a, b, c;
    KovaList *tail = NULL;
    KovaList *list = KovaListAppend(NULL, &a);
    expect(list && list->data == &a && !list->prev && !list->next, "a list of one");
    expect(KovaListAppend(list, &b) == list, "append keeps the first node");
    expect(KovaListLength(list) == 2, "a list of two");
    expect(KovaListNext(list)->data == &b && KovaListPrevious(list->next) == list, "neighbours");
    expect(KovaListFirst(list->next) == list && KovaListLast(list) == list->next, "both ends");
    KovaList *first = list;
    list = KovaListRemoveLink(list, first);
    expect(list->data == &b && !list->prev && !first->next, "the first node unlinked");
    KovaListFree(first);
    list = KovaListRemove(list, &b);
    expect(list == NULL, "the empty list");

    list = KovaListAppendTail(NULL, &tail, &a);
    expect(tail == list, "the first node is the tail");
    list = KovaListAppendTail(list, &tail, &c);
    expect(tail == list->next && tail->data == &c && tail->prev == list, "the tail moves");
    list = KovaListRemove(KovaListRemove(list, &a), &c);
    expect(list == NULL, "the list emptied");

    KovaList *node = KovaListAlloc();
    expect(node && !node->data && !node->prev && !node->next, "a cleared node");
    KovaListFree(node);
}

static void test_ring(void)
{
    uint8_t block[8], out[8] = {0};
    KovaRingbuffer ring;
    KovaRingbufferInit(&ring, block, 8);
    expect(ring.pBuffer == block && ring.nSize == 8 && ring.nReadPos == 0 && ring.nWritePos == 0,
           "a new ring's fields");
    expect(KovaRingbufferRmpty(&ring) == 1 && KovaRingbufferFree(&ring) == 7, "an empty ring");
    expect(KovaRingbufferWrite(&ring, (const uint8_t *)"abcde", 5) == 5, "write");
    expect(ring.nWritePos == 5 && KovaRingbufferAvail(&ring) == 5, "the write position");
    expect(KovaRingbufferRead(&ring, out, 2) == 2 && memcmp(out, "ab", 2) == 0, "read");
    expect(StreamerRingbufferWrite(&ring, (const uint8_t *)"12345", 5) == -79, "no room");
    expect(StreamerRingbufferWrite(&ring, (const uint8_t *)"1234", 4) == 4, "all the room");
    expect(StreamerRingbufferRead(&ring, out, 8) == 0, "never a part");
    expect(StreamerRingbufferRead(&ring, out, 7) == 7 && memcmp(out, "cde1234", 7) == 0, "all");
    KovaRingbufferWrite(&ring, out, 3);
    expect(KovaRingbufferFlush(&ring) == &ring && ring.nReadPos == ring.nWritePos, "flush");
    expect(KovaRingbufferReset(&ring) == &ring && ring.nWritePos == 0, "reset");
}

static void test_numbers(void)
{
    uint8_t bytes[5] = {9, 9, 9, 9, 9};
    uint32_t value = 0;
    RtspWriteMB(bytes, 0x01020304, 40);
    expect(memcmp(bytes, "\0\1\2\3\4", 5) == 0, "40 bits, most significant first");
    RtspReadMB(bytes + 1, &value, 24);
    expect(value == 0x010203, "24 bits, most significant first");
    RtspWriteLB(bytes, 0xA1B2, 16);
    expect(bytes[0] == 0xB2 && bytes[1] == 0xA1, "16 bits, least significant first");
    RtspReadLB(bytes, &value, 16);
    expect(value == 0xA1B2, "16 bits read back");
}

static void test_time_and_log(void)
{
    struct timeval now;
    uint64_t time = 0;
    gettimeofday(&now, NULL);
    expect(RtspGetTime(&time) == 1, "the time");
    /* 32-bit microseconds, widened with their sign */
    const uint32_t expected = (uint32_t)now.tv_sec * 1000000u + (uint32_t)now.tv_usec;
    expect((uint32_t)time - expected < 5000000u, "the time is near");
    expect((uint32_t)(time >> 32) == ((time & 0x80000000u) ? 0xFFFFFFFFu : 0), "its upper half");
    expect(RtspGetTime(NULL) == 0, "no place for the time");
    expect(Rtsp_DebugLevel == 2, "the level at first");
    RTSP_SetLogLevel(3);
    expect(Rtsp_DebugLevel == 3, "the level set");
    TimeLog(3, "%s, %d, %llu, %.1f\n", "abi_test", -1, 1ull << 40, 0.5);
    TimeLog(4, "%s\n", "FAILED: a line above the level");
}

static void test_base64(void)
{
    char text[16], bytes[16];
    expect(Base64encode_len(4) == 9, "room for a text");
    expect(Base64encode(text, "\xff\0\x10Z", 4) == 9 && strcmp(text, "/wAQWg==") == 0, "encode");
    expect(Base64decode_len(text) >= 5, "room for bytes");
    expect(Base64decode(bytes, text) == 4 && memcmp(bytes, "\xff\0\x10Z", 5) == 0, "decode");
}

void test_foundation(void)
{
    test_lists();
    test_ring();
    test_numbers();
    test_time_and_log();
    test_base64();
}
