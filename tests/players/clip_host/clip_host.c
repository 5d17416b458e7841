/*
 * kova_clip_host - streams one H.264 and one AAC file through kova_live.h, looped, in real time.
 *
 *     kova_clip_host [option]... clip.h264 clip.aac
 *
 * Everybody may watch rtsp://<this machine>:<port>/live. It prints "port <port>" first, then a line
 * for every event, and every 200 ms one with the figures that matter when players are gone.
 */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "clips.h"
#include "kova_live.h"

enum {
    MOST_USERS = 8,
    STREAMS = 2,
    ADTS_HEADER = 7,
    STATUS_EVERY = 200000,
    FIRST_TIMES = 3600 /* seconds: where the times of the media begin */
};

static const char usage[] =
    "[option]... clip.h264 clip.aac\n"
    "    -p port      of RTSP (any free one)\n"
    "    -u file      also publishes /private, for its users only: a line NAME:PASSWORD each\n"
    "    -g           newcomers get the current picture group from memory\n"
    "    -d ms        delay\n"
    "    -t threads   network threads (1)\n"
    "    -i ms        how long a session may be silent (60,000)\n"
    "    -m bytes     largest packet (1,400)\n"
    "    -f fps       pictures a second (25)\n"
    "    -T file      when each picture is shown, in seconds, in the order of decoding\n"
    "    -l           pushes NAL units behind lengths, not start codes\n"
    "    -P           so too, with the parameter sets told beforehand and never pushed\n"
    "    -r           pushes AAC without ADTS headers";

typedef struct Options {
    KovaLiveConfig server;
    KovaLiveStreamConfig stream;
    const char *users, *times;
    uint32_t fps;
    int lengths, sets_given, raw;
} Options;

static Clip video, audio;
static uint8_t *buffer; /* for a picture in the other form */
static volatile sig_atomic_t stopped;

static void on_signal(int number)
{
    (void)number;
    stopped = 1;
}

static void check(const char *what, int32_t result)
{
    if (result != KOVA_LIVE_OK)
        fail(what, KovaLiveErrorText(result));
}

static void on_event(void *context, const KovaLiveEvent *event)
{
    static const char *const reasons[] = {"",     "teardown",     "connection", "silence",
                                          "slow", "disconnected", "stream",     "bye"};
    (void)context;
    const unsigned long long player = event->player;
    switch (event->type) {
    case KOVA_LIVE_EVENT_PLAYER_CAME:
        printf("came %llu %s\n", player, event->interleaved ? "tcp" : "udp");
        break;
    case KOVA_LIVE_EVENT_PLAYER_WENT:
        printf("went %llu %s\n", player, reasons[event->reason]);
        break;
    case KOVA_LIVE_EVENT_STREAM_READY:
        puts("ready");
        break;
    case KOVA_LIVE_EVENT_OVERFLOW:
        printf("overflow %llu\n", player);
        break;
    default:
        break;
    }
}

/* Fills at most MOST_USERS; the texts stay in memory. */
static uint32_t load_users(KovaLiveUser *users, const char *path)
{
    static char lines[MOST_USERS][256];
    FILE *file = fopen(path, "r");
    uint32_t count = 0;
    if (!file)
        fail(path, "cannot be read");
    while (count < MOST_USERS && fgets(lines[count], sizeof lines[count], file)) {
        char *colon = strchr(lines[count], ':');
        lines[count][strcspn(lines[count], "\n")] = '\0';
        if (!colon)
            fail(path, "a line without a colon");
        *colon = '\0';
        users[count] = (KovaLiveUser){lines[count], colon + 1};
        ++count;
    }
    fclose(file);
    return count;
}

static void read_options(Options *options, int argc, char **argv)
{
    uint32_t unused = 0, port = 0, packet = 0;
    for (int option; (option = getopt(argc, argv, "p:u:gd:t:i:m:f:T:lPr")) != -1;) {
        uint32_t *number = option == 'p'   ? &port
                           : option == 'd' ? &options->server.delay_ms
                           : option == 't' ? &options->server.threads
                           : option == 'i' ? &options->server.session_ms
                           : option == 'm' ? &packet
                           : option == 'f' ? &options->fps
                                           : &unused;
        if (option == '?')
            fail("usage", usage);
        if (optarg)
            *number = (uint32_t)strtoul(optarg, NULL, 10);
        options->users = option == 'u' ? optarg : options->users;
        options->times = option == 'T' ? optarg : options->times;
        options->stream.keep_group |= option == 'g';
        options->lengths |= option == 'l' || option == 'P';
        options->sets_given |= option == 'P';
        options->raw |= option == 'r';
    }
    options->server.port = (uint16_t)port;
    options->server.max_packet = (uint16_t)packet;
    if (argc - optind != 2 || options->fps < 1 || options->fps > 1000)
        fail("usage", usage);
}

/* The picture first: players show it first too. */
static void add_tracks(KovaLiveStream *stream, const Options *options, KovaLiveTrack *tracks[2])
{
    KovaLiveTrackConfig track;
    KovaLiveTrackConfigInit(&track, sizeof track);
    track.codec = KOVA_LIVE_H264;
    track.form = options->lengths ? KOVA_LIVE_FORM_LENGTH : KOVA_LIVE_FORM_ANNEXB;
    if (options->sets_given) {
        size_t sps, pps;
        track.sps = find_nal(video.data, video.size, 7, &sps);
        track.pps = find_nal(video.data, video.size, 8, &pps);
        track.sps_size = (uint32_t)sps;
        track.pps_size = (uint32_t)pps;
    }
    check("picture", KovaLiveAddTrack(stream, &track, &tracks[0]));
    KovaLiveTrackConfigInit(&track, sizeof track);
    track.codec = KOVA_LIVE_AAC;
    if (options->raw) {
        track.form = KOVA_LIVE_FORM_RAW;
        track.audio_config = audio.config;
        track.audio_config_size = sizeof audio.config;
    }
    check("sound", KovaLiveAddTrack(stream, &track, &tracks[1]));
}

static void push_next(Clip *clip, KovaLiveTrack *tracks[STREAMS][2], uint32_t streams,
                      const Options *options)
{
    const size_t begin = clip->offset[clip->next];
    const uint8_t *unit = clip->data + begin;
    size_t size = clip->offset[clip->next + 1] - begin;
    if (clip == &video && options->lengths) {
        size = put_lengths(unit, size, !options->sets_given, buffer);
        unit = buffer;
    } else if (clip == &audio && options->raw) {
        unit += ADTS_HEADER;
        size -= ADTS_HEADER;
    }
    const int64_t time = shown_us(clip) + (int64_t)FIRST_TIMES * 1000000;
    for (uint32_t stream = 0; stream < streams; ++stream)
        check("push", KovaLivePush(tracks[stream][clip == &audio], unit, size, time));
    ++clip->pushed;
    clip->next = (clip->next + 1) % clip->count;
    /* Picture and sound start again together; the times go on. */
    if (clip == &video && video.next == 0)
        audio.next = 0;
}

static void print_status(KovaLive *live)
{
    KovaLiveServerNumbers numbers = {sizeof numbers, 0, 0, 0, 0, 0, 0, 0};
    check("figures", KovaLiveServerFigures(live, &numbers));
    printf("players %u, sessions %u, connections %u, refused logins %llu\n", numbers.players,
           numbers.sessions, numbers.connections, (unsigned long long)numbers.logins_failed);
}

static void stream_clips(KovaLive *live, KovaLiveTrack *tracks[STREAMS][2], uint32_t streams,
                         const Options *options)
{
    struct timespec start;
    int64_t status = 0;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (!stopped) {
        Clip *clip = due_us(&video) <= due_us(&audio) ? &video : &audio;
        const int64_t due = due_us(clip), ns = start.tv_nsec + due * 1000;
        const struct timespec until = {start.tv_sec + (time_t)(ns / 1000000000),
                                       (long)(ns % 1000000000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL); /* a signal ends it early */
        push_next(clip, tracks, streams, options);
        if (due >= status) {
            print_status(live);
            status = due + STATUS_EVERY;
        }
    }
}

int main(int argc, char **argv)
{
    Options options;
    KovaLiveUser users[MOST_USERS];
    KovaLive *live;
    KovaLiveTrack *tracks[STREAMS][2];
    uint32_t streams = 1;
    uint16_t port;
    memset(&options, 0, sizeof options);
    options.fps = 25;
    KovaLiveConfigInit(&options.server, sizeof options.server);
    KovaLiveStreamConfigInit(&options.stream, sizeof options.stream);
    options.server.on_event = on_event;
    read_options(&options, argc, argv);
    load_h264(&video, argv[optind], options.fps);
    load_adts(&audio, argv[optind + 1]);
    if (options.times)
        load_times(&video, options.times);
    if (!(buffer = malloc(video.size * 2)))
        fail("memory", "too little");
    setvbuf(stdout, NULL, _IOLBF, 0);
    const struct sigaction action = {.sa_handler = on_signal};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    KovaLiveStream *stream;
    check("server", KovaLiveOpen(&options.server, &live));
    check("stream", KovaLiveAddStream(live, "live", &options.stream, &stream));
    add_tracks(stream, &options, tracks[0]);
    if (options.users) {
        options.stream.users = users;
        options.stream.user_count = load_users(users, options.users);
        check("private stream", KovaLiveAddStream(live, "private", &options.stream, &stream));
        add_tracks(stream, &options, tracks[streams++]);
    }
    check("port", KovaLivePort(live, &port));
    printf("port %u\n", port);
    stream_clips(live, tracks, streams, &options);
    check("close", KovaLiveClose(live));
    return 0;
}
