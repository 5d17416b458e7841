/* What the library costs on a board: heap, and the stack of each kind of thread. */
#ifndef KOVA_TESTS_TARGET_COST_H
#define KOVA_TESTS_TARGET_COST_H

#include <stddef.h>
#include <stdint.h>

/* ---- The library's calls for memory and threads, counted (cost_wraps.c) ---- */

typedef struct Heap {
    size_t bytes;  /* as asked for, the allocator's own part not counted */
    size_t blocks; /* their number */
    size_t rings;  /* the bytes of blocks of a MiB and more, which are in no other figure */
} Heap;

/* What is allocated now. */
Heap heap_now(void);

/* The most bytes since heap_forget_peak. */
size_t heap_peak(void);
void heap_forget_peak(void);

typedef struct ThreadKind {
    void *(*body)(void *);
    const char *name;
    size_t stack; /* the deepest that any of its threads used, bytes */
    unsigned ended;
} ThreadKind;

/* The kinds whose threads have been seen to their end; the last one has no body. */
extern ThreadKind thread_kinds[];

/* Waits at most ten seconds until no thread runs any more; 0 when one does. */
int threads_ended(void);

/* The host's own thread: pushes media until told to stop. */
void *push_media(void *argument);

/* ---- A player (cost_player.c) ---------------------------------------------- */

typedef struct Player {
    int tcp;    /* the connection */
    int udp[4]; /* RTP and RTCP of two tracks, or -1 */
    int port[4];
    int cseq;
    char session[16];
    char answer[8192];
} Player;

/* All of these end the program with a message when something is not as it must be. */
void player_connect(Player *player, int port);
void player_request(Player *player, const char *method, const char *uri, const char *headers,
                    const char *status);
void player_set_up_udp(Player *player, const char *uri);
void player_set_up_tcp(Player *player, const char *uri);

/* Takes what has come, without waiting; a receiver report goes back on UDP. */
void player_drain(Player *player);
void player_close(Player *player);

void require(int condition, const char *what);
void pause_ms(unsigned milliseconds);

#endif
