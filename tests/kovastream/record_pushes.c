/* Stands in front of the library: writes down what a host pushes, then passes it on. Each record
 * in the file that KOVA_PUSHES names: payload type, timestamp in milliseconds, length, milliseconds
 * of the clock (32 bits each), and the bytes. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "kova_live.h"
#include "kova_rtsp_server.h"

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

static void record(uint32_t id, const void *data, uint32_t length, uint32_t timestamp)
{
    static FILE *file;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint32_t head[4] = {id, timestamp, length,
                              (uint32_t)(now.tv_sec * 1000 + now.tv_nsec / 1000000)};
    pthread_mutex_lock(&mutex);
    if (!file)
        file = fopen(getenv("KOVA_PUSHES"), "wb");
    if (!file || fwrite(head, sizeof head, 1, file) != 1 || fwrite(data, 1, length, file) != length)
        abort();
    fflush(file);
    pthread_mutex_unlock(&mutex);
}

int32_t KovaRtspServerPushData(KovaRtspStreamer *stream, uint32_t id, const uint8_t *data,
                               uint32_t length, uint32_t timestamp)
{
    int32_t (*next)(KovaRtspStreamer *, uint32_t, const uint8_t *, uint32_t, uint32_t);
    *(void **)&next = dlsym(RTLD_NEXT, "KovaRtspServerPushData");
    record(id, data, length, timestamp);
    return next(stream, id, data, length, timestamp);
}

/* One stream's. */
static KovaLiveTrack *tracks[128];

int32_t KovaLiveAddTrack(KovaLiveStream *stream, const KovaLiveTrackConfig *config,
                         KovaLiveTrack **track)
{
    int32_t (*next)(KovaLiveStream *, const KovaLiveTrackConfig *, KovaLiveTrack **);
    *(void **)&next = dlsym(RTLD_NEXT, "KovaLiveAddTrack");
    const int32_t result = next(stream, config, track);
    if (result == KOVA_LIVE_OK)
        tracks[config->payload_type] = *track;
    return result;
}

int32_t KovaLivePush(KovaLiveTrack *track, const void *data, size_t size, int64_t pts_us)
{
    int32_t (*next)(KovaLiveTrack *, const void *, size_t, int64_t);
    *(void **)&next = dlsym(RTLD_NEXT, "KovaLivePush");
    uint32_t id = 96;
    while (id < 127 && tracks[id] != track)
        id++;
    record(id, data, (uint32_t)size, (uint32_t)(pts_us / 1000));
    const int32_t result = next(track, data, size, pts_us);
    if (result != KOVA_LIVE_OK) {
        fprintf(stderr, "a push of %u has failed: %s\n", (unsigned)id, KovaLiveErrorText(result));
        abort();
    }
    return result;
}
