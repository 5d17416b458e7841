/*
 * kova_minimal_host - streams one H.264 and one AAC file, looped, in real time.
 *
 *     kova_minimal_host [-p port] [-u uri] [-r fps] [-s seconds] clip.h264 clip.aac
 *
 * All that a host has to do stands in main and what it calls last; the first
 * half of the file prepares the two clips.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "kova_rtsp_server.h"

/* A file in memory and the access units in it: unit i is offset[i] to offset[i + 1]. */
typedef struct Clip {
    uint8_t *data;
    uint32_t size;
    uint32_t *offset;
    uint32_t count;
} Clip;

static Clip video, audio;
static volatile sig_atomic_t g_stop;

static void on_signal(int number) {
    (void)number;
    g_stop = 1;
}

static void fail(const char *what, const char *why) {
    fprintf(stderr, "kova_minimal_host: %s: %s\n", what, why);
    exit(1);
}

static void load(Clip *clip, const char *path) {
    FILE *file = fopen(path, "rb");
    long size = -1;
    if (file && fseek(file, 0, SEEK_END) == 0)
        size = ftell(file);
    if (!file || size < 0)
        fail(path, strerror(errno));
    if (size == 0 || size > 0x40000000)
        fail(path, "empty, or too large to be held in memory");
    rewind(file);
    clip->size = (uint32_t)size;
    clip->data = malloc(clip->size);
    clip->offset = malloc(((size_t)clip->size / 4 + 2) * sizeof *clip->offset);
    if (!clip->data || !clip->offset || fread(clip->data, 1, clip->size, file) != clip->size)
        fail(path, "cannot be read");
    fclose(file);
}

/* Annex B: a picture ends where the next one's first slice begins, or the delimiter, parameter
 * sets or SEI (NAL types 9, 7, 8, 6) in front of it. */
static void split_h264(Clip *clip, const char *path) {
    const uint8_t *d = clip->data;
    int picture = 0; /* the unit at hand has a slice already */
    for (uint32_t i = 0; i + 4 < clip->size; ++i) {
        if (d[i] != 0 || d[i + 1] != 0 || d[i + 2] != 1)
            continue;
        const int type = d[i + 3] & 0x1F;
        const int slice = type == 1 || type == 5;
        const int first_slice = slice && (d[i + 4] & 0x80); /* first_mb_in_slice is 0 */
        if (clip->count == 0 || (picture && (first_slice || (type >= 6 && type <= 9)))) {
            clip->offset[clip->count++] = i > 0 && d[i - 1] == 0 ? i - 1 : i;
            picture = 0;
        }
        picture |= slice;
        i += 3;
    }
    if (clip->count == 0)
        fail(path, "no H.264 start code found");
    clip->offset[clip->count] = clip->size;
}

/* ADTS: every frame's header tells its length; the first one's tells rate and channels. */
static void split_aac(Clip *clip, const char *path, KovaAudioDescription *sound) {
    static const uint32_t rates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};
    const uint8_t *d = clip->data;
    uint32_t at = 0, length = 0;
    for (; at + 7 < clip->size && d[at] == 0xFF && (d[at + 1] & 0xF0) == 0xF0; at += length) {
        length = (d[at + 3] & 3u) << 11 | (uint32_t)d[at + 4] << 3 | (uint32_t)d[at + 5] >> 5;
        if (length < 8 || length > clip->size - at)
            break;
        clip->offset[clip->count++] = at;
    }
    clip->offset[clip->count] = at;
    if (clip->count == 0 || rates[(d[2] >> 2) & 15] == 0)
        fail(path, "no ADTS frame found");
    sound->nSampleRate = rates[(d[2] >> 2) & 15];
    sound->nChannels = (d[2] & 1u) << 2 | d[3] >> 6;
}

static int32_t figure(KovaRtspStreamer *stream, uint32_t type) {
    KovaRtspStatus status = {type, {0}};
    KovaRtspServerGetStatus(stream, &status);
    return status.value.nClientCount; /* of the bit rate this is the low word: up to 2 Tbit/s */
}

static void print_status(KovaRtspStreamer *stream) {
    static const char *const states[] = {"", "not ready", "idle", "flowing", "stalled"};
    const int terminal = isatty(STDOUT_FILENO);
    printf("%sclients %d, %d kbit/s, %s%s", terminal ? "\r" : "",
           figure(stream, KOVA_STATUS_CLIENT_COUNT), figure(stream, KOVA_STATUS_BITRATE),
           states[figure(stream, KOVA_STATUS_STREAM)], terminal ? "        " : "\n");
    fflush(stdout);
}

static void push(KovaRtspStreamer *stream, uint32_t id, const Clip *clip, uint32_t i, uint64_t ms) {
    const uint32_t begin = clip->offset[i], end = clip->offset[i + 1];
    KovaRtspServerPushData(stream, id, clip->data + begin, end - begin, (uint32_t)ms);
}

/* Pushes both tracks in the order of their timestamps until a signal or the end of the time.
 * Timestamps go on over the end of the clip; the sound starts again with the picture. */
static void stream_clips(KovaRtspStreamer *stream, uint32_t fps, uint32_t rate, uint64_t seconds) {
    const uint64_t first = 40; /* the first timestamp: any value above 0 */
    uint64_t pictures = 0, frames = 0, next_status = 1000;
    uint32_t v = 0, a = 0;
    struct timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (!g_stop) {
        const uint64_t video_ms = pictures * 1000 / fps;
        const uint64_t audio_ms = frames * 1024 * 1000 / rate; /* 1024 samples per AAC frame */
        const uint64_t due = video_ms <= audio_ms ? video_ms : audio_ms;
        if (seconds > 0 && due >= seconds * 1000)
            return;
        const uint64_t ns = (uint64_t)start.tv_nsec + due * 1000000;
        const struct timespec until = {start.tv_sec + (time_t)(ns / 1000000000),
                                       (long)(ns % 1000000000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL); /* a signal ends it early */
        if (due >= next_status) {
            print_status(stream);
            next_status += 1000;
        }
        if (video_ms <= audio_ms) {
            push(stream, KOVA_PAYLOAD_ID_VIDEO, &video, v, first + due);
            ++pictures;
            v = (v + 1) % video.count;
            if (v == 0)
                a = 0;
        } else {
            push(stream, KOVA_PAYLOAD_ID_AUDIO, &audio, a, first + due);
            ++frames;
            a = (a + 1) % audio.count;
        }
    }
}

int main(int argc, char **argv) {
    const char *uri = "live";
    unsigned long port = 8554, fps = 25, seconds = 0; /* 0 seconds: until a signal */
    for (int option; (option = getopt(argc, argv, "p:u:r:s:")) != -1;) {
        if (option == 'u')
            uri = optarg;
        else if (option == '?')
            return 1;
        else
            *(option == 'p' ? &port : option == 'r' ? &fps : &seconds) = strtoul(optarg, NULL, 10);
    }
    if (argc - optind != 2 || port < 1 || port > 65535 || fps < 1 || fps > 1000)
        fail("usage", "[-p port] [-u uri] [-r fps] [-s seconds] clip.h264 clip.aac");
    KovaAudioDescription sound;
    KovaVideoDescription picture;
    load(&video, argv[optind]);
    split_h264(&video, argv[optind]);
    load(&audio, argv[optind + 1]);
    split_aac(&audio, argv[optind + 1], &sound);
    picture.nBitrate = (uint32_t)(8.0 * video.size * fps / video.count / 1000);
    sound.nBitrate = (uint32_t)(8.0 * audio.size * sound.nSampleRate / 1024 / audio.count / 1000);

    const struct sigaction action = {.sa_handler = on_signal};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    KovaRtspServer *server;
    const char address[KOVA_ADDRESS_SIZE] = ""; /* any interface; all 16 bytes are read */
    const int32_t result = KovaRtspServerInit(&server, address, (uint32_t)port, 16);
    if (result != KOVA_OK)
        fail("server", result == KOVA_ERROR_BIND ? "the port is taken" : "cannot be started");
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, uri);
    if (!stream)
        fail(uri, "cannot be published");
    uint32_t id; /* becomes 96 for the audio, 97 for the video */
    if (KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id, &sound) != KOVA_OK ||
        KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &picture) != KOVA_OK)
        fail(uri, "the payload types cannot be added");

    stream_clips(stream, (uint32_t)fps, sound.nSampleRate, seconds);
    KovaRtspServerUninit(server); /* withdraws the stream too */
    return 0;
}
