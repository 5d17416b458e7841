/* Clips held in memory and cut into access units, for a host that plays them in a loop. */
#ifndef CLIP_HOST_CLIPS_H
#define CLIP_HOST_CLIPS_H

#include <stddef.h>
#include <stdint.h>

/* One track. Unit i is offset[i] to offset[i + 1] of data. */
typedef struct Clip {
    uint8_t *data;
    size_t size, count, *offset;
    uint32_t ticks, clock; /* a unit lasts ticks / clock seconds */
    int64_t *shift;        /* how far a unit is shown behind its turn, in microseconds; or NULL */
    uint8_t config[2];     /* AAC: the AudioSpecificConfig of its ADTS headers */
    size_t next;           /* the unit whose turn it is */
    uint64_t pushed;       /* units that had their turn, all rounds */
} Clip;

/* Prints why and ends the program. */
void fail(const char *what, const char *why);

/* Loads an Annex B file of `fps` pictures a second (1 to 1,000). */
void load_h264(Clip *clip, const char *path, uint32_t fps);

/* Reads when each picture is shown: a line each, in seconds, in the order of decoding. */
void load_times(Clip *clip, const char *path);

/* Loads an ADTS file. */
void load_adts(Clip *clip, const char *path);

/* Microseconds from the clip's beginning to the turn of its next unit, all rounds counted. */
int64_t due_us(const Clip *clip);

/* When its next unit is shown, in microseconds; above 0. */
int64_t shown_us(const Clip *clip);

/* Puts the NAL units of an Annex B access unit behind 4-byte lengths, its parameter sets too or
 * left out. `to` has room for size * 2 bytes. Returns how many were written. */
size_t put_lengths(const uint8_t *unit, size_t size, int with_sets, uint8_t *to);

/* The first NAL unit of a type in an Annex B access unit; NULL: there is none. */
const uint8_t *find_nal(const uint8_t *unit, size_t size, int type, size_t *length);

#endif
