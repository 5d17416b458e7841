/*
 * curl_rtsp url - goes through a session with libcurl as the RTSP client: OPTIONS, DESCRIBE, SETUP
 * of both tracks interleaved, PLAY, half a second of RTP, TEARDOWN. libcurl compares the CSeq and
 * the Session of every answer. curl's command line cannot name the methods.
 */
#include <curl/curl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static unsigned long packets[4], octets;
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

static size_t count_packet(char *bytes, size_t size, size_t count, void *user)
{
    const unsigned char *frame = (const unsigned char *)bytes;
    const size_t length = size * count;
    (void)user;
    check(length > 4 && frame[0] == '$' && frame[1] < 4, "not an interleaved frame");
    check(length == 4 + ((size_t)frame[2] << 8 | frame[3]), "a frame's length is wrong");
    check(frame[4] >> 6 == 2, "not RTP or RTCP");
    packets[frame[1]]++;
    octets += length;
    return length;
}

static void request(CURL *curl, long method, const char *uri, const char *transport, long expected)
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
    check(status == expected, "another status was expected");
}

int main(int argc, char **argv)
{
    char audio[256], video[256];
    check(argc == 2, "usage: curl_rtsp url");
    snprintf(audio, sizeof audio, "%s/trackID=96", argv[1]);
    snprintf(video, sizeof video, "%s/trackID=97", argv[1]);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL *curl = curl_easy_init();
    check(curl != NULL, "no libcurl");
    curl_easy_setopt(curl, CURLOPT_URL, argv[1]);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 20L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep_body);
    curl_easy_setopt(curl, CURLOPT_INTERLEAVEFUNCTION, count_packet);

    request(curl, CURL_RTSPREQ_OPTIONS, argv[1], NULL, 200);
    request(curl, CURL_RTSPREQ_DESCRIBE, argv[1], NULL, 200);
    check(strncmp(description, "v=0\r\n", 5) == 0, "no description");
    check(strstr(description, "a=control:trackID=96\r\n") != NULL, "no audio track");
    check(strstr(description, "a=control:trackID=97\r\n") != NULL, "no video track");
    request(curl, CURL_RTSPREQ_SETUP, audio, "RTP/AVP/TCP;unicast;interleaved=0-1", 200);
    request(curl, CURL_RTSPREQ_SETUP, video, "RTP/AVP/TCP;unicast;interleaved=2-3", 200);
    request(curl, CURL_RTSPREQ_PLAY, argv[1], NULL, 200);
    for (int i = 0; i < 200 && (packets[0] < 24 || packets[2] < 24); ++i) {
        curl_easy_setopt(curl, CURLOPT_RTSP_REQUEST, CURL_RTSPREQ_RECEIVE);
        check(curl_easy_perform(curl) == CURLE_OK, "receiving failed");
    }
    printf("RTP %lu and %lu packets, RTCP %lu and %lu, %lu bytes\n", packets[0], packets[2],
           packets[1], packets[3], octets);
    check(packets[0] >= 24 && packets[2] >= 24, "too few RTP packets");
    check(packets[1] == 1 && packets[3] == 1, "not one sender report per track");
    request(curl, CURL_RTSPREQ_TEARDOWN, argv[1], NULL, 200);
    curl_easy_cleanup(curl);
    curl_global_cleanup();
    return 0;
}
