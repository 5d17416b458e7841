/*
 * kova_cost - measures what the library costs where it runs:
 *
 *     kova_cost report
 *
 * Writes one figure a line into the report: heap of an idle server, of a stream, of a connection
 * and of a playing client, the packets that wait while players play, and the deepest stack of each
 * kind of thread. Fails when a thread needs more than 64 KiB, and when memory is not given back.
 * The library's log lines go to standard output, at their highest level, because the lines cost
 * stack too.
 */
#include "cost.h"
#include "kova_rtsp_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
    FRAME_MS = 40,
    PICTURE = 20000, /* 4 Mbit/s at 25 pictures a second */
    SOUND = 320,     /* 64 kbit/s */
    MOST_STACK = 64 * 1024
};

static FILE *report;

static void write_heap(const char *name, Heap before, Heap after)
{
    fprintf(report, "heap, %s\t%ld\t%ld\n", name, (long)after.bytes - (long)before.bytes,
            (long)after.blocks - (long)before.blocks);
}

/* ---- The media: right enough for the packers, which do not decode --------------------------- */

static uint8_t picture[PICTURE];
static uint8_t sound[SOUND];
static atomic_int pushing;

static void make_media(void)
{
    static const uint8_t head[] = {0,    0,    0,    1, 0x67, 0x4D, 0x40, 0x1E, 0x95,
                                   0xA0, 0x50, 0x17, 0, 0,    0,    1,    0x68, 0xEE,
                                   0x3C, 0x80, 0,    0, 0,    1,    0x65, 0x88};
    static const uint8_t adts[] = {0xFF, 0xF1, 0x4C, 0x80, SOUND >> 3, (SOUND & 7) << 5 | 0x1F,
                                   0xFC};
    memset(picture, 0xAA, sizeof picture);
    memcpy(picture, head, sizeof head);
    memset(sound, 0x55, sizeof sound);
    memcpy(sound, adts, sizeof adts);
}

/* Milliseconds since the first call, above 0. */
static uint32_t timestamp(void)
{
    static struct timespec start;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (start.tv_sec == 0)
        start = now;
    return (uint32_t)((now.tv_sec - start.tv_sec) * 1000 +
                      (now.tv_nsec - start.tv_nsec) / 1000000) +
           FRAME_MS;
}

void *push_media(void *argument)
{
    while (pushing) {
        const uint32_t at = timestamp();
        KovaRtspServerPushData(argument, KOVA_PAYLOAD_ID_VIDEO, picture, sizeof picture, at);
        KovaRtspServerPushData(argument, KOVA_PAYLOAD_ID_AUDIO, sound, sizeof sound, at);
        pause_ms(FRAME_MS);
    }
    pushing = -1;
    return NULL;
}

/* Pushes for a while, and then waits until everything is sent: packets are held for a second, so
 * memory must be the same for longer than that. */
static void push_for(KovaRtspStreamer *stream, unsigned milliseconds, Player *players, int count)
{
    pthread_t handle;
    size_t bytes = 0;
    pushing = 1;
    require(pthread_create(&handle, NULL, push_media, stream) == 0, "a pushing thread");
    for (unsigned waited = 0, same = 0; same < 1600; waited += 20, same += 20) {
        require(waited < 30000, "packets that are sent");
        pause_ms(20);
        for (int n = 0; n < count; ++n)
            player_drain(&players[n]);
        if (waited >= milliseconds && pushing == 1)
            pushing = 0;
        if (pushing >= 0 || heap_now().bytes != bytes)
            same = 0;
        bytes = heap_now().bytes;
    }
    pthread_join(handle, NULL);
}

/* ---- The course ------------------------------------------------------------------------------ */

static int free_port(void)
{
    struct sockaddr_in address;
    socklen_t size = sizeof address;
    const int handle = socket(AF_INET, SOCK_STREAM, 0);
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    require(bind(handle, (struct sockaddr *)&address, sizeof address) == 0 &&
                getsockname(handle, (struct sockaddr *)&address, &size) == 0,
            "a free port");
    close(handle);
    return ntohs(address.sin_port);
}

static KovaRtspStreamer *add_stream(KovaRtspServer *server, const char *uri)
{
    KovaAudioDescription audio = {64, 48000, 2};
    KovaVideoDescription video = {4000};
    uint32_t id = 0;
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, uri);
    require(stream != NULL, "a stream");
    require(KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id, &audio) == 0 && id == 96 &&
                KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &video) == 0 &&
                id == 97,
            "two payload types");
    return stream;
}

static void play(Player *player, void (*set_up)(Player *, const char *))
{
    char longest[1025];
    memset(longest, 'x', sizeof longest - 1);
    longest[sizeof longest - 1] = '\0';
    player_request(player, "DESCRIBE", "live", "", "200");
    player_request(player, "DESCRIBE", longest, "", "404");
    set_up(player, "live");
    player_request(player, "PLAY", "live", "", "200");
    player_request(player, "GET_PARAMETER", "live", "", "200");
}

/* Threads end and give back a little after the last word of a dialogue. */
static void await_heap(Heap expected, const char *what)
{
    for (unsigned tries = 0; tries < 2000 && heap_now().bytes != expected.bytes; ++tries)
        pause_ms(10);
    require(heap_now().bytes == expected.bytes && heap_now().blocks == expected.blocks, what);
}

static void course(void)
{
    static Player players[2];
    char address[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    const Heap nothing = heap_now();
    KovaRtspServer *server = NULL;
    const int port = free_port();
    require(KovaRtspServerInit(&server, address, (uint32_t)port, 16) == KOVA_OK, "a server");
    RTSP_SetLogLevel(5);
    const Heap idle = heap_now();
    write_heap("idle server", nothing, idle);

    KovaRtspStreamer *stream = add_stream(server, "live");
    const Heap one = heap_now();
    write_heap("stream, rings apart", idle, one);
    fprintf(report, "heap, rings of a stream\t%ld\t2\n", (long)(one.rings - idle.rings));
    add_stream(server, "more");
    write_heap("second stream, rings apart", one, heap_now());

    push_for(stream, 400, NULL, 0);
    const Heap ready = heap_now();
    player_connect(&players[0], port);
    player_request(&players[0], "OPTIONS", "live", "", "200");
    const Heap connected = heap_now();
    write_heap("connection", ready, connected);
    play(&players[0], player_set_up_tcp);
    write_heap("playing client, two tracks, TCP", connected, heap_now());

    player_connect(&players[1], port);
    player_request(&players[1], "OPTIONS", "live", "", "200");
    const Heap second = heap_now();
    play(&players[1], player_set_up_udp);
    const Heap playing = heap_now();
    write_heap("playing client, two tracks, UDP", second, playing);

    heap_forget_peak();
    push_for(stream, 4000, players, 2);
    fprintf(report, "heap, packets waiting, 4 Mbit/s\t%ld\t0\n",
            (long)heap_peak() - (long)playing.bytes);
    await_heap(playing, "the packets' memory given back");

    for (int n = 0; n < 2; ++n) {
        player_request(&players[n], "TEARDOWN", "live", "", "200");
        player_close(&players[n]);
    }
    await_heap(ready, "the players' memory given back");
    require(KovaRtspServerUninit(server) == KOVA_OK, "the shut-down");
    await_heap(nothing, "all memory given back");
    require(heap_now().rings == 0, "the rings given back");
}

int main(int count, char **arguments)
{
    int fits = 1;
    require(count == 2, "the name of a report");
    report = fopen(arguments[1], "w");
    require(report != NULL, "a report");
    make_media();
    course();
    require(threads_ended(), "the end of all threads");
    for (const ThreadKind *kind = thread_kinds; kind->body != NULL; ++kind) {
        require(kind->ended > 0, kind->name);
        fprintf(report, "stack, %s\t%ld\t%u\n", kind->name, (long)kind->stack, kind->ended);
        if (kind->stack > MOST_STACK)
            fits = 0;
    }
    require(fclose(report) == 0, "the report");
    require(fits, "every thread in 64 KiB");
    return 0;
}
