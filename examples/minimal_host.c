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
typedef struct Track {
    uint8_t *data;
    uint32_t id, size, count, *offset;
    uint32_t ticks, clock; /* a unit lasts ticks / clock seconds */
    uint32_t next;         /* the unit to push next */
    uint64_t pushed;       /* units pushed since the start, all rounds */
} Track;

static Track video = {.id = KOVA_PAYLOAD_ID_VIDEO, .ticks = 1};
static Track audio = {.id = KOVA_PAYLOAD_ID_AUDIO, .ticks = 1024}; /* samples of an AAC frame */
static volatile sig_atomic_t g_stop;

static void on_signal(int number)
{
    (void)number;
    g_stop = 1;
}

static void fail(const char *what, const char *why)
{
    fprintf(stderr, "kova_minimal_host: %s: %s\n", what, why);
    exit(1);
}

static void load(Track *track, const char *path)
{
    FILE *file = fopen(path, "rb");
    const long size = file && fseek(file, 0, SEEK_END) == 0 ? ftell(file) : -1;
    if (!file || size < 0)
        fail(path, strerror(errno));
    rewind(file);
    track->size = (uint32_t)size;
    track->data = size < INT32_MAX ? malloc(track->size) : NULL;
    track->offset = malloc(((size_t)track->size / 4 + 2) * sizeof *track->offset);
    if (!track->data || !track->offset || fread(track->data, 1, track->size, file) != track->size)
        fail(path, "cannot be held in memory");
    fclose(file);
}

/* Annex B: a picture ends where the next one's first slice begins, or the delimiter, parameter
 * sets or SEI (NAL types 9, 7, 8, 6) in front of it. */
static void split_h264(Track *track, const char *path, uint32_t fps)
{
    load(track, path);
    const uint8_t *d = track->data;
    int picture = 0; /* the unit at hand has a slice already */
    for (uint32_t i = 0; i + 4 < track->size; ++i) {
        if (d[i] != 0 || d[i + 1] != 0 || d[i + 2] != 1)
            continue;
        const int type = d[i + 3] & 0x1F;
        const int slice = type == 1 || type == 5;
        const int first_slice = slice && (d[i + 4] & 0x80); /* first_mb_in_slice is 0 */
        if (track->count == 0 || (picture && (first_slice || (type >= 6 && type <= 9)))) {
            track->offset[track->count++] = i > 0 && d[i - 1] == 0 ? i - 1 : i;
            picture = 0;
        }
        picture |= slice;
        i += 3;
    }
    if (track->count == 0 || track->offset[0] != 0)
        fail(path, "does not begin with an H.264 start code");
    track->clock = fps;
    track->offset[track->count] = track->size;
}

/* ADTS: every frame's header tells its length; the first one's tells rate and channels. */
static void split_aac(Track *track, const char *path, KovaAudioDescription *sound)
{
    static const uint32_t rates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};
    load(track, path);
    const uint8_t *d = track->data;
    uint32_t at = 0, length = 0;
    for (; at + 7 < track->size && d[at] == 0xFF && (d[at + 1] & 0xF0) == 0xF0; at += length) {
        length = (d[at + 3] & 3u) << 11 | (uint32_t)d[at + 4] << 3 | (uint32_t)d[at + 5] >> 5;
        if (length < 8 || length > track->size - at)
            break;
        track->offset[track->count++] = at;
    }
    track->offset[track->count] = at;
    if (track->count == 0 || rates[(d[2] >> 2) & 15] == 0)
        fail(path, "no ADTS frame found");
    track->clock = sound->nSampleRate = rates[(d[2] >> 2) & 15];
    sound->nChannels = (d[2] & 1u) << 2 | d[3] >> 6;
}

static uint64_t due_ms(const Track *track)
{
    return track->pushed * track->ticks * 1000 / track->clock;
}

static void print_status(KovaRtspStreamer *stream)
{
    static const char *const states[] = {"", "not ready", "idle", "flowing", "stalled"};
    KovaRtspStatus clients = {KOVA_STATUS_CLIENT_COUNT, {0}};
    KovaRtspStatus bitrate = {KOVA_STATUS_BITRATE, {0}};
    KovaRtspStatus status = {KOVA_STATUS_STREAM, {0}};
    KovaRtspServerGetStatus(stream, &clients);
    KovaRtspServerGetStatus(stream, &bitrate);
    KovaRtspServerGetStatus(stream, &status);
    printf(isatty(STDOUT_FILENO) ? "\rclients %d, %u kbit/s, %s        "
                                 : "clients %d, %u kbit/s, %s\n",
           clients.value.nClientCount, bitrate.value.nBitrateWord[0],
           states[status.value.nStreamStatus]);
    fflush(stdout);
}

/* Pushes both tracks in the order of their timestamps until a signal or the end of the time. The
 * first timestamp is above 0, and they go on over the end of the clip, when picture and sound
 * start again together. */
static void stream_clips(KovaRtspStreamer *stream, uint64_t seconds)
{
    struct timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (!g_stop) {
        Track *track = due_ms(&video) <= due_ms(&audio) ? &video : &audio;
        const uint64_t due = due_ms(track);
        if (seconds > 0 && due >= seconds * 1000)
            return;
        const uint64_t ns = (uint64_t)start.tv_nsec + due * 1000000;
        const struct timespec until = {start.tv_sec + (time_t)(ns / 1000000000),
                                       (long)(ns % 1000000000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL); /* a signal ends it early */
        const uint32_t begin = track->offset[track->next], end = track->offset[track->next + 1];
        KovaRtspServerPushData(stream, track->id, track->data + begin, end - begin,
                               (uint32_t)due + 40);
        ++track->pushed;
        track->next = (track->next + 1) % track->count;
        if (track == &video && video.next == 0)
            audio.next = 0;
        if (track == &video && video.pushed % video.clock == 0)
            print_status(stream);
    }
}

int main(int argc, char **argv)
{
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
    split_h264(&video, argv[optind], (uint32_t)fps);
    split_aac(&audio, argv[optind + 1], &sound);
    picture.nBitrate = (uint32_t)(video.size / 125.0 / video.count * (double)fps); /* kbit/s */
    sound.nBitrate = (uint32_t)(audio.size / 125.0 / audio.count * sound.nSampleRate / 1024);

    const struct sigaction action = {.sa_handler = on_signal};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    KovaRtspServer *server;
    const char address[KOVA_ADDRESS_SIZE] = ""; /* any interface; all 16 bytes are read */
    const int32_t result = KovaRtspServerInit(&server, address, (uint32_t)port, 16);
    if (result != KOVA_OK)
        fail("server",
             result == KOVA_ERROR_BIND ? "the port is taken or not allowed" : "cannot be started");
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, uri);
    if (!stream)
        fail(uri, "cannot be published");
    uint32_t id; /* becomes 96 for the audio, 97 for the video */
    if (KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id, &sound) != KOVA_OK ||
        KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &picture) != KOVA_OK)
        fail(uri, "the payload types cannot be added");

    stream_clips(stream, seconds);
    KovaRtspServerUninit(server); /* withdraws the stream too */
    return 0;
}
