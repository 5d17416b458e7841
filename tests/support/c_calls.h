#pragma once

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <ctime>

/// How tests take the place of the C library. The test programs are linked so that what their own
/// objects call, the library's included, goes through c_calls.cpp (ld --wrap, c_calls.cmake); the
/// C++ run time and other shared parts are not touched. A function that nothing stands in for is
/// the C library's own, or a sanitizer's.

extern "C" {
void *__real_malloc(size_t nSize);
void *__real_calloc(size_t nCount, size_t nSize);
void *__real_realloc(void *pBlock, size_t nSize);
void __real_free(void *pBlock);
void *__real_mmap(void *pWish, size_t nSize, int nProtection, int nFlags, int nFile, off_t nOffset);
int __real_munmap(void *pPages, size_t nSize);
int __real_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttributes,
                          void *(*pfnBody)(void *), void *pArgument);
int __real_pthread_mutex_unlock(pthread_mutex_t *pMutex);
int __real_socket(int nDomain, int nType, int nProtocol);
int __real_bind(int nSocket, const sockaddr *pAddress, socklen_t nSize);
int __real_listen(int nSocket, int nBacklog);
int __real_setsockopt(int nSocket, int nLevel, int nName, const void *pValue, socklen_t nSize);
int __real_getsockopt(int nSocket, int nLevel, int nName, void *pValue, socklen_t *pSize);
int __real_accept(int nSocket, sockaddr *pAddress, socklen_t *pSize);
int __real_accept4(int nSocket, sockaddr *pAddress, socklen_t *pSize, int nFlags);
ssize_t __real_send(int nSocket, const void *pData, size_t nSize, int nFlags);
ssize_t __real_sendto(int nSocket, const void *pData, size_t nSize, int nFlags,
                      const sockaddr *pAddress, socklen_t nAddressSize);
ssize_t __real_sendmsg(int nSocket, const msghdr *pMessage, int nFlags);
int __real_sendmmsg(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags);
ssize_t __real_recv(int nSocket, void *pData, size_t nSize, int nFlags);
ssize_t __real_recvfrom(int nSocket, void *pData, size_t nSize, int nFlags, sockaddr *pAddress,
                        socklen_t *pAddressSize);
int __real_close(int nDescriptor);
int __real_poll(pollfd *pEntries, nfds_t nEntries, int nMilliseconds);
int __real_usleep(useconds_t nMicroseconds);
int __real_getsockname(int nSocket, sockaddr *pAddress, socklen_t *pSize);
int __real_getpeername(int nSocket, sockaddr *pAddress, socklen_t *pSize);
int __real_rand();
time_t __real_time(time_t *pTime);
int __real_gettimeofday(timeval *pTime, void *pZone);
int __real_clock_gettime(clockid_t nClock, timespec *pTime);
int __real_epoll_create1(int nFlags);
int __real_epoll_ctl(int nEpoll, int nOperation, int nDescriptor, epoll_event *pEvent);
int __real_eventfd(unsigned nValue, int nFlags);
/// These two take any number of arguments: a place is read for each that there may be.
int __real_prctl(int nOption, unsigned long nFirst, unsigned long nSecond, unsigned long nThird,
                 unsigned long nFourth);
long __real_syscall(long nNumber, long nFirst, long nSecond, long nThird, long nFourth, long nFifth,
                    long nSixth);
}

/// fcntl() with one number behind the command.
int KovaRealControl(int nDescriptor, int nCommand, int nArgument);

/// What stands in for a function; null: nothing.
template <auto *pfnReal> inline std::atomic<decltype(pfnReal)> KovaStandIn{nullptr};

/// Lets a function stand in for one of those above. It may call that one.
template <auto *pfnReal> void KovaReplaceCall(decltype(pfnReal) pfnInstead)
{
    KovaStandIn<pfnReal>.store(pfnInstead);
}

/// A stand-in that ends with -1 (errno is the judge's) when the judge says so.
template <auto *pfnReal, bool (*pfnFails)()> struct KovaFailable;
template <typename Result, typename... Arguments, Result (*pfnReal)(Arguments...),
          bool (*pfnFails)()>
struct KovaFailable<pfnReal, pfnFails> {
    static Result Call(Arguments... arguments)
    {
        return pfnFails() ? static_cast<Result>(-1) : pfnReal(arguments...);
    }
};
template <auto *pfnReal, bool (*pfnFails)()> void KovaMakeFailable()
{
    KovaReplaceCall<pfnReal>(KovaFailable<pfnReal, pfnFails>::Call);
}
