#include "cost.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

void require(int condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "kova_cost: no success: %s\n", what);
    exit(1);
}

void pause_ms(unsigned milliseconds)
{
    const struct timespec span = {milliseconds / 1000, (long)(milliseconds % 1000) * 1000000};
    nanosleep(&span, NULL);
}

static struct sockaddr_in loopback(int port)
{
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void player_connect(Player *player, int port)
{
    const struct sockaddr_in address = loopback(port);
    const struct timeval patience = {5, 0};
    memset(player, 0, sizeof *player);
    for (int n = 0; n < 4; ++n)
        player->udp[n] = -1;
    player->tcp = socket(AF_INET, SOCK_STREAM, 0);
    require(player->tcp >= 0, "a socket");
    setsockopt(player->tcp, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    require(connect(player->tcp, (const struct sockaddr *)&address, sizeof address) == 0,
            "a connection");
}

/* The answer's head and, as told by its length, its body. */
static void read_answer(Player *player)
{
    size_t held = 0, wanted = 0;
    while (wanted == 0 || held < wanted) {
        require(held + 1 < sizeof player->answer, "an answer of moderate length");
        const ssize_t got =
            recv(player->tcp, player->answer + held, sizeof player->answer - 1 - held, 0);
        require(got > 0, "an answer");
        held += (size_t)got;
        player->answer[held] = '\0';
        const char *end = strstr(player->answer, "\r\n\r\n");
        if (end == NULL)
            continue;
        const char *length = strstr(player->answer, "Content-Length: ");
        wanted = (size_t)(end + 4 - player->answer);
        if (length != NULL && length < end)
            wanted += (size_t)atoi(length + strlen("Content-Length: "));
    }
}

void player_request(Player *player, const char *method, const char *uri, const char *headers,
                    const char *status)
{
    char request[2048];
    const int length = snprintf(request, sizeof request,
                                "%s rtsp://127.0.0.1/%s RTSP/1.0\r\nCSeq: %d\r\n%s%s%s%s\r\n",
                                method, uri, ++player->cseq, player->session[0] ? "Session: " : "",
                                player->session, player->session[0] ? "\r\n" : "", headers);
    require(send(player->tcp, request, (size_t)length, MSG_NOSIGNAL) == length, "a request");
    read_answer(player);
    if (strncmp(player->answer, "RTSP/1.0 ", 9) != 0 || strncmp(player->answer + 9, status, 3) != 0)
        fprintf(stderr, "%s: %.60s\n", method, player->answer);
    require(strncmp(player->answer + 9, status, 3) == 0, status);
    const char *session = strstr(player->answer, "Session: ");
    if (session != NULL)
        sscanf(session, "Session: %15[0-9]", player->session);
}

/* Two neighbouring free ports, the first one even. */
static void open_pair(Player *player, int first)
{
    for (int port = 42000; port < 43000; port += 2) {
        int n = 0;
        for (; n < 2; ++n) {
            const struct sockaddr_in address = loopback(port + n);
            const int handle = socket(AF_INET, SOCK_DGRAM, 0);
            player->udp[first + n] = handle;
            player->port[first + n] = port + n;
            if (bind(handle, (const struct sockaddr *)&address, sizeof address) != 0)
                break;
        }
        if (n == 2)
            return;
        for (; n >= 0; --n)
            close(player->udp[first + n]);
    }
    require(0, "two free ports");
}

void player_set_up_udp(Player *player, const char *uri)
{
    for (int track = 0; track < 2; ++track) {
        char path[64], transport[96];
        open_pair(player, 2 * track);
        snprintf(path, sizeof path, "%s/trackID=%d", uri, 96 + track);
        snprintf(transport, sizeof transport, "Transport: RTP/AVP;unicast;client_port=%d-%d\r\n",
                 player->port[2 * track], player->port[2 * track + 1]);
        player_request(player, "SETUP", path, transport, "200");
    }
}

void player_set_up_tcp(Player *player, const char *uri)
{
    for (int track = 0; track < 2; ++track) {
        char path[64], transport[96];
        snprintf(path, sizeof path, "%s/trackID=%d", uri, 96 + track);
        snprintf(transport, sizeof transport,
                 "Transport: RTP/AVP/TCP;unicast;interleaved=%d-%d\r\n", 2 * track, 2 * track + 1);
        player_request(player, "SETUP", path, transport, "200");
    }
}

void player_drain(Player *player)
{
    static const unsigned char report[8] = {0x80, 201, 0, 1, 0, 0, 0, 1};
    unsigned char data[16384];
    if (player->udp[0] < 0) {
        while (recv(player->tcp, data, sizeof data, MSG_DONTWAIT) > 0) {
        }
        return;
    }
    for (int n = 0; n < 4; ++n) {
        struct sockaddr_in from;
        socklen_t size = sizeof from;
        while (recvfrom(player->udp[n], data, sizeof data, MSG_DONTWAIT, (struct sockaddr *)&from,
                        &size) > 0) {
            if (n % 2 == 1)
                sendto(player->udp[n], report, sizeof report, 0, (const struct sockaddr *)&from,
                       size);
        }
    }
}

void player_close(Player *player)
{
    close(player->tcp);
    for (int n = 0; n < 4; ++n) {
        if (player->udp[n] >= 0)
            close(player->udp[n]);
    }
}
