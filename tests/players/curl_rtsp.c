/*
 * curl_rtsp tcp|udp url sound picture seconds reports [user:password] - goes through a session with
 * libcurl as the RTSP client: OPTIONS, DESCRIBE, SETUP of both tracks, whose control attributes are
 * named, PLAY, so many seconds of RTP without a gap, with as many sender reports at least for each
 * track, TEARDOWN. libcurl compares the CSeq and the Session of every answer, and takes RTP apart
 * that is interleaved; over UDP it does the RTSP only. curl's command line cannot name the methods.
 * With a user every request goes out twice until there was a challenge, as libcurl does for HTTP.
 */
#define _POSIX_C_SOURCE 200809L
#include <arpa/inet.h>
#include <curl/curl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
    CHANNELS = 4,
    PATIENCE = 30
};

static unsigned long packets[CHANNELS], octets;
static unsigned long enough[CHANNELS]; /* of each */
static unsigned sequence[CHANNELS];
static char description[8192];

static void check(int good, const char *what)
{
    if (!good) {
        fprintf(stderr, "curl_rtsp: %s\n", what);
        exit(1);
    }
}

static size_t keep_body(char *bytes, size_t size, size_t count, void *user)
{
    (void)user;
    strncat(description, bytes, size * count < 4000 ? size * count : 4000);
    return size * count;
}

/* Even channels have RTP, odd ones RTCP. */
static void count_packet(const unsigned char *packet, size_t length, unsigned channel)
{
    check(length >= 12 && packet[0] >> 6 == 2, "not RTP or RTCP");
    if (channel % 2 == 0) {
        const unsigned number = (unsigned)packet[2] << 8 | packet[3];
        check(packets[channel] == 0 || number == ((sequence[channel] + 1) & 0xFFFF),
              "a packet is missing");
        sequence[channel] = number;
    }
    packets[channel]++;
    octets += length;
}

static size_t take_frame(char *bytes, size_t size, size_t count, void *user)
{
    const unsigned char *frame = (const unsigned char *)bytes;
    const size_t length = size * count;
    (void)user;
    check(length > 4 && frame[0] == '$' && frame[1] < CHANNELS, "not an interleaved frame");
    check(length == 4 + ((size_t)frame[2] << 8 | frame[3]), "a frame's length is wrong");
    count_packet(frame + 4, length - 4, frame[1]);
    return length;
}

static void request(CURL *curl, long method, const char *uri, const char *transport)
{
    long status = 0;
    curl_easy_setopt(curl, CURLOPT_RTSP_REQUEST, method);
    curl_easy_setopt(curl, CURLOPT_RTSP_STREAM_URI, uri);
    if (transport)
        curl_easy_setopt(curl, CURLOPT_RTSP_TRANSPORT, transport);
    const CURLcode result = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    printf("%ld %s: %ld, %s\n", method, uri, status, curl_easy_strerror(result));
    check(result == CURLE_OK, "the request failed");
    check(status == 200, "another status was expected");
}

/* Two pairs of ports, an even and an odd one each. Returns the first port of the pair. */
static unsigned open_pair(struct pollfd pair[2])
{
    for (unsigned port = 20000 + (unsigned)time(NULL) % 5000 * 2; port < 65000; port += 2) {
        int bound = 0;
        for (unsigned i = 0; i < 2; ++i) {
            struct sockaddr_in address = {.sin_family = AF_INET};
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons((unsigned short)(port + i));
            pair[i] = (struct pollfd){socket(AF_INET, SOCK_DGRAM, 0), POLLIN, 0};
            bound += bind(pair[i].fd, (struct sockaddr *)&address, sizeof address) == 0;
        }
        if (bound == 2)
            return port;
        close(pair[0].fd);
        close(pair[1].fd);
    }
    check(0, "no free ports");
    return 0;
}

static int done(void)
{
    return packets[0] >= enough[0] && packets[2] >= enough[2];
}

static void receive_datagrams(struct pollfd sockets[CHANNELS], time_t end)
{
    unsigned char datagram[2048];
    while (!done() && time(NULL) < end && poll(sockets, CHANNELS, 1000) > 0) {
        for (unsigned i = 0; i < CHANNELS; ++i) {
            if (sockets[i].revents == 0)
                continue;
            const ssize_t length = recv(sockets[i].fd, datagram, sizeof datagram, 0);
            check(length > 0, "receiving failed");
            count_packet(datagram, (size_t)length, i);
        }
    }
}

static void receive_frames(CURL *curl, time_t end)
{
    while (!done() && time(NULL) < end) {
        curl_easy_setopt(curl, CURLOPT_RTSP_REQUEST, CURL_RTSPREQ_RECEIVE);
        check(curl_easy_perform(curl) == CURLE_OK, "receiving failed");
    }
}

static void set_up(CURL *curl, const char *url, const char *control, unsigned channel,
                   struct pollfd *pair, int udp)
{
    char uri[256], transport[128];
    snprintf(uri, sizeof uri, "%s/%s", url, control);
    if (udp) {
        const unsigned port = open_pair(pair);
        snprintf(transport, sizeof transport, "RTP/AVP;unicast;client_port=%u-%u", port, port + 1);
    } else {
        snprintf(transport, sizeof transport, "RTP/AVP/TCP;unicast;interleaved=%u-%u", channel,
                 channel + 1);
    }
    request(curl, CURL_RTSPREQ_SETUP, uri, transport);
}

static void check_control(const char *control)
{
    char line[128];
    snprintf(line, sizeof line, "a=control:%s\r\n", control);
    check(strstr(description, line) != NULL, "a track is missing in the description");
}

int main(int argc, char **argv)
{
    struct pollfd sockets[CHANNELS];
    check(argc == 7 || argc == 8,
          "usage: curl_rtsp tcp|udp url sound picture seconds reports [user:password]");
    const int udp = strcmp(argv[1], "udp") == 0;
    const char *url = argv[2], *sound = argv[3], *picture = argv[4];
    const unsigned long seconds = strtoul(argv[5], NULL, 10), reports = strtoul(argv[6], NULL, 10);
    enough[0] = (seconds * 48000 + 1023) / 1024; /* frames of sound */
    enough[2] = seconds * 24;                    /* the picture's packets, at least one each */
    enough[1] = enough[3] = reports;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL *curl = curl_easy_init();
    check(curl != NULL, "no libcurl");
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep_body);
    curl_easy_setopt(curl, CURLOPT_INTERLEAVEFUNCTION, take_frame);
    if (argc == 8) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, (long)CURLAUTH_DIGEST);
        curl_easy_setopt(curl, CURLOPT_USERPWD, argv[7]);
    }

    request(curl, CURL_RTSPREQ_OPTIONS, url, NULL);
    request(curl, CURL_RTSPREQ_DESCRIBE, url, NULL);
    check(strncmp(description, "v=0\r\n", 5) == 0, "no description");
    check_control(sound);
    check_control(picture);
    set_up(curl, url, sound, 0, sockets, udp);
    set_up(curl, url, picture, 2, sockets + 2, udp);
    request(curl, CURL_RTSPREQ_PLAY, url, NULL);
    const time_t end = time(NULL) + PATIENCE;
    if (udp)
        receive_datagrams(sockets, end);
    else
        receive_frames(curl, end);
    printf("%s: RTP %lu and %lu packets, RTCP %lu and %lu, %lu bytes\n", argv[1], packets[0],
           packets[2], packets[1], packets[3], octets);
    check(done(), "too few RTP packets");
    check(packets[1] >= reports && packets[3] >= reports, "too few sender reports");
    request(curl, CURL_RTSPREQ_TEARDOWN, url, NULL);
    curl_easy_cleanup(curl);
    curl_global_cleanup();
    return 0;
}
