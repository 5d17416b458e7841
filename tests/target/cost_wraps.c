#include "cost.h"

#include <pthread.h>
#include <stdlib.h>
#include <string.h>

/* The linker leads the library's calls of the plain names to __wrap_, and __real_ to the C
 * library. */
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *block);
int __real_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void __wrap_free(void *block);
int __wrap_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);

void *pListenProc(void *server);
void *pMonitorProc(void *server);
void *pHandleRequestProc(void *handler);
void *pAudioPackerProc(void *streamer);
void *pVideoPackerProc(void *streamer);
void *pSenderProc(void *group);

/* ---- Memory ------------------------------------------------------------------------------ */

enum {
    HEADER = 16,
    RING = 1024 * 1024
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static Heap heap;
static size_t peak;

static void *enter(unsigned char *block, size_t size)
{
    if (block == NULL)
        return NULL;
    memcpy(block, &size, sizeof size);
    pthread_mutex_lock(&lock);
    if (size >= RING) {
        heap.rings += size;
    } else {
        heap.bytes += size;
        ++heap.blocks;
        peak = heap.bytes > peak ? heap.bytes : peak;
    }
    pthread_mutex_unlock(&lock);
    return block + HEADER;
}

void *__wrap_malloc(size_t size)
{
    return enter(__real_malloc(size + HEADER), size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return enter(__real_calloc(1, count * size + HEADER), count * size);
}

void __wrap_free(void *block)
{
    size_t size;
    if (block == NULL)
        return;
    block = (unsigned char *)block - HEADER;
    memcpy(&size, block, sizeof size);
    pthread_mutex_lock(&lock);
    if (size >= RING) {
        heap.rings -= size;
    } else {
        heap.bytes -= size;
        --heap.blocks;
    }
    pthread_mutex_unlock(&lock);
    __real_free(block);
}

Heap heap_now(void)
{
    pthread_mutex_lock(&lock);
    const Heap now = heap;
    pthread_mutex_unlock(&lock);
    return now;
}

size_t heap_peak(void)
{
    pthread_mutex_lock(&lock);
    const size_t most = peak;
    pthread_mutex_unlock(&lock);
    return most;
}

void heap_forget_peak(void)
{
    pthread_mutex_lock(&lock);
    peak = heap.bytes;
    pthread_mutex_unlock(&lock);
}

/* ---- Threads ----------------------------------------------------------------------------- */

ThreadKind thread_kinds[] = {
    {pListenProc, "listener", 0, 0},           {pMonitorProc, "monitor", 0, 0},
    {pHandleRequestProc, "request", 0, 0},     {pAudioPackerProc, "audio packer", 0, 0},
    {pVideoPackerProc, "video packer", 0, 0},  {pSenderProc, "sending", 0, 0},
    {push_media, "the host's, pushing", 0, 0}, {NULL, NULL, 0, 0},
};

typedef struct Start {
    ThreadKind *kind;
    void *argument;
} Start;

static unsigned running;

/* A byte that hardly anything writes, and hardly anything twice. */
enum {
    PAINT = 0xC5
};

/* The thread's stack: from its lowest byte up to where its body began. */
typedef struct Stack {
    volatile unsigned char *low;
    size_t size;
} Stack;

static Stack own_stack(void)
{
    pthread_attr_t attributes;
    void *low = NULL;
    Stack stack = {NULL, 0};
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        abort();
    pthread_attr_getstack(&attributes, &low, &stack.size);
    pthread_attr_destroy(&attributes);
    stack.low = low;
    return stack;
}

/* Paints all that lies below this function's frame. */
__attribute__((noinline)) static void paint(Stack stack)
{
    const uintptr_t end = (uintptr_t)__builtin_frame_address(0) - 256;
    for (volatile unsigned char *at = stack.low; (uintptr_t)at < end; ++at)
        *at = PAINT;
}

static void *run(void *argument)
{
    Start start;
    memcpy(&start, argument, sizeof start);
    __real_free(argument);
    const Stack stack = own_stack();
    paint(stack);
    void *result = start.kind->body(start.argument);
    size_t untouched = 0;
    while (untouched < stack.size && stack.low[untouched] == PAINT)
        ++untouched;
    pthread_mutex_lock(&lock);
    if (stack.size - untouched > start.kind->stack)
        start.kind->stack = stack.size - untouched;
    ++start.kind->ended;
    --running;
    pthread_mutex_unlock(&lock);
    return result;
}

int __wrap_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument)
{
    ThreadKind *kind = thread_kinds;
    while (kind->body != NULL && kind->body != body)
        ++kind;
    require(kind->body != NULL, "a thread of a known kind");
    Start *start = __real_malloc(sizeof *start);
    require(start != NULL, "memory for a thread");
    start->kind = kind;
    start->argument = argument;
    pthread_mutex_lock(&lock);
    ++running;
    pthread_mutex_unlock(&lock);
    const int result = __real_pthread_create(handle, attributes, run, start);
    require(result == 0, "a thread");
    return result;
}

int threads_ended(void)
{
    for (unsigned waited = 0; waited < 1000; ++waited) {
        pthread_mutex_lock(&lock);
        const unsigned left = running;
        pthread_mutex_unlock(&lock);
        if (left == 0)
            return 1;
        pause_ms(10);
    }
    return 0;
}
