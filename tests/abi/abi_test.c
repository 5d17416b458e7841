/*
 * abi_test section - calls every exported function of one section of the library through plain C
 * prototypes and looks at results and records. Linked against the shared library alone.
 */
#define _POSIX_C_SOURCE 200809L
#include "abi_test.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

const uint8_t key_frame[39] = {0,    0,    0,    1, 0x67, 0x42, 0xC0, 0x1E, 0xDA, 0x02,
                               0x80, 0xBF, 0xE5, 0, 0,    0,    1,    0x68, 0xCE, 0x3C,
                               0x80, 0,    0,    0, 1,    0x65, 0x88, 0x84, 1,    2,
                               3,    4,    5,    6, 7,    8,    9,    10,   11};
const uint8_t adts_frame[16] = {0xFF, 0xF1, 0x4C, 0x80, 0x02, 0x1F, 0xFC, 1,
                                2,    3,    4,    5,    6,    7,    8,    9};

static int failures;

void expect(int holds, const char *what)
{
    if (!holds) {
        printf("FAILED: %s\n", what);
        failures++;
    }
}

static int listen_anywhere(struct sockaddr_in *address)
{
    socklen_t size = sizeof *address;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    memset(address, 0, sizeof *address);
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    expect(bind(listener, (struct sockaddr *)address, size) == 0 && listen(listener, 4) == 0 &&
               getsockname(listener, (struct sockaddr *)address, &size) == 0,
           "a listening socket");
    return listener;
}

void connect_pair(int ends[2], struct sockaddr_in *peer)
{
    struct sockaddr_in address;
    socklen_t size = sizeof *peer;
    const int listener = listen_anywhere(&address);
    const struct timeval patience = {5, 0};
    ends[1] = socket(AF_INET, SOCK_STREAM, 0);
    expect(connect(ends[1], (struct sockaddr *)&address, sizeof address) == 0, "connect");
    setsockopt(ends[1], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ends[0] = accept(listener, (struct sockaddr *)peer, &size);
    expect(ends[0] > 0, "accept");
    close(listener);
}

uint16_t free_port(void)
{
    struct sockaddr_in address;
    close(listen_anywhere(&address));
    return ntohs(address.sin_port);
}

void read_answer(int socket, char *text, int size)
{
    int length = 0;
    text[0] = '\0';
    while (length < size - 1 && strstr(text, "\r\n\r\n") == NULL) {
        const ssize_t got = recv(socket, text + length, (size_t)(size - 1 - length), 0);
        if (got <= 0)
            break;
        length += (int)got;
        text[length] = '\0';
    }
}

/* A body leaves by returning or by pthread_exit, and detaches itself: only a clean-up handler
 * sees both ends. */
typedef struct Body {
    void *(*body)(void *);
    void *argument;
    pthread_mutex_t mutex;
    int ended;
} Body;

static void body_ended(void *user)
{
    Body *body = user;
    pthread_mutex_lock(&body->mutex);
    body->ended = 1;
    pthread_mutex_unlock(&body->mutex);
}

static void *body_thread(void *user)
{
    Body *body = user;
    pthread_cleanup_push(body_ended, body);
    body->body(body->argument);
    pthread_cleanup_pop(1);
    return NULL;
}

int run_body(void *(*body)(void *), void *argument)
{
    static Body bodies[16]; /* they may outlive this call */
    static unsigned count;
    Body *mine = &bodies[count++ % 16];
    pthread_attr_t detached;
    pthread_t thread;
    int ended = 0;
    mine->body = body;
    mine->argument = argument;
    mine->ended = 0;
    pthread_mutex_init(&mine->mutex, NULL);
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    expect(pthread_create(&thread, &detached, body_thread, mine) == 0, "a thread");
    pthread_attr_destroy(&detached);
    for (int i = 0; i < 5000 && !ended; i++) {
        const struct timespec millisecond = {0, 1000000};
        nanosleep(&millisecond, NULL);
        pthread_mutex_lock(&mine->mutex);
        ended = mine->ended;
        pthread_mutex_unlock(&mine->mutex);
    }
    return ended;
}

int main(int argc, char **argv)
{
    static const struct {
        const char *name;
        void (*test)(void);
    } sections[] = {
        {"foundation", test_foundation},   {"packers", test_packers}, {"delivery", test_delivery},
        {"description", test_description}, {"stream", test_stream},   {"sessions", test_sessions},
        {"requests", test_requests},       {"server", test_server},
    };
    for (size_t i = 0; i < sizeof sections / sizeof sections[0]; i++) {
        if (argc == 2 && strcmp(argv[1], sections[i].name) == 0) {
            sections[i].test();
            printf("%s: %d failures\n", argv[1], failures);
            return failures == 0 ? 0 : 1;
        }
    }
    fprintf(stderr, "usage: abi_test section\n");
    return 2;
}
