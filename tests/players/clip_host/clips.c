#include "clips.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum {
    ADTS_HEADER = 7,
    FIRST_SHOWN = 40000
};

void fail(const char *what, const char *why)
{
    fprintf(stderr, "kova_clip_host: %s: %s\n", what, why);
    exit(1);
}

static void load(Clip *clip, const char *path)
{
    FILE *file = fopen(path, "rb");
    const long size = file && fseek(file, 0, SEEK_END) == 0 ? ftell(file) : -1;
    if (!file || size <= 0)
        fail(path, file ? "nothing in it" : strerror(errno));
    rewind(file);
    memset(clip, 0, sizeof *clip);
    clip->size = (size_t)size;
    clip->data = malloc(clip->size);
    clip->offset = malloc((clip->size / 4 + 2) * sizeof *clip->offset);
    if (!clip->data || !clip->offset || fread(clip->data, 1, clip->size, file) != clip->size)
        fail(path, "cannot be held in memory");
    fclose(file);
}

static int start_code(const uint8_t *d)
{
    return d[0] == 0 && d[1] == 0 && d[2] == 1;
}

/* A picture ends where the next one's first slice begins, or the delimiter, parameter sets or SEI
 * (NAL types 9, 7, 8, 6) in front of it. */
void load_h264(Clip *clip, const char *path, uint32_t fps)
{
    load(clip, path);
    const uint8_t *d = clip->data;
    int picture = 0; /* the unit at hand has a slice already */
    for (size_t i = 0; i + 4 < clip->size; ++i) {
        if (!start_code(d + i))
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
    if (clip->count == 0 || clip->offset[0] != 0)
        fail(path, "does not begin with an H.264 start code");
    clip->offset[clip->count] = clip->size;
    clip->ticks = 1;
    clip->clock = fps;
}

void load_times(Clip *clip, const char *path)
{
    FILE *file = fopen(path, "r");
    clip->shift = calloc(clip->count, sizeof *clip->shift);
    if (!file || !clip->shift)
        fail(path, strerror(errno));
    for (size_t i = 0; i < clip->count; ++i) {
        double seconds;
        if (fscanf(file, "%lf", &seconds) != 1)
            fail(path, "fewer times than pictures");
        clip->shift[i] = (int64_t)(seconds * 1e6 + 0.5) - (int64_t)i * 1000000 / clip->clock;
    }
    fclose(file);
}

void load_adts(Clip *clip, const char *path)
{
    static const uint32_t rates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};
    load(clip, path);
    const uint8_t *d = clip->data;
    size_t at = 0, length = 0;
    for (; at + ADTS_HEADER < clip->size && d[at] == 0xFF && (d[at + 1] & 0xF0) == 0xF0;
         at += length) {
        length = (d[at + 3] & 3u) << 11 | (size_t)d[at + 4] << 3 | (size_t)d[at + 5] >> 5;
        if (length <= ADTS_HEADER || length > clip->size - at)
            break;
        clip->offset[clip->count++] = at;
    }
    clip->offset[clip->count] = at;
    const unsigned rate = (d[2] >> 2) & 15, channels = (d[2] & 1u) << 2 | d[3] >> 6;
    if (clip->count == 0 || rates[rate] == 0)
        fail(path, "no ADTS frame found");
    clip->ticks = 1024; /* samples of a frame */
    clip->clock = rates[rate];
    const unsigned config = ((d[2] >> 6) + 1u) << 11 | rate << 7 | channels << 3;
    clip->config[0] = (uint8_t)(config >> 8);
    clip->config[1] = (uint8_t)config;
}

int64_t due_us(const Clip *clip)
{
    return (int64_t)(clip->pushed * clip->ticks * 1000000 / clip->clock);
}

int64_t shown_us(const Clip *clip)
{
    return due_us(clip) + FIRST_SHOWN + (clip->shift ? clip->shift[clip->next] : 0);
}

/* Where the next start code stands, from `at` on; size: nowhere. */
static size_t find_start_code(const uint8_t *unit, size_t size, size_t at)
{
    while (at + 3 <= size && !start_code(unit + at))
        ++at;
    return at + 3 <= size ? at : size;
}

/* The NAL unit behind the start code at `code`, and where the next start code stands. */
static const uint8_t *nal_at(const uint8_t *unit, size_t size, size_t code, size_t *length,
                             size_t *next)
{
    const size_t begin = code + 3;
    *next = find_start_code(unit, size, begin);
    *length = *next - begin;
    while (*length > 0 && unit[begin + *length - 1] == 0) /* of a longer start code */
        --*length;
    return unit + begin;
}

const uint8_t *find_nal(const uint8_t *unit, size_t size, int type, size_t *length)
{
    for (size_t code = find_start_code(unit, size, 0), next; code < size; code = next) {
        const uint8_t *nal = nal_at(unit, size, code, length, &next);
        if (*length > 0 && (nal[0] & 0x1F) == type)
            return nal;
    }
    return NULL;
}

size_t put_lengths(const uint8_t *unit, size_t size, int with_sets, uint8_t *to)
{
    size_t written = 0;
    for (size_t code = find_start_code(unit, size, 0), next; code < size; code = next) {
        size_t length;
        const uint8_t *nal = nal_at(unit, size, code, &length, &next);
        const int type = length > 0 ? nal[0] & 0x1F : 0;
        if (!with_sets && (type == 7 || type == 8))
            continue;
        for (int byte = 0; byte < 4; ++byte)
            to[written++] = (uint8_t)(length >> (24 - 8 * byte));
        memcpy(to + written, nal, length);
        written += length;
    }
    return written;
}
