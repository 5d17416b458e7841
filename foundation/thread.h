#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

/// States of a thread's state word. A thread works while its word reads
/// kThreadRunning and writes kThreadStopped as its last act; a stopper asks
/// with kThreadStopRequested and waits for kThreadStopped.
enum KovaThreadState : uint32_t {
    kThreadNever = 0,
    kThreadStarting = 1,
    kThreadRunning = 2,
    kThreadStopRequested = 3,
    kThreadStopped = 4,
};

/// The state word, shared by the thread and its stopper.
using KovaStateWord = std::atomic<uint32_t>;
static_assert(sizeof(KovaStateWord) == sizeof(uint32_t), "a state word is one plain word");
static_assert(alignof(KovaStateWord) == alignof(uint32_t), "a state word is one plain word");

/// Length of one polling step, microseconds.
constexpr unsigned kPollMicroseconds = 1000;

/// Body of a thread.
using KovaThreadBody = void *(*)(void *);

/// Starts a detached thread. The caller sets the state word first: the body
/// may run, and end, before this returns.
/// Bodies do not detach themselves a second time: a detached thread may not be
/// detached again (POSIX leaves it undefined, and musl ends the process).
/// @param pHandle  receives the thread handle; may be null
/// @return whether the thread was made.
bool KovaThreadStart(pthread_t *pHandle, KovaThreadBody pfnBody, void *pArgument);

/// Starts a detached thread together with its state word: running before the body
/// begins, stopped when no thread could be made. One that runs already is left
/// alone: a stop waits for the first of two threads, and the other one would
/// outlive what it works on.
/// @return whether the thread runs.
bool KovaThreadStartOnce(KovaStateWord &state, KovaThreadBody pfnBody, void *pArgument);

/// Whether the word reads kThreadRunning.
bool KovaThreadRuns(const KovaStateWord &state);

/// Asks for a stop: running becomes stop-requested, anything else becomes
/// stopped at once (so one stopper at a time). A thread that stops by itself at
/// the same instant stays stopped.
/// @return whether a running thread was asked.
bool KovaThreadRequestStop(KovaStateWord &state);

/// Polls every millisecond until the word reads kThreadStopped. No time limit.
void KovaThreadWaitStopped(const KovaStateWord &state);
