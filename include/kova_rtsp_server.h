/*
 * kova_rtsp_server.h - the public interface of libkovartspserver.
 *
 * A host program starts one server on a TCP port, publishes one stream per
 * URI, declares the stream's payload types and then pushes encoded access
 * units. Everything between the push and the players is the library's work.
 *
 *     KovaRtspServer *server;
 *     char address[KOVA_ADDRESS_SIZE] = "";            // any interface
 *     KovaRtspServerInit(&server, address, 554, 16);
 *     KovaRtspStreamer *stream = KovaRtspServerAddUri(server, "live");
 *     KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id, &audio);   // 96
 *     KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &video);   // 97
 *     ... KovaRtspServerPushData(stream, 97, unit, length, milliseconds) ...
 *     KovaRtspServerUninit(server);
 *
 * The header is plain C99 and C++17 and needs nothing but the C library.
 *
 * Threads. Pushing, reading the status and setting the log level may go on from
 * any thread at any time while the handles live. Each of the two input rings of
 * a stream has one writer: one thread pushes the audio and one the video of a
 * stream (the same thread may do both). Streams and payload types are added and
 * removed from one thread. The lifecycle calls (Init, Uninit, Create, Destroy,
 * Start, Stop) of one server are made one at a time.
 *
 * Ownership. Handles belong to the library: a server handle lives until
 * KovaRtspServerUninit or KovaRtspServerDestroy, a stream handle until
 * KovaRtspServerRemoveUri or the end of its server. Everything that a caller
 * passes in (texts, records, media) is copied before the call returns.
 */
#ifndef KOVA_RTSP_SERVER_H
#define KOVA_RTSP_SERVER_H

#include <stdint.h>

#if defined(__GNUC__)
#define KOVA_EXPORT __attribute__((visibility("default")))
#else
#define KOVA_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The server, opaque. */
typedef struct KovaRtspServer KovaRtspServer;

/* One published stream, opaque. */
typedef struct KovaRtspStreamer KovaRtspStreamer;

/* Result codes of the calls below. */
enum {
    KOVA_OK = 0,               /* success */
    KOVA_ERROR_FAILED = 1,     /* not found, or could not be made */
    KOVA_ERROR_NULL = 2,       /* a required argument is null, or an unknown status type */
    KOVA_ERROR_CREATE = 4,     /* KovaRtspServerInit: the server could not be made */
    KOVA_ERROR_NO_SESSION = 5, /* used inside the library; no call below returns it */
    KOVA_ERROR_SOCKET = 7,     /* socket() failed */
    KOVA_ERROR_SETSOCKOPT = 8, /* setsockopt(SO_REUSEADDR) failed */
    KOVA_ERROR_BIND = 9,       /* bind() failed: port taken, no permission, or not our address */
    KOVA_ERROR_LISTEN = 10,    /* listen() failed */
    KOVA_ERROR_THREAD = 11,    /* KovaRtspServerStart: a service thread could not be created */
    KOVA_ERROR_OVERFLOW = 12,  /* used inside the library; no call below returns it */
    KOVA_ERROR_PUSH = -1       /* KovaRtspServerPushData: null stream or null data */
};

/* Media types of a payload type. */
enum {
    KOVA_MEDIA_AUDIO = 1, /* AAC, pushed as ADTS frames */
    KOVA_MEDIA_VIDEO = 2  /* H.264, pushed as Annex B access units */
};

/* Payload ids are given per stream in order of addition, from 96 and never
 * reused. Pushed data is stored by number: 96 in the 2 MiB ring, 97 in the
 * 14 MiB ring. So the audio type is added first and the video type second. */
enum {
    KOVA_PAYLOAD_ID_AUDIO = 96,
    KOVA_PAYLOAD_ID_VIDEO = 97
};

/* Limits. */
enum {
    KOVA_ADDRESS_SIZE = 16,    /* bytes of the address argument of Init and Create */
    KOVA_MAX_CLIENTS = 1024,   /* the largest accepted maximum of clients */
    KOVA_MAX_URI_LENGTH = 1024 /* characters of the longest URI that can be published */
};

/* What KovaRtspServerGetStatus reads (nType of the status record). */
enum {
    KOVA_STATUS_CLIENT_COUNT = 1,
    KOVA_STATUS_BITRATE = 2,
    KOVA_STATUS_STREAM = 3
};

/* Values of the stream status, refreshed once a second. */
enum {
    KOVA_STREAM_NOT_READY = 1, /* no parameter sets or audio configuration seen yet */
    KOVA_STREAM_IDLE = 2,      /* ready, no player */
    KOVA_STREAM_FLOWING = 3,   /* ready, players, data flows */
    KOVA_STREAM_STALLED = 4    /* players, but nothing is being sent */
};

/* Description of an audio payload type (KOVA_MEDIA_AUDIO). */
typedef struct KovaAudioDescription {
    uint32_t nBitrate;    /* kbit/s, shown in the session description */
    uint32_t nSampleRate; /* Hz; the RTP clock of the audio track */
    uint32_t nChannels;   /* number of channels */
} KovaAudioDescription;

/* Description of a video payload type (KOVA_MEDIA_VIDEO). */
typedef struct KovaVideoDescription {
    uint32_t nBitrate; /* kbit/s, shown in the session description */
} KovaVideoDescription;

/* Status record, 12 bytes, owned by the caller. */
typedef struct KovaRtspStatus {
    uint32_t nType; /* set by the caller: one of KOVA_STATUS_* */
    union {
        int32_t nClientCount;     /* KOVA_STATUS_CLIENT_COUNT */
        uint32_t nBitrateWord[2]; /* KOVA_STATUS_BITRATE: in 1024 bit/s, 64 bits, low word first */
        uint32_t nStreamStatus;   /* KOVA_STATUS_STREAM: one of KOVA_STREAM_* */
    } value;
} KovaRtspStatus;

/* ---- Lifecycle --------------------------------------------------------- */

/*
 * Creates and starts a server; the usual first call.
 *   ppServer     receives the handle; left untouched when the call fails
 *   szAddress    a buffer of KOVA_ADDRESS_SIZE (16) bytes that holds the dotted
 *                IPv4 address to listen on, or an empty text for any address.
 *                All 16 bytes are read: never pass a shorter literal.
 *   nPort        TCP port, 1 to 65535; only the low 16 bits are used
 *   nMaxClient   most playing clients, at most KOVA_MAX_CLIENTS; a SETUP above
 *                it is refused
 * Sets the log level to 2 in any case. Creation seeds rand().
 * Results: KOVA_OK; KOVA_ERROR_NULL (null ppServer); KOVA_ERROR_CREATE (null
 * address or too large a maximum, or no memory); KOVA_ERROR_SOCKET,
 * _SETSOCKOPT, _BIND, _LISTEN.
 * When the system has no room for a service thread, the call does not return:
 * it waits for a thread that was never made.
 */
KOVA_EXPORT int32_t KovaRtspServerInit(KovaRtspServer **ppServer, const char *szAddress,
                                       uint32_t nPort, int32_t nMaxClient);

/*
 * Stops and destroys the server with all its streams, sessions and
 * connections. The stream handles are gone afterwards; no other call may be
 * under way with this server or its streams. Takes a little over a second: the
 * monitor thread sleeps whole seconds, and queued packets are still sent.
 * Results: KOVA_OK; KOVA_ERROR_NULL.
 */
KOVA_EXPORT int32_t KovaRtspServerUninit(KovaRtspServer *pServer);

/*
 * Creates a server without starting it. Arguments as for KovaRtspServerInit.
 * Returns the handle, or null: null address, a maximum above KOVA_MAX_CLIENTS,
 * or no memory. To be freed with KovaRtspServerDestroy.
 */
KOVA_EXPORT KovaRtspServer *KovaRtspServerCreate(const char *szAddress, uint32_t nPort,
                                                 int32_t nMaxClient);

/*
 * Destroys a server that is not running (never started, or stopped), with
 * everything in it. Results: KOVA_OK; KOVA_ERROR_NULL.
 */
KOVA_EXPORT int32_t KovaRtspServerDestroy(KovaRtspServer *pServer);

/*
 * Opens the listening socket and starts the listener and monitor threads.
 * Streams may be published before or after. A stopped server may be started
 * again, and so may one whose start failed with _SOCKET to _LISTEN; not one that
 * runs. Results: KOVA_OK; KOVA_ERROR_NULL, _SOCKET, _SETSOCKOPT, _BIND,
 * _LISTEN, _THREAD. After KOVA_ERROR_THREAD do not call KovaRtspServerStop: it
 * would wait for the thread that could not be made.
 */
KOVA_EXPORT int32_t KovaRtspServerStart(KovaRtspServer *pServer);

/*
 * Stops the two service threads and closes the listening socket; takes up to
 * about a second. Streams, sessions and connections stay, and players go on.
 * Results: KOVA_OK; KOVA_ERROR_NULL.
 */
KOVA_EXPORT int32_t KovaRtspServerStop(KovaRtspServer *pServer);

/* ---- Streams and payload types ----------------------------------------- */

/*
 * Publishes a stream under szUri, the path that players name behind
 * "rtsp://host:port/" (no leading slash, at least two characters so that a
 * player can ask for it, at most KOVA_MAX_URI_LENGTH). Allocates the stream's
 * two input rings (16 MiB of address space, touched only as data arrives) and
 * starts two threads.
 * Returns the stream handle, or null: null argument, URI too long or already
 * published, no memory or no thread.
 */
KOVA_EXPORT KovaRtspStreamer *KovaRtspServerAddUri(KovaRtspServer *pServer, const char *szUri);

/*
 * Withdraws a stream: its players stop receiving, the handle is gone. Nobody
 * may push to the stream any more. Packets already queued are still sent on
 * schedule, so the call can take a second or more.
 * Results: KOVA_OK; KOVA_ERROR_FAILED (no such URI); KOVA_ERROR_NULL.
 */
KOVA_EXPORT int32_t KovaRtspServerRemoveUri(KovaRtspServer *pServer, const char *szUri);

/*
 * Declares a payload type of a stream.
 *   nMediaType    KOVA_MEDIA_AUDIO or KOVA_MEDIA_VIDEO
 *   pPayloadId    receives the payload id: 96 for the first type, then 97, ...
 *   pDescription  a KovaAudioDescription or KovaVideoDescription; copied
 * Add audio first and video second (see the payload ids above).
 * Results: KOVA_OK, also when the system has no room for the sending thread and
 * the track stays silent; KOVA_ERROR_NULL; KOVA_ERROR_FAILED (unknown media
 * type, no memory; the payload id is consumed all the same).
 */
KOVA_EXPORT int32_t KovaRtspServerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                                 uint32_t *pPayloadId, const void *pDescription);

/*
 * Withdraws a payload type; an unknown id is ignored. A player that loses its
 * last track of the stream is no longer counted. Data pushed for the id
 * afterwards ends the stream's packer thread for that ring.
 * Results: KOVA_OK; KOVA_ERROR_NULL.
 */
KOVA_EXPORT int32_t KovaRtspServerRemovePayloadType(KovaRtspStreamer *pStreamer,
                                                    uint32_t nPayloadId);

/* ---- Media and status -------------------------------------------------- */

/*
 * Pushes one access unit: a complete H.264 access unit in Annex B form (start
 * codes, parameter sets in front of each key frame), or one or more AAC frames
 * with ADTS headers. Never waits for the network.
 *   nPayloadId   96 or 97; data for any other id is not stored
 *   pData        the bytes, copied before the call returns
 *   nLength      their count
 *   nTimestamp   presentation timestamp in milliseconds, rising per track
 * Results: KOVA_OK, also when the ring was full and the unit was dropped (a log
 * line at level 2 says so); KOVA_ERROR_PUSH (null stream or data).
 */
KOVA_EXPORT int32_t KovaRtspServerPushData(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                                           const uint8_t *pData, uint32_t nLength,
                                           uint32_t nTimestamp);

/*
 * Reads one figure of a stream into pStatus, whose nType says which.
 * Results: KOVA_OK; KOVA_ERROR_NULL (null argument or unknown nType; the
 * record is left as it was).
 */
KOVA_EXPORT int32_t KovaRtspServerGetStatus(KovaRtspStreamer *pStreamer, KovaRtspStatus *pStatus);

/*
 * Sets the level up to which log lines are printed on standard output:
 * 1 failures, 2 overflow (the default), 3 every packet sent, 4 thread entry and
 * exit and timestamp anomalies, 5 figures every second. KovaRtspServerInit sets it to 2,
 * so call this afterwards.
 */
KOVA_EXPORT void RTSP_SetLogLevel(uint32_t nLevel);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_RTSP_SERVER_H */
