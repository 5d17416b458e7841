/*
 * kova_live.h - live streams over RTSP/1.0 (RFC 2326), by one small engine.
 *
 *     KovaLive *live;
 *     KovaLiveStream *stream;
 *     KovaLiveTrack *video;
 *     KovaLiveTrackConfig track = {0};
 *     track.size = sizeof(track);
 *     track.codec = KOVA_LIVE_H264;
 *
 *     KovaLiveOpen(NULL, &live);                              // any address, any free port
 *     KovaLiveAddStream(live, "camera", NULL, &stream);       // rtsp://host:port/camera
 *     KovaLiveAddTrack(stream, &track, &video);
 *     ... KovaLivePush(video, unit, size, microseconds) ...
 *     KovaLiveClose(live);
 *
 * The header is C99 and C++17 and needs nothing but the C library.
 *
 * Records. Each begins with its size, in bytes, as the caller knows it: fields that a later version
 * adds behind it keep their default. A field that is 0 (or NULL) means its default. A record may be
 * initialised with {0} and its size set, or by its Init call. The engine copies what a record
 * points at; nothing needs to live longer than the call.
 *
 * Results. Every call returns KOVA_LIVE_OK (0), KOVA_LIVE_DROPPED (1), or a negative
 * KOVA_LIVE_ERROR. Nothing is ever printed.
 *
 * Threads. One thread at a time pushes a track; different tracks may be pushed by different
 * threads. Every other call may be made by any thread at any time while its handle lives. There is
 * no global state: servers of one process do not know each other.
 *
 * Callbacks run on a network thread of the engine, with no lock held; they should return soon,
 * because players wait meanwhile. They may call everything but KovaLiveClose and
 * KovaLiveRemoveStream, which return KOVA_LIVE_ERROR_IN_CALLBACK there. No callback runs any more
 * when KovaLiveClose has returned.
 */
#ifndef KOVA_LIVE_H
#define KOVA_LIVE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define KOVA_LIVE_API __attribute__((visibility("default")))
#else
#define KOVA_LIVE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A server, a stream of it, and a track of a stream; opaque. */
typedef struct KovaLive KovaLive;
typedef struct KovaLiveStream KovaLiveStream;
typedef struct KovaLiveTrack KovaLiveTrack;

/* ---- Results ------------------------------------------------------------------------------- */

enum {
    KOVA_LIVE_OK = 0,
    KOVA_LIVE_DROPPED = 1,          /* KovaLivePush: the unit was not taken, and was counted */
    KOVA_LIVE_ERROR_ARGUMENT = -1,  /* null, out of range, or a record that is too small */
    KOVA_LIVE_ERROR_MEMORY = -2,    /* no memory */
    KOVA_LIVE_ERROR_ADDRESS = -3,   /* not an IPv4 address in text, or not one of this machine */
    KOVA_LIVE_ERROR_PORT = -4,      /* the port is taken, or may not be used */
    KOVA_LIVE_ERROR_SYSTEM = -5,    /* no descriptor or no thread could be had */
    KOVA_LIVE_ERROR_EXISTS = -6,    /* a stream of that path is there already */
    KOVA_LIVE_ERROR_NOT_FOUND = -7, /* no such player */
    KOVA_LIVE_ERROR_DATA = -8,      /* the bytes are no access unit of the track's codec and form */
    KOVA_LIVE_ERROR_TOO_LARGE = -9, /* above a limit: a unit, the tracks of a stream */
    KOVA_LIVE_ERROR_IN_CALLBACK = -10, /* this call may not be made inside a callback */
    KOVA_LIVE_ERROR_CODEC = -11        /* a codec that this version does not know */
};

/* A short English text for a result, static; for an unknown one too. */
KOVA_LIVE_API const char *KovaLiveErrorText(int32_t result);

/* ---- Events and log lines ------------------------------------------------------------------ */

enum {
    KOVA_LIVE_EVENT_PLAYER_CAME = 1,  /* a player began to play: its first PLAY */
    KOVA_LIVE_EVENT_PLAYER_WENT = 2,  /* it ended; reason tells why */
    KOVA_LIVE_EVENT_KEY_FRAME = 3,    /* a key frame of the track is wanted soon */
    KOVA_LIVE_EVENT_STREAM_READY = 4, /* the stream can be described: players get in from now on */
    KOVA_LIVE_EVENT_OVERFLOW = 5      /* units were dropped for a player that takes too little */
};

/* Why a player went. */
enum {
    KOVA_LIVE_WENT_TEARDOWN = 1,     /* it said so */
    KOVA_LIVE_WENT_CONNECTION = 2,   /* its connection ended */
    KOVA_LIVE_WENT_SILENCE = 3,      /* nothing was heard of it for the session's time-out */
    KOVA_LIVE_WENT_SLOW = 4,         /* it took no data for too long */
    KOVA_LIVE_WENT_DISCONNECTED = 5, /* KovaLiveDisconnect */
    KOVA_LIVE_WENT_STREAM = 6,       /* its stream or the server ended */
    KOVA_LIVE_WENT_BYE = 7           /* it sent an RTCP BYE on every track that it plays */
};

typedef struct KovaLiveEvent {
    uint32_t size;
    uint32_t type;          /* KOVA_LIVE_EVENT_... */
    KovaLiveStream *stream; /* the stream that it happened on */
    KovaLiveTrack *track;   /* KEY_FRAME: the track; else NULL */
    uint64_t player;        /* PLAYER_..., OVERFLOW: its number, never reused; else 0 */
    uint32_t reason;        /* PLAYER_WENT: KOVA_LIVE_WENT_...; else 0 */
    uint32_t players;       /* players of the stream, after the event */
    const char *address;    /* PLAYER_...: the player's address in text; else "" */
    uint16_t port;          /* and the port of its RTSP connection */
    uint16_t interleaved;   /* 1: media goes through the RTSP connection; 0: UDP */
} KovaLiveEvent;

typedef void (*KovaLiveEventCallback)(void *context, const KovaLiveEvent *event);

/* Levels of log lines. */
enum {
    KOVA_LIVE_LOG_ERROR = 1,   /* something the operator should look at */
    KOVA_LIVE_LOG_WARNING = 2, /* a player or a connection was refused or let go */
    KOVA_LIVE_LOG_INFO = 3,    /* players come and go */
    KOVA_LIVE_LOG_DEBUG = 4    /* requests; never passwords, nonces or digests */
};

/* text is one line without a line break, valid during the call. */
typedef void (*KovaLiveLogCallback)(void *context, int32_t level, const char *text);

/* ---- The server ---------------------------------------------------------------------------- */

/* Who may watch. The password is kept only as the digests that RFC 7616 needs. */
typedef struct KovaLiveUser {
    const char *name;     /* without ':' and '"' */
    const char *password; /* UTF-8 */
} KovaLiveUser;

typedef struct KovaLiveConfig {
    uint32_t size;
    const char *address; /* IPv4 in text; NULL or "": every address of the machine */
    uint16_t port;       /* of RTSP; 0: any free one, told by KovaLivePort */
    uint16_t udp_first;  /* UDP ports for media, an even one each and the next; 0: any */
    uint16_t udp_last;
    uint16_t max_packet; /* largest RTP packet in bytes, 200 to 65,000 (default 1,400) */
    uint32_t threads;    /* network threads, 1 to 16 (default 1) */

    uint32_t max_connections;             /* (default 1,024) */
    uint32_t max_connections_per_address; /* (default: no limit) */
    uint32_t max_sessions;                /* (default 1,024) */
    uint32_t request_ms;                  /* a begun request is whole by then (default 10,000) */
    uint32_t idle_ms; /* a connection without a session asks something by then (default 120,000) */
    uint32_t session_ms; /* a session is heard of by then (default 60,000) */

    uint32_t delay_ms;      /* media leaves that long after its push (default 0: at once) */
    uint32_t player_max_ms; /* what a player has not taken is at most so old (default 2,000) ... */
    uint32_t player_max_bytes; /* ... and so large (default 2 MiB); then it is cut to key frames */
    uint32_t
        player_stall_ms; /* a player that takes no byte for so long is let go (default 10,000) */

    const char *realm; /* of the login (default "Kova") */
    const KovaLiveUser *users;
    uint32_t user_count; /* 0: everybody may watch streams that have no users of their own */

    int32_t log_level;              /* lines up to this level are told (default: none) */
    KovaLiveLogCallback on_log;     /* may be NULL */
    KovaLiveEventCallback on_event; /* may be NULL */
    void *context;                  /* passed to both */
} KovaLiveConfig;

/* Sets a record of `size` bytes to its defaults. KOVA_LIVE_ERROR_ARGUMENT for null or a size below
 * that of the first version. */
KOVA_LIVE_API int32_t KovaLiveConfigInit(KovaLiveConfig *config, uint32_t size);

/* Opens a server: it listens, and players who ask get 404 until there is a stream. config may be
 * NULL for all defaults. *live is written on success only. Ended by KovaLiveClose. Errors:
 * ARGUMENT, MEMORY, ADDRESS, PORT, SYSTEM. */
KOVA_LIVE_API int32_t KovaLiveOpen(const KovaLiveConfig *config, KovaLive **live);

/* Ends every player and connection, all streams and tracks, and the server, within one second. The
 * handles are gone then; nobody may be inside another call with one of them. NULL is ignored.
 * Errors: IN_CALLBACK. */
KOVA_LIVE_API int32_t KovaLiveClose(KovaLive *live);

/* The port on which the server listens. Errors: ARGUMENT. */
KOVA_LIVE_API int32_t KovaLivePort(const KovaLive *live, uint16_t *port);

/* ---- Streams and tracks -------------------------------------------------------------------- */

typedef struct KovaLiveStreamConfig {
    uint32_t size;
    const char *name;          /* in the description (default: the path) */
    const KovaLiveUser *users; /* of this stream; they take the place of the server's */
    uint32_t user_count;
    uint32_t track_wait_ms;  /* tracks that are not known after so long are left out of the
                                description  (default 2,000, counted from the first push) */
    uint32_t keep_group;     /* 1: a newcomer gets the current picture group from memory at once;
                                0: it waits for the next key frame, which the host is asked for,
                                and its sound for the picture, for at most 5 s */
    uint32_t keep_max_bytes; /* the most that is kept of a group (default 4 MiB) */
} KovaLiveStreamConfig;

KOVA_LIVE_API int32_t KovaLiveStreamConfigInit(KovaLiveStreamConfig *config, uint32_t size);

/* Publishes a stream under rtsp://<host>:<port>/<path>. path: 1 to 255 bytes of UTF-8, not escaped,
 * without control characters, '?' and '#'; slashes at its ends do not count. config may be NULL.
 * Errors: ARGUMENT, MEMORY, EXISTS. */
KOVA_LIVE_API int32_t KovaLiveAddStream(KovaLive *live, const char *path,
                                        const KovaLiveStreamConfig *config,
                                        KovaLiveStream **stream);

/* Takes a stream with its tracks away; its players end. Waits for pushes in progress, for nothing
 * else. The handles are gone then. Errors: ARGUMENT, IN_CALLBACK. */
KOVA_LIVE_API int32_t KovaLiveRemoveStream(KovaLiveStream *stream);

enum {
    KOVA_LIVE_H264 = 1, /* RFC 6184 */
    KOVA_LIVE_AAC = 2,  /* RFC 3640, AAC-hbr */
    KOVA_LIVE_H265 = 3  /* kept free: KOVA_LIVE_ERROR_CODEC in this version */
};

/* The form in which units are pushed. */
enum {
    KOVA_LIVE_FORM_DEFAULT = 0, /* H.264: Annex B; AAC: ADTS */
    KOVA_LIVE_FORM_ANNEXB = 1,  /* NAL units behind start codes */
    KOVA_LIVE_FORM_LENGTH = 2,  /* NAL units behind lengths of length_size bytes, big-endian */
    KOVA_LIVE_FORM_ADTS = 3,    /* one or several ADTS frames, whole */
    KOVA_LIVE_FORM_RAW = 4      /* one AAC access unit; audio_config is needed */
};

typedef struct KovaLiveTrackConfig {
    uint32_t size;
    uint32_t codec;        /* KOVA_LIVE_H264 or KOVA_LIVE_AAC */
    uint32_t form;         /* KOVA_LIVE_FORM_... */
    uint32_t length_size;  /* FORM_LENGTH: 1, 2 or 4 (default 4) */
    uint32_t payload_type; /* 96 to 127 (default: 96 for the first track, and so on) */

    /* Parameter sets, if they are known before they appear in the stream; NAL header byte first, no
     * start code. The stream's own take their place. */
    const uint8_t *sps;
    uint32_t sps_size;
    const uint8_t *pps;
    uint32_t pps_size;
    const uint8_t *vps; /* of H.265: not used yet */
    uint32_t vps_size;

    const uint8_t *audio_config; /* AudioSpecificConfig (ISO/IEC 14496-3), 2 to 64 bytes */
    uint32_t audio_config_size;
} KovaLiveTrackConfig;

KOVA_LIVE_API int32_t KovaLiveTrackConfigInit(KovaLiveTrackConfig *config, uint32_t size);

/* Adds a track; a stream has at most 8. Players who set the stream up before do not get it.
 * Errors: ARGUMENT, MEMORY, CODEC, DATA (parameter sets that are none), TOO_LARGE. */
KOVA_LIVE_API int32_t KovaLiveAddTrack(KovaLiveStream *stream, const KovaLiveTrackConfig *config,
                                       KovaLiveTrack **track);

/* Pushes one access unit: a picture of H.264, one or more frames of AAC.
 * pts_us: its presentation time in microseconds, of a clock that all tracks of the stream share;
 * may begin anywhere, and goes back only as far as B pictures need it. Never waits for a player or
 * the network. Returns OK when the unit is on its way (also when nobody plays), DROPPED when it
 * could not be taken (no memory) and is counted; DATA, TOO_LARGE (above 16 MiB) or ARGUMENT when
 * there was nothing to take. */
KOVA_LIVE_API int32_t KovaLivePush(KovaLiveTrack *track, const void *data, size_t size,
                                   int64_t pts_us);

/* ---- What goes on -------------------------------------------------------------------------- */

typedef struct KovaLiveServerNumbers {
    uint32_t size;
    uint32_t connections; /* open RTSP connections */
    uint32_t sessions;    /* sessions, playing or not */
    uint32_t players;     /* sessions that play */
    uint64_t refused;     /* connections and requests that a limit refused */
    uint64_t logins_failed;
    uint64_t packets; /* RTP packets sent */
    uint64_t bytes;   /* and their bytes, RTP headers included */
} KovaLiveServerNumbers;

/* Fills the record, whose size the caller has set. Errors: ARGUMENT. */
KOVA_LIVE_API int32_t KovaLiveServerFigures(KovaLive *live, KovaLiveServerNumbers *numbers);

typedef struct KovaLiveStreamNumbers {
    uint32_t size;
    uint32_t players; /* sessions that play it */
    uint32_t ready;   /* 1: it can be described */
    uint32_t tracks;
    uint64_t units;         /* access units taken by KovaLivePush, of all tracks */
    uint64_t unit_bytes;    /* and their bytes */
    uint64_t dropped_units; /* that KovaLivePush could not take */
    uint64_t packets;       /* RTP packets sent, to all players together */
    uint64_t bytes;
    uint64_t late_packets; /* not sent, because their player took too little */
} KovaLiveStreamNumbers;

/* Fills the record, whose size the caller has set. Errors: ARGUMENT. */
KOVA_LIVE_API int32_t KovaLiveStreamFigures(KovaLiveStream *stream, KovaLiveStreamNumbers *numbers);

typedef struct KovaLivePlayer {
    uint32_t size;
    uint16_t port; /* of its RTSP connection */
    uint16_t interleaved;
    uint64_t player;        /* its number, as in events */
    KovaLiveStream *stream; /* for comparing; may be gone when the call returns */
    char address[16];       /* IPv4 in text */
    char user[48];          /* as it logged in, cut; "" without login */
    uint64_t playing_us;    /* since its first PLAY */
    uint64_t packets;       /* RTP packets sent to it */
    uint64_t bytes;
    uint64_t late_packets;  /* not sent, because it took too little */
    uint32_t loss;          /* of its last receiver report: fraction lost, of 256; 0 without one */
    uint32_t jitter_us;     /* of that report */
    uint32_t round_trip_us; /* from the reports; 0 when not known */
    uint32_t paused;        /* 1: by PAUSE */
} KovaLivePlayer;

/* Lists the players, in no particular order. players: room for `room` records one behind the
 * other, of which the first one has had its size set; may be NULL when room is 0. *count: how many
 * players there are, also when room is less. Errors: ARGUMENT. */
KOVA_LIVE_API int32_t KovaLivePlayers(KovaLive *live, KovaLivePlayer *players, uint32_t room,
                                      uint32_t *count);

/* Lets a player go; its event tells KOVA_LIVE_WENT_DISCONNECTED. Errors: ARGUMENT, NOT_FOUND. */
KOVA_LIVE_API int32_t KovaLiveDisconnect(KovaLive *live, uint64_t player);

#ifdef __cplusplus
}
#endif

#endif
