/*
 * kova_live_camera - serves the H.264 that an encoder writes to standard input, as it comes.
 *
 *     encoder | kova_live_camera [port]       play rtsp://<this machine>:<port>/camera
 *     ffmpeg -v error -re -i film.mp4 -an -c:v libx264 -pix_fmt yuv420p -bf 0 -g 50 -f h264 - |
 *         kova_live_camera 8554
 *
 * Pictures have the time at which they come, so the encoder must not use B pictures: those come
 * later than they are shown, and only the encoder knows when.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "kova_live.h"

static void check(const char *what, int32_t result)
{
    if (result >= 0)
        return;
    fprintf(stderr, "kova_live_camera: %s: %s\n", what, KovaLiveErrorText(result));
    exit(1);
}

static void on_event(void *context, const KovaLiveEvent *event)
{
    (void)context;
    if (event->type == KOVA_LIVE_EVENT_PLAYER_CAME || event->type == KOVA_LIVE_EVENT_PLAYER_WENT)
        printf("%s:%u %s\n", event->address, event->port,
               event->type == KOVA_LIVE_EVENT_PLAYER_CAME ? "came" : "went");
    /* KOVA_LIVE_EVENT_KEY_FRAME: the place to ask a real encoder for one. */
}

static int64_t now_us(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

/* Where the next access unit begins behind `from`: at a delimiter, a parameter set, SEI, or the
 * first slice of a picture, once a slice has been seen. 0: not in these bytes. */
static size_t next_unit(const unsigned char *data, size_t size)
{
    int slice = 0;
    for (size_t at = 0; at + 5 < size; at++) {
        if (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 1)
            continue;
        const int type = data[at + 3] & 31, first = data[at + 4] & 128;
        const int coded = type == 1 || type == 5;
        if (slice && ((type >= 6 && type <= 9) || (coded && first)))
            return at != 0 && data[at - 1] == 0 ? at - 1 : at;
        slice = slice || coded;
    }
    return 0;
}

int main(int argc, char **argv)
{
    KovaLiveConfig config;
    KovaLiveTrackConfig track;
    KovaLive *live;
    KovaLiveStream *stream;
    KovaLiveTrack *video;
    setvbuf(stdout, NULL, _IOLBF, 0); /* who comes and goes is told at once, also to a file */
    KovaLiveConfigInit(&config, sizeof(config));
    config.port = (uint16_t)(argc > 1 ? strtol(argv[1], NULL, 10) : 8554);
    config.on_event = on_event;
    check("open", KovaLiveOpen(&config, &live));
    check("stream", KovaLiveAddStream(live, "camera", NULL, &stream));
    KovaLiveTrackConfigInit(&track, sizeof(track));
    track.codec = KOVA_LIVE_H264;
    check("track", KovaLiveAddTrack(stream, &track, &video));

    static unsigned char buffer[8 << 20];
    size_t size = 0;
    ssize_t count;
    while ((count = read(STDIN_FILENO, buffer + size, sizeof(buffer) - size)) > 0) {
        size += (size_t)count;
        size_t end;
        while ((end = next_unit(buffer, size)) != 0 || size == sizeof(buffer)) {
            end = end ? end : size; /* no picture is so large: begin anew */
            KovaLivePush(video, buffer, end, now_us());
            memmove(buffer, buffer + end, size -= end);
        }
    }
    KovaLiveClose(live);
    return 0;
}
