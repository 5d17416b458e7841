/* What the sections of the test share. */
#ifndef ABI_TEST_H
#define ABI_TEST_H

#include "kova_abi_server.h"

/* Counts and names what does not hold. */
void expect(int holds, const char *what);

/* A connected TCP socket pair on the loopback address; the first is the server's end. */
void connect_pair(int ends[2], struct sockaddr_in *peer);

/* Reads from a socket until its text ends in an empty line and as many bytes as follow at once. */
void read_answer(int socket, char *text, int size);

/* Runs a thread body with this argument until it ends, however it ends; 0 if it did not in 5 s. */
int run_body(void *(*body)(void *), void *argument);

/* A free TCP port. */
uint16_t free_port(void);

/* An access unit with parameter sets and a key frame, and an ADTS frame: 48 kHz, stereo. */
extern const uint8_t key_frame[39], adts_frame[16];

/* The sections. */
void test_foundation(void);
void test_packers(void);
void test_delivery(void);
void test_description(void);
void test_stream(void);
void test_sessions(void);
void test_requests(void);
void test_server(void);

#endif
