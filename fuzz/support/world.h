#pragma once

#include <cstdint>

/// A small world around the library in which every run is the same: its threads take turns on the
/// fuzzer's only thread, in an order that their sleeps decide; time is a number that sleeping moves
/// on, so that nothing is ever waited for; rand() starts anew; UDP leads to a checker instead of
/// the network. The C library's functions are replaced at the link of the fuzz programs only.

/// Begins a new run: no threads, the clock at a fixed date, all switches off.
void KovaWorldBegin();

/// Ends the run. Whatever it left behind (threads, sockets of its own) is a finding.
void KovaWorldEnd();

/// Whether a run is on, and the caller is on the fuzzer's thread.
bool KovaWorldIsOn();

/// Lets the threads run for this long.
void KovaWorldRun(int64_t nMicroseconds);

/// Moves the wall clock, and nothing else; or sets it to so many seconds behind the fixed date.
void KovaWorldStepClock(int64_t nSeconds);
void KovaWorldSetClock(int64_t nSeconds);

/// Wall clock, microseconds since 1970.
int64_t KovaWorldNow();

/// What a thread waits for that waits for a socket.
const void *KovaWorldSockets();

/// Something has come in on a socket: threads that wait for sockets look again.
void KovaWorldNudge();

/// Makes a thread that takes its turn from now on.
void KovaWorldStartThread(void *(*pfnBody)(void *), void *pArgument);

/// The caller sleeps: a thread until its time has come or what it waits for is woken, the fuzzer
/// itself by letting the threads run.
void KovaWorldSleep(int64_t nMicroseconds, const void *pWaitsFor = nullptr);

/// Ends the sleep of whoever waits for this.
void KovaWorldWake(const void *pWaitedFor);
